#pragma once

#include <cstdint>
#include <vector>

namespace Interface {

/// An instruction of a classic BPF program (bpf(4)), laid out as the kernel takes it.
struct BpfInstruction {
  std::uint16_t code = 0;        ///< what to do
  std::uint8_t jumpIfTrue = 0;   ///< how many instructions to skip
  std::uint8_t jumpIfFalse = 0;  ///< how many instructions to skip
  std::uint32_t k = 0;           ///< its operand

  friend bool operator==(BpfInstruction const&, BpfInstruction const&) noexcept = default;
};

/// A program that a frame has to pass before it is received; empty to receive everything.
using SocketFilter = std::vector<BpfInstruction>;

}  // namespace Interface
