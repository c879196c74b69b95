#include "agent/replay/PcapngReader.h"

#include <algorithm>
#include <array>
#include <limits>
#include <span>

#include "agent/replay/CaptureError.h"

namespace Agent {

namespace {

enum Block : std::uint32_t {
  interfaceDescription = 1,
  obsoletePacket = 2,
  simplePacketBlock = 3,
  enhancedPacketBlock = 6,
  sectionHeader = 0x0a0d0d0a,  // reads alike in both byte orders
};

enum Option : std::uint16_t {
  endOfOptions = 0,
  packetFlags = 2,  // epb_flags, pack_flags
  interfaceName = 2,
  interfaceMacAddress = 6,
  timeResolution = 9,
  timeOffset = 14,
};

constexpr int ethernet = 1;  // the link type

constexpr std::uint32_t directionMask = 3;
constexpr std::uint32_t outbound = 2;

constexpr std::size_t blockOverhead = 12;        // type, and the length twice
constexpr std::uint32_t longestBlock = 1 << 24;  // far beyond any frame
constexpr std::uint32_t byteOrderMagic = 0x1a2b3c4d;
constexpr std::uint64_t billion = 1'000'000'000;

[[noreturn]] void fail(char const* problem) {
  throw CaptureDamage(problem);
}

std::uint32_t littleEndian32(std::uint8_t const* at) {
  return static_cast<std::uint32_t>(at[3]) << 24 | static_cast<std::uint32_t>(at[2]) << 16 |
         static_cast<std::uint32_t>(at[1]) << 8 | at[0];
}

std::uint32_t bigEndian32(std::uint8_t const* at) {
  return static_cast<std::uint32_t>(at[0]) << 24 | static_cast<std::uint32_t>(at[1]) << 16 |
         static_cast<std::uint32_t>(at[2]) << 8 | at[3];
}

/// @param resolution a negative power of 10, or with the highest bit of 2.
std::uint64_t unitsPerSecond(std::uint8_t resolution) {
  unsigned const power = resolution & 0x7f;
  bool const binary = (resolution & 0x80) != 0;
  if (power > (binary ? 63 : 19)) fail("impossible resolution of time");
  if (binary) return std::uint64_t{1} << power;
  std::uint64_t units = 1;
  for (unsigned i = 0; i < power; ++i) units *= 10;
  return units;
}

/// @param units less than a second of them.
Horix::Time nanoseconds(std::uint64_t units, std::uint64_t unitsPerSecond) {
  while (unitsPerSecond > billion * 8) {  // so that the product below fits
    unitsPerSecond /= 2;
    units /= 2;
  }
  return Horix::Time(static_cast<std::int64_t>(units * billion / unitsPerSecond));
}

}  // namespace

class PcapngReader::Fields {
 public:
  Fields(Wirex::Bytes bytes, bool bigEndian) : rest_(bytes), bigEndian_(bigEndian) {}

  std::size_t size() const { return rest_.size(); }
  Wirex::Bytes take(std::size_t size) {
    if (size > rest_.size()) fail("block too short for what it holds");
    Wirex::Bytes const taken = rest_.first(size);
    rest_ = rest_.subspan(size);
    return taken;
  }
  std::uint16_t u16() {
    auto const bytes = take(2);
    return static_cast<std::uint16_t>(bigEndian_ ? bytes[0] << 8 | bytes[1]
                                                 : bytes[1] << 8 | bytes[0]);
  }
  std::uint32_t u32() {
    auto const bytes = take(4);
    return bigEndian_ ? bigEndian32(bytes.data()) : littleEndian32(bytes.data());
  }
  /// The higher half comes first, in both byte orders.
  std::uint64_t time() {
    std::uint64_t const high = u32();
    return high << 32 | u32();
  }
  std::int64_t s64() {
    std::uint64_t const first = u32();
    std::uint64_t const second = u32();
    return static_cast<std::int64_t>(bigEndian_ ? first << 32 | second : second << 32 | first);
  }
  void skipPadding(std::size_t of) { take(std::min((4 - of % 4) % 4, rest_.size())); }

  /// Calls `option` with the code and the value of each.
  template <class Action>
  void options(Action option) {
    while (rest_.size() >= 4) {
      std::uint16_t const code = u16();
      std::size_t const length = u16();
      if (code == endOfOptions) return;
      option(code, Fields(take(length), bigEndian_));
      skipPadding(length);
    }
  }

 private:
  Wirex::Bytes rest_;
  bool bigEndian_;
};

std::optional<RawPacket> PcapngReader::next() {
  while (auto const type = nextBlock()) {
    Fields const fields(body_, bigEndian_);
    switch (*type) {
      case sectionHeader:
        beginSection();
        break;
      case interfaceDescription:
        addInterface(fields);
        break;
      case enhancedPacketBlock:
        return enhancedPacket(fields);
      case obsoletePacket:
        return packetBlock(fields);
      case simplePacketBlock:
        return simplePacket(fields);
      default:
        break;  // statistics, names and the like
    }
  }
  return std::nullopt;
}

/// Returns false at the end of the file.
bool PcapngReader::read(std::uint8_t* to, std::size_t size) {
  std::size_t const count = std::fread(to, 1, size, file_.get());
  if (count == 0 && std::feof(file_.get())) return false;
  if (count < size) fail("truncated block");
  return true;
}

std::uint32_t PcapngReader::number(std::uint8_t const* at) const {
  return bigEndian_ ? bigEndian32(at) : littleEndian32(at);
}

/// Returns its type and leaves its body; nothing at the end of the file.
std::optional<std::uint32_t> PcapngReader::nextBlock() {
  offset_ = std::ftell(file_.get());
  std::array<std::uint8_t, 8> head{};
  if (!read(head.data(), head.size())) return std::nullopt;
  std::uint32_t const type = number(head.data());
  std::array<std::uint8_t, 4> magic{};
  std::size_t known = 0;  // of the body
  if (type == sectionHeader) {
    if (!read(magic.data(), magic.size())) fail("truncated block");
    bigEndian_ = bigEndian32(magic.data()) == byteOrderMagic;
    if (number(magic.data()) != byteOrderMagic) fail("unknown byte order");
    known = magic.size();
  }
  std::uint32_t const length = number(head.data() + 4);
  if (length % 4 != 0 || length < blockOverhead + known || length > longestBlock)
    fail("block of impossible length");
  body_.resize(length - blockOverhead);
  std::copy_n(magic.begin(), known, body_.begin());
  if (body_.size() > known && !read(body_.data() + known, body_.size() - known))
    fail("truncated block");
  std::array<std::uint8_t, 4> again{};
  if (!read(again.data(), again.size())) fail("truncated block");
  if (number(again.data()) != length) fail("block that ends with another length than it begins");
  return type;
}

void PcapngReader::beginSection() {
  firstOfSection_ = interfaces_.size();
}

void PcapngReader::addInterface(Fields fields) {
  CapturedInterface interface;
  Clock clock;
  Wirex::MacAddress macAddress{};
  interface.number = interfaces_.size() - firstOfSection_;
  interface.linkType = fields.u16();
  fields.u16();
  clock.snapLength = fields.u32();
  fields.options([&](std::uint16_t code, Fields value) {
    if (code == interfaceName) {
      auto const text = value.take(value.size());
      interface.name.assign(text.begin(), std::find(text.begin(), text.end(), 0));
    } else if (code == interfaceMacAddress) {
      std::ranges::copy(value.take(macAddress.size()), macAddress.begin());
    } else if (code == timeResolution) {
      clock.unitsPerSecond = unitsPerSecond(value.take(1)[0]);
    } else if (code == timeOffset) {
      clock.offset = value.s64();
    }
  });
  interfaces_.push_back(std::move(interface));
  clocks_.push_back(clock);
  macAddresses_.push_back(macAddress);
}

PcapngReader::Clock const& PcapngReader::clock(std::size_t interface) const {
  if (interface >= clocks_.size()) fail("packet of an interface that is not described");
  return clocks_[interface];
}

RawPacket PcapngReader::enhancedPacket(Fields fields) const {
  std::size_t const interface = firstOfSection_ + fields.u32();
  std::uint64_t const time = fields.time();
  std::size_t const captured = fields.u32();
  fields.u32();
  return packet(interface, time, fields, captured);
}

RawPacket PcapngReader::packetBlock(Fields fields) const {
  std::size_t const interface = firstOfSection_ + fields.u16();
  fields.u16();
  std::uint64_t const time = fields.time();
  std::size_t const captured = fields.u32();
  fields.u32();
  return packet(interface, time, fields, captured);
}

/// It has no time, and no more of the frame than the first interface captures.
RawPacket PcapngReader::simplePacket(Fields fields) const {
  std::size_t captured = fields.u32();
  if (std::uint32_t const most = clock(firstOfSection_).snapLength; most != 0)
    captured = std::min<std::size_t>(captured, most);
  return packet(firstOfSection_, 0, fields, std::min(captured, fields.size()));
}

RawPacket PcapngReader::packet(std::size_t interface, std::uint64_t time, Fields& fields,
                               std::size_t captured) const {
  Clock const& clock = this->clock(interface);
  RawPacket packet;
  packet.interface = interface;
  std::uint64_t const seconds = time / clock.unitsPerSecond;
  constexpr auto most = std::uint64_t{1} << 62;
  if (seconds < most && clock.offset > -std::int64_t{most} && clock.offset < std::int64_t{most})
    packet.time =
        captureTime(std::chrono::seconds(static_cast<std::int64_t>(seconds) + clock.offset),
                    nanoseconds(time % clock.unitsPerSecond, clock.unitsPerSecond));
  packet.bytes = fields.take(captured);
  packet.outgoing = isFromInterface(packet);
  fields.skipPadding(captured);
  fields.options([&](std::uint16_t code, Fields value) {
    if (code == packetFlags) packet.outgoing |= (value.u32() & directionMask) == outbound;
  });
  return packet;
}

bool PcapngReader::isFromInterface(RawPacket const& packet) const {
  Wirex::MacAddress const& address = macAddresses_[packet.interface];
  bool const isEthernet = interfaces_[packet.interface].linkType == ethernet;
  return isEthernet && address != Wirex::MacAddress{} &&
         packet.bytes.size() >= Wirex::ethernetHeaderSize &&
         std::ranges::equal(packet.bytes.subspan(address.size(), address.size()), address);
}

}  // namespace Agent
