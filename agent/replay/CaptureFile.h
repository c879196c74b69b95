#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "platform/horix/Clock.h"
#include "platform/igmp/wire/ByteReader.h"

struct pcap;

namespace Agent {

/// Why a capture cannot be replayed, in one line: which file, what is wrong, what to do.
class CaptureError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct CapturedPacket {
  /// Since the epoch, or before it.
  Horix::Time time;

  /// From the destination's MAC address on, as far as it was captured; there until the next packet
  /// is read.
  Igmp::Bytes frame;
};

/// A file of captured Ethernet frames in any format that libpcap reads, packet by packet.
///
/// Packets come in the file's order, which is that of their arrival. Clocks are stepped and
/// network cards stamp slightly out of order, so timestamps may go back; such a packet counts as
/// of the same time as the latest one before it. Errors are CaptureErrors.
class CaptureFile {
 public:
  explicit CaptureFile(std::string fileName);

  /// The next packet; nothing after the last one.
  std::optional<CapturedPacket> next();

 private:
  struct Closer {
    void operator()(pcap* capture) const noexcept;
  };

  void requireEthernet() const;

  std::string fileName_;
  std::unique_ptr<pcap, Closer> capture_;
  std::uint64_t packetsRead_ = 0;
  Horix::Time latest_ = Horix::Time::min();
};

}  // namespace Agent
