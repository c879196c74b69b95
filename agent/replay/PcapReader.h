#pragma once

#include <cstdio>
#include <memory>

#include "agent/replay/PacketSource.h"

struct pcap;

namespace Agent {

/// A capture in a format that libpcap reads, other than pcapng.
class PcapReader final : public PacketSource {
 public:
  /// @param file becomes the reader's, unless this throws.
  explicit PcapReader(std::FILE* file);

  std::vector<CapturedInterface> const& interfaces() const override { return interfaces_; }
  std::optional<RawPacket> next() override;
  long offset() const override { return offset_; }

 private:
  struct Closer {
    void operator()(pcap* capture) const noexcept;
  };

  std::unique_ptr<pcap, Closer> capture_;
  std::vector<CapturedInterface> interfaces_;
  long offset_ = 0;
};

}  // namespace Agent
