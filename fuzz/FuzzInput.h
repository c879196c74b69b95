#pragma once

#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <span>
#include <string_view>

/// What the fuzzers share: taking decisions from the fuzzer's bytes, and ending where something
/// that must hold does not.
namespace Fuzz {

/// Ends the program with a message, which makes the input a finding.
inline void require(bool holds, std::string_view what) {
  if (holds) return;
  std::cerr << "does not hold: " << what << '\n';
  std::abort();
}

/// The bytes of one input, used up from the front. Zeros follow the last one.
class FuzzInput {
 public:
  FuzzInput(std::uint8_t const* bytes, std::size_t size) : left_(bytes, size) {}

  bool empty() const { return left_.empty(); }

  std::uint8_t byte() {
    if (left_.empty()) return 0;
    std::uint8_t const first = left_.front();
    left_ = left_.subspan(1);
    return first;
  }

  /// A number below `end`, which is at most 256.
  unsigned below(unsigned end) { return byte() % end; }

  /// The next bytes, at most `size`.
  std::span<std::uint8_t const> bytes(std::size_t size) {
    auto const taken = left_.first(size < left_.size() ? size : left_.size());
    left_ = left_.subspan(taken.size());
    return taken;
  }

  std::string_view text(std::size_t size) {
    auto const taken = bytes(size);
    return {reinterpret_cast<char const*>(taken.data()), taken.size()};
  }

 private:
  std::span<std::uint8_t const> left_;
};

}  // namespace Fuzz
