#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "framework/kel/Ptr.h"

namespace Kel {

/// What a table is apart from its block: the block's address, or null.
template <class Block, class Key, class Mapped>
class TableHead {
 public:
  static constexpr bool mayHoldEntry = false;

  TableHead() noexcept = default;
  TableHead(TableHead&& other) noexcept : block_(std::exchange(other.block_, nullptr)) {}
  TableHead& operator=(TableHead&& other) noexcept {
    std::swap(block_, other.block_);
    return *this;
  }

  Block* block() const noexcept { return block_; }
  void blockIs(Block* block) noexcept { block_ = block; }

 private:
  Block* block_ = nullptr;
};

/// Where a table maps to handles, its head holds a single entry without a block: of millions of
/// tables most have one. The key may leave room behind it for what stands after the table.
template <class Block, class Key, class T>
requires(sizeof(Key) <= sizeof(void*) && std::is_nothrow_default_constructible_v<Key>)  //
    class TableHead<Block, Key, Ptr<T>> {
 public:
  static constexpr bool mayHoldEntry = true;

  TableHead() noexcept = default;
  TableHead(TableHead&& other) noexcept { swap(other); }
  TableHead& operator=(TableHead&& other) noexcept {
    swap(other);
    return *this;
  }
  ~TableHead() {
    if (holdsEntry()) takeEntry();
  }

  bool holdsEntry() const noexcept { return (word() & blockTag) == 0; }
  Key const& key() const noexcept { return key_; }
  Ptr<T>& mapped() noexcept { return *std::launder(reinterpret_cast<Ptr<T>*>(content_)); }

  /// Takes an entry where there is neither one nor a block.
  Ptr<T>& entryIs(Key key, Ptr<T> mapped) noexcept {
    key_ = std::move(key);
    return *std::construct_at(reinterpret_cast<Ptr<T>*>(content_), std::move(mapped));
  }
  std::pair<Key, Ptr<T>> takeEntry() noexcept {
    std::pair<Key, Ptr<T>> entry(std::exchange(key_, Key()), std::move(mapped()));
    std::destroy_at(&mapped());
    blockIs(nullptr);
    return entry;
  }

  /// Null where the head holds an entry.
  Block* block() const noexcept {
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the tag shares the word with the pointer
    return holdsEntry() ? nullptr : reinterpret_cast<Block*>(word() - blockTag);
  }
  void blockIs(Block* block) noexcept {
    wordIs(reinterpret_cast<std::uintptr_t>(block) + blockTag);
  }

 private:
  static_assert(sizeof(Ptr<T>) == sizeof(std::uintptr_t));

  // An even word is a handle; an odd one is a block's address, or null, with the tag.
  static constexpr std::uintptr_t blockTag = 1;

  std::uintptr_t word() const noexcept {
    std::uintptr_t word;
    std::memcpy(&word, content_, sizeof word);
    return word;
  }
  void wordIs(std::uintptr_t word) noexcept { std::memcpy(content_, &word, sizeof word); }

  /// A handle is the same handle wherever its bytes are.
  void swap(TableHead& other) noexcept {
    std::uintptr_t const word = this->word();
    wordIs(other.word());
    other.wordIs(word);
    std::swap(key_, other.key_);
  }

  alignas(Ptr<T>) std::byte content_[sizeof(std::uintptr_t)] = {std::byte{blockTag}};
  Key key_{};
};

}  // namespace Kel
