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

/// The instructions by name, in their order.
enum At : std::uint8_t {
  packetType,
  isOutgoing,
  type,
  is0801,
  isIpv4,
  ipProtocol,
  isIgmp,
  isPim,
  ipDestination,
  ipPrefix,
  isLocal,
  isTagged,
  taggedType,
  isTagged0801,
  isTaggedIpv4,
  taggedProtocol,
  isTaggedIgmp,
  isTaggedPim,
  taggedDestination,
  taggedPrefix,
  isTaggedLocal,
  mac0,
  isMac01,
  mac1,
  isMac00,
  mac2,
  isMac5e,
  take,
  drop,
  end,
};

struct Step {
  At at;
  std::uint16_t operation;
  std::uint32_t k;
  At ifTrue = end;  // where jumps go
  At ifFalse = end;
};

constexpr std::array<Step, end> steps{{
    {packetType, loadByte, packetTypeByte},
    {isOutgoing, jumpIfEqual, outgoing, drop, type},

    {type, loadHalf, etherType},
    {is0801, jumpIfEqual, type0801, mac0, isIpv4},
    {isIpv4, jumpIfEqual, typeIpv4, ipProtocol, isTagged},
    {ipProtocol, loadByte, protocol},
    {isIgmp, jumpIfEqual, igmp, mac0, isPim},
    {isPim, jumpIfEqual, pim, mac0, ipDestination},
    {ipDestination, loadWord, destination},
    {ipPrefix, mask, prefix24},
    {isLocal, jumpIfEqual, localGroups, mac0, drop},

    {isTagged, jumpIfEqual, typeVlan, taggedType, drop},
    {taggedType, loadHalf, etherType + tagSize},
    {isTagged0801, jumpIfEqual, type0801, mac0, isTaggedIpv4},
    {isTaggedIpv4, jumpIfEqual, typeIpv4, taggedProtocol, drop},
    {taggedProtocol, loadByte, protocol + tagSize},
    {isTaggedIgmp, jumpIfEqual, igmp, mac0, isTaggedPim},
    {isTaggedPim, jumpIfEqual, pim, mac0, taggedDestination},
    {taggedDestination, loadWord, destination + tagSize},
    {taggedPrefix, mask, prefix24},
    {isTaggedLocal, jumpIfEqual, localGroups, mac0, drop},

    // An IPv4 multicast MAC address begins with 01:00:5e (RFC 1112 section 6.4).
    {mac0, loadByte, 0},
    {isMac01, jumpIfEqual, 0x01, mac1, drop},
    {mac1, loadByte, 1},
    {isMac00, jumpIfEqual, 0x00, mac2, drop},
    {mac2, loadByte, 2},
    {isMac5e, jumpIfEqual, 0x5e, take, drop},

    {take, accept, wholeFrame},
    {drop, accept, 0},
}};

constexpr bool everyStepIsAtItsPlace() {
  for (std::size_t i = 0; i < steps.size(); ++i)
    if (steps[i].at != i) return false;
  return true;
}
static_assert(everyStepIsAtItsPlace());

/// Jumps become what BPF wants: how many instructions to skip.
constexpr std::array<Interface::BpfInstruction, steps.size()> assemble() {
  std::array<Interface::BpfInstruction, steps.size()> program{};
  for (std::size_t i = 0; i < steps.size(); ++i) {
    Step const& step = steps[i];
    program[i].code = step.operation;
    program[i].k = step.k;
    if (step.operation != jumpIfEqual) continue;
    program[i].jumpIfTrue = static_cast<std::uint8_t>(step.ifTrue - i - 1);
    program[i].jumpIfFalse = static_cast<std::uint8_t>(step.ifFalse - i - 1);
  }
  return program;
}

}  // namespace

constexpr std::array<Interface::BpfInstruction, 29> receiveFilter = assemble();

}  // namespace Bridging::IgmpSnooping::Proxy
