#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

#include "framework/kel/Hash.h"
#include "framework/kel/TableHead.h"

namespace Kel {

/// What a table maps to that only holds keys.
struct Nothing {};

/// A copy of a collection's keys, for loops that change the collection they walk. The first
/// sixteen need no allocation.
template <class Key>
class KeySnapshot {
 public:
  template <class Source>
  explicit KeySnapshot(Source const& source) : size_(source.size()) {
    if (size_ > inlineCapacity)
      first_ = static_cast<Key*>(::operator new (std::size_t{size_} * sizeof(Key)));
    for (std::uint32_t i = 0; i < size_; ++i) std::construct_at(first_ + i, source.keyAt(i));
  }
  KeySnapshot(KeySnapshot const&) = delete;
  KeySnapshot& operator=(KeySnapshot const&) = delete;
  ~KeySnapshot() {
    std::destroy_n(first_, size_);
    if (size_ > inlineCapacity) ::operator delete(first_);
  }

  std::uint32_t size() const noexcept { return size_; }
  Key const* begin() const noexcept { return first_; }
  Key const* end() const noexcept { return first_ + size_; }
  /// The key of a place below `size()`.
  Key const& operator[](std::uint32_t place) const noexcept { return first_[place]; }

 private:
  static constexpr std::uint32_t inlineCapacity = 16;

  std::uint32_t size_;
  alignas(Key) std::byte inline_[inlineCapacity * sizeof(Key)];
  Key* first_ = reinterpret_cast<Key*>(inline_);
};

/// The hash map behind every keyed collection. There are millions of them, most with one or two
/// entries, so an empty one is a null pointer and a small one a single short block, or none where
/// the head of the table holds the only entry (`TableHead`).
///
/// 1. A block holds the entries' keys, then what they map to, both dense and in the same order:
///    the order of insertion, except that an erased entry's place is taken by the last one.
/// 2. Up to `scanned` entries are found by scanning the keys. A larger block ends in an index of
///    entry positions, open addressed with linear probing, at most three quarters full.
/// 3. Positions and pointers into the table last until it next changes.
template <class Key, class Mapped>
class Table {
  static_assert(std::is_nothrow_move_constructible_v<Key>);
  static_assert(std::is_nothrow_move_constructible_v<Mapped>);

 public:
  static constexpr std::uint32_t absent = UINT32_MAX;

  struct Entry {
    Key const& key;
    Mapped& mapped;
  };
  struct ConstEntry {
    Key const& key;
    Mapped const& mapped;
  };
  struct End {};

  /// Stays within the table whatever happens to it between two steps, but visits every entry
  /// once only while it does not change.
  template <class TableType, class EntryType>
  class Cursor {
   public:
    explicit Cursor(TableType& table) noexcept : table_(table) {}
    EntryType operator*() const noexcept {
      return {table_.keyAt(position_), table_.mappedAt(position_)};
    }
    Cursor& operator++() noexcept {
      ++position_;
      return *this;
    }
    friend bool operator==(Cursor const& cursor, End) noexcept {
      return cursor.position_ >= cursor.table_.size();
    }

   private:
    TableType& table_;
    std::uint32_t position_ = 0;
  };

  Table() noexcept = default;
  Table(Table&& other) noexcept = default;
  Table& operator=(Table&& other) noexcept = default;
  ~Table() {
    if (Block* const block = head_.block()) release(block);
  }

  std::uint32_t size() const noexcept {
    if (headHoldsEntry()) return 1;
    Block const* const block = head_.block();
    return block ? block->size : 0;
  }
  bool empty() const noexcept { return size() == 0; }

  Key const& keyAt(std::uint32_t position) const noexcept {
    if constexpr (Head::mayHoldEntry)
      if (head_.holdsEntry()) return head_.key();
    return keys(head_.block())[position];
  }
  Mapped& mappedAt(std::uint32_t position) noexcept {
    if constexpr (Head::mayHoldEntry)
      if (head_.holdsEntry()) return head_.mapped();
    return *mapped(head_.block(), position);
  }
  Mapped const& mappedAt(std::uint32_t position) const noexcept {
    return const_cast<Table*>(this)->mappedAt(position);
  }

  auto begin() noexcept { return Cursor<Table, Entry>(*this); }
  auto begin() const noexcept { return Cursor<Table const, ConstEntry>(*this); }
  End end() const noexcept { return {}; }

  /// The entry's position, or `absent`.
  std::uint32_t position(Key const& key) const noexcept {
    if constexpr (Head::mayHoldEntry)
      if (head_.holdsEntry()) return head_.key() == key ? 0 : absent;
    Block* const block = head_.block();
    if (!block) return absent;
    if (block->capacity > scanned) return index(block)[probe(block, key)];
    Key const* const first = keys(block);
    for (std::uint32_t i = 0; i < block->size; ++i)
      if (first[i] == key) return i;
    return absent;
  }

  bool contains(Key const& key) const noexcept { return position(key) != absent; }

  Mapped* find(Key const& key) noexcept {
    std::uint32_t const at = position(key);
    return at == absent ? nullptr : &mappedAt(at);
  }
  Mapped const* find(Key const& key) const noexcept { return const_cast<Table*>(this)->find(key); }

  /// Adds an entry for a key that is absent, and returns what it maps to.
  Mapped& add(Key key, Mapped value) {
    if constexpr (Head::mayHoldEntry) {
      if (head_.holdsEntry())
        moveEntryToBlock();
      else if (!head_.block())
        return head_.entryIs(std::move(key), std::move(value));
    }
    Block const* const block = head_.block();
    if (!block || block->size == block->capacity) grow();
    return append(std::move(key), std::move(value));
  }

  /// Takes over the keys of another table, in its order, and maps each of them to the same value.
  template <class OtherMapped>
  void refill(Table<Key, OtherMapped> const& other, Mapped const& value) {
    clear();
    if (other.empty()) return;
    std::uint32_t const count = other.size();
    Block const* const block = head_.block();
    if (!block || block->capacity < count) moveTo(capacityFor(count));
    for (std::uint32_t i = 0; i < count; ++i) append(other.keyAt(i), value);
  }

  /// Removes all entries; the block stays, as at takeAt().
  void clear() noexcept {
    if (empty()) return;
    if constexpr (Head::mayHoldEntry) {
      if (head_.holdsEntry()) {
        head_.takeEntry();
        return;
      }
    }
    Block* const block = head_.block();
    if constexpr (mapsToSomething) std::destroy_n(mapped(block, 0), block->size);
    std::destroy_n(keys(block), block->size);
    block->size = 0;
    if (block->capacity > scanned) std::fill_n(index(block), indexSize(block->capacity), absent);
  }

  /// Removes the entry at a position and returns what it mapped to. The block stays for the
  /// entries to come, unless it is large and nearly empty.
  Mapped takeAt(std::uint32_t at) {
    if constexpr (Head::mayHoldEntry)
      if (head_.holdsEntry()) return head_.takeEntry().second;
    Block* const block = head_.block();
    std::uint32_t const last = block->size - 1;
    if (block->capacity > scanned) unindex(block, at, last);
    Mapped taken = std::move(*mapped(block, at));
    if (at != last) {
      *mapped(block, at) = std::move(*mapped(block, last));
      keys(block)[at] = std::move(keys(block)[last]);
    }
    if constexpr (mapsToSomething) std::destroy_at(mapped(block, last));
    std::destroy_at(keys(block) + last);
    block->size = last;
    if (block->capacity > shrinkAbove && last < block->capacity / 8) moveTo(block->capacity / 4);
    return taken;
  }

 private:
  static constexpr std::uint32_t scanned = 8;
  static constexpr std::uint32_t shrinkAbove = 256;
  static constexpr bool mapsToSomething = !std::is_same_v<Mapped, Nothing>;
  // NOLINTNEXTLINE(bugprone-sizeof-expression): what is mapped to may be a pointer
  static constexpr std::size_t mappedSize = mapsToSomething ? sizeof(Mapped) : 0;

  struct Block {
    std::uint32_t size;
    std::uint32_t capacity;
  };
  using Head = TableHead<Block, Key, Mapped>;

  bool headHoldsEntry() const noexcept {
    if constexpr (Head::mayHoldEntry)
      return head_.holdsEntry();
    else
      return false;
  }

  static constexpr std::size_t aligned(std::size_t offset, std::size_t alignment) noexcept {
    return (offset + alignment - 1) / alignment * alignment;
  }
  static constexpr std::size_t keysOffset() noexcept {
    return aligned(sizeof(Block), alignof(Key));
  }
  static constexpr std::size_t mappedOffset(std::uint32_t capacity) noexcept {
    return aligned(keysOffset() + capacity * sizeof(Key), alignof(Mapped));
  }
  static constexpr std::size_t indexOffset(std::uint32_t capacity) noexcept {
    return aligned(mappedOffset(capacity) + capacity * mappedSize, alignof(std::uint32_t));
  }
  /// Capacities above `scanned` are 2^n and 1.5 * 2^n, which fill an index of 2^(n+1) to one half
  /// and to three quarters.
  static constexpr std::uint32_t indexSize(std::uint32_t capacity) noexcept {
    return capacity > scanned ? std::bit_floor(capacity) * 2 : 0;
  }
  static constexpr std::size_t blockSize(std::uint32_t capacity) noexcept {
    return indexOffset(capacity) + indexSize(capacity) * sizeof(std::uint32_t);
  }
  /// As many entries as fit into the smallest block that an allocator hands out.
  static constexpr std::uint32_t firstCapacity() noexcept {
    constexpr std::size_t smallestBlock = 24;
    std::uint32_t capacity = 1;
    while (capacity < scanned && blockSize(capacity + 1) <= smallestBlock) ++capacity;
    return capacity;
  }
  static constexpr std::uint32_t nextCapacity(std::uint32_t capacity) noexcept {
    if (capacity < scanned) return std::min(capacity * 2, scanned);
    return std::has_single_bit(capacity) ? capacity / 2 * 3 : capacity / 3 * 4;
  }
  static constexpr std::uint32_t capacityFor(std::uint32_t count) noexcept {
    std::uint32_t capacity = firstCapacity();
    while (capacity < count) capacity = nextCapacity(capacity);
    return capacity;
  }

  template <class T>
  static T* at(Block* block, std::size_t offset) noexcept {
    return std::launder(reinterpret_cast<T*>(reinterpret_cast<std::byte*>(block) + offset));
  }
  static Key* keys(Block* block) noexcept { return at<Key>(block, keysOffset()); }
  static Mapped* mapped(Block* block, std::uint32_t position) noexcept {
    if constexpr (mapsToSomething)
      return at<Mapped>(block, mappedOffset(block->capacity)) + position;
    else
      return &nothing_;
  }
  static std::uint32_t* index(Block* block) noexcept {
    return at<std::uint32_t>(block, indexOffset(block->capacity));
  }

  static std::uint32_t home(Block const* block, Key const& key) noexcept {
    return spreadHash(hash(key)) & (indexSize(block->capacity) - 1);
  }

  /// The index slot that holds the key's position, or the empty one where it belongs.
  static std::uint32_t probe(Block* block, Key const& key) noexcept {
    std::uint32_t const mask = indexSize(block->capacity) - 1;
    std::uint32_t const* const slots = index(block);
    Key const* const first = keys(block);
    std::uint32_t slot = home(block, key);
    while (slots[slot] != absent && !(first[slots[slot]] == key)) slot = (slot + 1) & mask;
    return slot;
  }

  /// The index slot where a key that is absent belongs.
  static std::uint32_t emptySlot(Block* block, Key const& key) noexcept {
    std::uint32_t const mask = indexSize(block->capacity) - 1;
    std::uint32_t const* const slots = index(block);
    std::uint32_t slot = home(block, key);
    while (slots[slot] != absent) slot = (slot + 1) & mask;
    return slot;
  }

  /// Takes the entry at a position out of the index, and lets the last entry have that position.
  static void unindex(Block* block, std::uint32_t at, std::uint32_t last) noexcept {
    std::uint32_t const mask = indexSize(block->capacity) - 1;
    std::uint32_t* const slots = index(block);
    Key const* const first = keys(block);
    std::uint32_t hole = probe(block, first[at]);
    if (at != last) slots[probe(block, first[last])] = at;
    // Probing stops at an empty slot, so the entries behind the hole move up as far as they may.
    for (std::uint32_t next = (hole + 1) & mask; slots[next] != absent; next = (next + 1) & mask) {
      // The slot of the last entry already says `at`, whose key is the one that leaves.
      std::uint32_t const position = slots[next] == at ? last : slots[next];
      std::uint32_t const distance = (next - home(block, first[position])) & mask;
      if (distance < ((next - hole) & mask)) continue;
      slots[hole] = slots[next];
      hole = next;
    }
    slots[hole] = absent;
  }

  /// Adds an entry for which there is room.
  Mapped& append(Key key, Mapped value) {
    Block* const block = head_.block();
    std::uint32_t const at = block->size++;
    if (block->capacity > scanned) index(block)[emptySlot(block, key)] = at;
    std::construct_at(keys(block) + at, std::move(key));
    Mapped* const place = mapped(block, at);
    if constexpr (mapsToSomething) std::construct_at(place, std::move(value));
    return *place;
  }

  void grow() {
    Block const* const block = head_.block();
    moveTo(block ? nextCapacity(block->capacity) : firstCapacity());
  }

  static Block* newBlock(std::uint32_t capacity) {
    auto* const block = new (::operator new(blockSize(capacity))) Block{0, capacity};
    if (capacity > scanned) std::fill_n(index(block), indexSize(capacity), absent);
    return block;
  }

  /// Makes room for a second entry.
  void moveEntryToBlock() {
    Block* const block = newBlock(capacityFor(2));
    auto [key, value] = head_.takeEntry();
    head_.blockIs(block);
    append(std::move(key), std::move(value));
  }

  void moveTo(std::uint32_t capacity) {
    Block* const former = head_.block();
    head_.blockIs(newBlock(capacity));
    if (!former) return;
    for (std::uint32_t i = 0; i < former->size; ++i)
      append(std::move(keys(former)[i]), std::move(*mapped(former, i)));
    release(former);
  }

  static void release(Block* block) noexcept {
    std::destroy_n(keys(block), block->size);
    if constexpr (mapsToSomething) std::destroy_n(mapped(block, 0), block->size);
    ::operator delete(block);
  }

  static inline Nothing nothing_;  // what every entry of a set maps to

  [[no_unique_address]] Head head_;
};

}  // namespace Kel
