#pragma once

#include <cstddef>
#include <cstdint>

#include "framework/kel/Ptr.h"
#include "platform/wirex/Ethernet.h"

namespace Wirex {

/// A packet: its bytes, and in front of them room for the headers that lower layers add, in one
/// allocation, so that sending copies nothing. Who makes a packet writes it and gives it away to
/// be sent; one that was received is const, because all who read it share it.
class KEL_EXPORT Pkt final : public Kel::PtrInterface {
 public:
  using Ptr = Kel::Ptr<Pkt>;
  using PtrConst = Kel::Ptr<Pkt const>;

  /// Room for an Ethernet header, an 802.1Q tag and an IPv4 header with all its options.
  static constexpr std::size_t headroom = ethernetHeaderSize + vlanTagSize + 60;

  /// A packet of `size` bytes, whose content is undetermined.
  /// Throws Kel::RangeException beyond the packet manager's buffer size.
  static Ptr PktIs(std::size_t size);
  /// A packet with a copy of these bytes.
  static Ptr PktIs(Bytes content);

  std::size_t size() const noexcept { return size_; }
  /// The packet, from its first header on.
  Bytes bytes() const noexcept { return {begin(), size_}; }
  /// The same, to be written.
  WritableBytes bytes() noexcept { return {begin(), size_}; }

  /// How many bytes prepend() can still add.
  std::size_t room() const noexcept { return begin_; }

  /// Makes the packet longer at the front, and returns the new bytes, whose content is
  /// undetermined. There must be room.
  WritableBytes prepend(std::size_t count) noexcept {
    begin_ -= static_cast<std::uint32_t>(count);
    size_ += static_cast<std::uint32_t>(count);
    return {begin(), count};
  }

  static void operator delete(void* packet) noexcept { ::operator delete(packet); }

 private:
  explicit Pkt(std::size_t size) noexcept : size_(static_cast<std::uint32_t>(size)) {}

  static void* operator new(std::size_t self, std::size_t capacity) {
    return ::operator new(self + capacity);
  }
  static void operator delete(void* packet, std::size_t /*capacity*/) noexcept {
    ::operator delete(packet);
  }

  // The buffer follows the object.
  std::uint8_t* begin() noexcept { return reinterpret_cast<std::uint8_t*>(this + 1) + begin_; }
  std::uint8_t const* begin() const noexcept {
    return reinterpret_cast<std::uint8_t const*>(this + 1) + begin_;
  }

  std::uint32_t begin_ = headroom;
  std::uint32_t size_;
};

}  // namespace Wirex
