#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "agent/text/Wording.h"
#include "platform/horix/Clock.h"
#include "platform/wirex/Ethernet.h"

namespace Agent {

/// An interface on which a capture was taken.
struct CapturedInterface {
  std::string name;        ///< empty where the file has none
  std::size_t number = 0;  ///< in its part of the file
  int linkType = 0;        ///< as libpcap counts them

  /// What a user calls it: by its number where its name is none or cannot be typed.
  std::string text() const {
    return name.empty() || onOneLine(name) != name ? std::to_string(number) : name;
  }
};

/// A packet as it stands in a capture.
struct RawPacket {
  std::size_t interface = 0;        ///< its place in PacketSource::interfaces()
  std::optional<Horix::Time> time;  ///< nothing where no clock can tell it
  bool outgoing = false;            ///< the capture says that it was sent there
  Wirex::Bytes bytes;               ///< there until the next packet is read
};

/// A capture in some format. Errors are CaptureDamages.
class PacketSource {
 public:
  PacketSource() = default;
  PacketSource(PacketSource const&) = delete;
  PacketSource& operator=(PacketSource const&) = delete;
  virtual ~PacketSource() = default;

  /// Those that the file has told of so far; more may come between packets.
  virtual std::vector<CapturedInterface> const& interfaces() const = 0;

  /// The next packet; nothing after the last one.
  virtual std::optional<RawPacket> next() = 0;

  /// How far into the file what was read last begins, or less than 0 in a pipe.
  virtual long offset() const = 0;
};

/// Since the epoch. Nothing for a time so far from 1970 that differences of two could overflow.
/// @param fraction may exceed a second in a careless file.
std::optional<Horix::Time> captureTime(std::chrono::seconds whole, Horix::Time fraction);

}  // namespace Agent
