#include "platform/interface/FilterInterpreter.h"

#include <pcap.h>

namespace Interface {

namespace {

static_assert(sizeof(BpfInstruction) == sizeof(bpf_insn));

constexpr std::uint16_t loadPacketType = BPF_LD | BPF_B | BPF_ABS;
constexpr std::uint16_t loadImmediate = BPF_LD | BPF_IMM;
constexpr std::uint32_t packetTypeOffset = 0xfffff000 + 4;  // SKF_AD_OFF + SKF_AD_PKTTYPE

}  // namespace

// The interpreter does not know the kernel's ancillary bytes: loading one becomes loading its
// value.
FilterInterpreter::FilterInterpreter(SocketFilter const& filter, PacketType type)
    : program_(filter) {
  for (BpfInstruction& instruction : program_)
    if (instruction.code == loadPacketType && instruction.k == packetTypeOffset)
      instruction = {loadImmediate, 0, 0, static_cast<std::uint32_t>(type)};
}

bool FilterInterpreter::accepts(Wirex::Bytes frame) const {
  if (program_.empty()) return true;
  auto const size = static_cast<unsigned>(frame.size());
  auto const* const program = reinterpret_cast<bpf_insn const*>(program_.data());
  return bpf_filter(program, frame.data(), size, size) != 0;
}

}  // namespace Interface
