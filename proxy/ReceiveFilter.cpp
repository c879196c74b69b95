#include "proxy/ReceiveFilter.h"

#include <cstddef>
#include <cstdint>

namespace Bridging::IgmpSnooping::Proxy {

namespace {

// Operations of classic BPF (bpf(4)); the accumulator is what is loaded, masked and compared.
constexpr std::uint16_t loadWord = 0x20;
constexpr std::uint16_t loadHalf = 0x28;
constexpr std::uint16_t loadByte = 0x30;
constexpr std::uint16_t mask = 0x54;
constexpr std::uint16_t jumpIfEqual = 0x15;
constexpr std::uint16_t accept = 0x06;  // as many bytes of the frame as k says
constexpr std::uint32_t wholeFrame = 0xffff;

constexpr std::uint32_t packetTypeByte = 0xfffff004;  // Linux's SKF_AD_OFF + SKF_AD_PKTTYPE
constexpr std::uint32_t outgoing = 4;                 // PACKET_OUTGOING

constexpr std::uint32_t etherType = 12;
constexpr std::uint32_t tagSize = 4;
constexpr std::uint32_t protocol = 14 + 9;
constexpr std::uint32_t destination = 14 + 16;

constexpr std::uint32_t typeIpv4 = 0x0800;
constexpr std::uint32_t type0801 = 0x0801;
constexpr std::uint32_t typeVlan = 0x8100;
constexpr std::uint32_t igmp = 2;
constexpr std::uint32_t pim = 0x67;
constexpr std::uint32_t prefix24 = 0xffffff00;
constexpr std::uint32_t localGroups = 0xe0000000;  // 224.0.0.0
// Of an IPv4 multicast MAC address (RFC 1112 section 6.4).
constexpr std::array<std::uint32_t, 3> multicastPrefix{0x01, 0x00, 0x5e};

/// Where jumps go. None goes back, so 0 stands for the instruction behind the jump.
enum At : std::uint8_t { next = 0, untagged = 2, tag = 11, multicast = 21, drop = 28 };

class Program {
 public:
  using Instructions = std::array<Interface::BpfInstruction, 29>;

  constexpr void add(std::uint16_t operation, std::uint32_t k) {
    instructions_[size_++] = {operation, 0, 0, k};
  }
  constexpr void addComparison(std::uint32_t k, At ifEqual, At otherwise) {
    instructions_[size_] = {jumpIfEqual, skipped(ifEqual), skipped(otherwise), k};
    ++size_;
  }
  constexpr Instructions const& instructions() const { return instructions_; }

 private:
  constexpr std::uint8_t skipped(At at) const {
    return at == next ? std::uint8_t{0} : static_cast<std::uint8_t>(at - size_ - 1);
  }

  Instructions instructions_{};
  std::size_t size_ = 0;
};

/// Picks what is for routers and queriers.
/// @param shift how far the headers are behind where they are without a tag
constexpr void addTypes(Program& program, std::uint32_t shift, At otherTypes) {
  program.add(loadHalf, etherType + shift);
  program.addComparison(type0801, multicast, next);
  program.addComparison(typeIpv4, next, otherTypes);
  program.add(loadByte, protocol + shift);
  program.addComparison(igmp, multicast, next);
  program.addComparison(pim, multicast, next);
  program.add(loadWord, destination + shift);
  program.add(mask, prefix24);
  program.addComparison(localGroups, multicast, drop);
}

constexpr Program::Instructions assemble() {
  Program program;
  program.add(loadByte, packetTypeByte);
  program.addComparison(outgoing, drop, untagged);
  addTypes(program, 0, tag);
  program.addComparison(typeVlan, next, drop);
  addTypes(program, tagSize, drop);
  for (std::uint32_t byte = 0; byte < multicastPrefix.size(); ++byte) {
    program.add(loadByte, byte);
    program.addComparison(multicastPrefix[byte], next, drop);
  }
  program.add(accept, wholeFrame);
  program.add(accept, 0);
  return program.instructions();
}

}  // namespace

constexpr Program::Instructions receiveFilter = assemble();

}  // namespace Bridging::IgmpSnooping::Proxy
