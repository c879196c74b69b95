#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>

#include "agent/replay/PacketSource.h"

namespace Agent {

/// A capture in the format pcapng (draft-ietf-opsawg-pcapng), of which libpcap tells neither the
/// interfaces nor the packets' directions.
class PcapngReader final : public PacketSource {
 public:
  /// @param file becomes the reader's.
  explicit PcapngReader(std::FILE* file) : file_(file) {}

  std::vector<CapturedInterface> const& interfaces() const override { return interfaces_; }
  std::optional<RawPacket> next() override;
  long offset() const override { return offset_; }

 private:
  /// A block's body, or a part of it, in the section's byte order.
  class Fields;

  /// How an interface counts time.
  struct Clock {
    std::uint64_t unitsPerSecond = 1'000'000;
    std::int64_t offset = 0;  // seconds
    std::uint32_t snapLength = 0;
  };
  struct Closer {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
  };

  std::optional<std::uint32_t> nextBlock();
  bool read(std::uint8_t* to, std::size_t size);
  std::uint32_t number(std::uint8_t const* at) const;
  void beginSection();
  void addInterface(Fields fields);
  RawPacket enhancedPacket(Fields fields) const;
  RawPacket packetBlock(Fields fields) const;
  RawPacket simplePacket(Fields fields) const;
  RawPacket packet(std::size_t interface, std::uint64_t time, Fields& fields,
                   std::size_t captured) const;
  Clock const& clock(std::size_t interface) const;
  bool isFromInterface(RawPacket const& packet) const;

  std::unique_ptr<std::FILE, Closer> file_;
  long offset_ = 0;  // of the block
  bool bigEndian_ = false;
  std::vector<std::uint8_t> body_;
  std::vector<CapturedInterface> interfaces_;  // of all sections
  std::vector<Clock> clocks_;
  std::vector<Wirex::MacAddress> macAddresses_;  // by interface; 0 where the file has none
  std::size_t firstOfSection_ = 0;
};

}  // namespace Agent
