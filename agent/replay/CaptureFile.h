#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/replay/CaptureError.h"
#include "agent/replay/CaptureName.h"
#include "agent/replay/PacketSource.h"
#include "platform/horix/Clock.h"
#include "platform/igmp/wire/ByteReader.h"

namespace Agent {

struct CapturedPacket {
  /// Since the epoch, or before it.
  Horix::Time time;

  /// From the destination's MAC address on, as far as it was captured; there until the next packet
  /// is read.
  Igmp::Bytes frame;

  /// Its place in the file, from 1 on.
  std::uint64_t number = 0;

  /// The capture says that it was sent there, not heard.
  bool outgoing = false;
};

/// A file of captured Ethernet frames in any format that libpcap reads, packet by packet; of one
/// that holds several interfaces the packets of one. Cooked captures are read as Ethernet.
///
/// Packets come in the file's order, which is that of their arrival. Clocks are stepped and
/// network cards stamp slightly out of order, so timestamps may go back; such a packet counts as
/// of the same time as the latest one before it. Errors are CaptureErrors.
class CaptureFile {
 public:
  /// @param given as in captureName().
  explicit CaptureFile(std::string const& given);

  /// The next packet; nothing after the last one.
  std::optional<CapturedPacket> next();

  /// In bytes, when it was opened; nothing for what is no regular file, as a pipe.
  std::optional<std::uintmax_t> size() const { return size_; }

  /// How many of its bytes come before what was read last; less than 0 without a size().
  long offset() const { return source_->offset(); }

 private:
  bool isSelected(CapturedInterface const& interface) const;
  bool isSelected(std::uint32_t cookedInterface);
  bool tellsInterfacesByNumber() const;
  std::optional<RawPacket> nextRaw();
  void lookAtInterfaces();
  void requireOneInterface() const;
  void requireSelectedInterface() const;
  void requireEthernet(int linkType) const;
  bool uncook(RawPacket& packet);

  CaptureName name_;
  std::unique_ptr<PacketSource> source_;
  std::optional<std::uintmax_t> size_;
  std::size_t interfacesSeen_ = 0;
  std::optional<std::uint32_t> cookedInterface_;  // of the first packet
  bool selectedSeen_ = false;
  std::vector<std::uint8_t> uncooked_;
  std::uint64_t packetsRead_ = 0;
  Horix::Time latest_ = Horix::Time::min();
};

}  // namespace Agent
