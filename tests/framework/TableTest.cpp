#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Table.h"
#include "framework/types/PortKey.h"
#include "tests/framework/Toys.h"

namespace {

using Kel::Nothing;
using Kel::Table;
using testing::ElementsAre;

/// A key whose hash says next to nothing, so that most keys contend for the same places.
struct Clashing {
  int number;
  std::uint32_t hash() const noexcept { return static_cast<std::uint32_t>(number % 3); }
  friend bool operator==(Clashing, Clashing) noexcept = default;
};

/// What handles hold.
struct Held : Kel::PtrInterface {
  explicit Held(int value) : number(value) {}
  int const number;
};

template <class Key>
Key keyOf(int number);
template <>
Wirex::IpAddr keyOf(int number) {
  return Toy::address(number);
}
template <>
Wirex::IntfId keyOf(int number) {
  return Toy::intf(number);
}
template <>
Bridging::IgmpSnooping::Proxy::PortKey keyOf(int number) {
  return {Toy::vlan(1 + number % 7), Toy::intf(number)};
}
template <>
Clashing keyOf(int number) {
  return {number};
}

template <class Mapped>
Mapped valueOf(int number);
template <>
std::uint8_t valueOf(int number) {
  return static_cast<std::uint8_t>(number);
}
template <>
std::uint64_t valueOf(int number) {
  return static_cast<std::uint64_t>(number);
}
template <>
std::shared_ptr<int> valueOf(int number) {
  return std::make_shared<int>(number);
}
template <>
Kel::Ptr<Held> valueOf(int number) {
  return Kel::make<Held>(number);
}
template <>
Nothing valueOf(int) {
  return {};
}

bool isValue(std::uint8_t value, int number) {
  return value == valueOf<std::uint8_t>(number);
}
bool isValue(std::uint64_t value, int number) {
  return value == valueOf<std::uint64_t>(number);
}
bool isValue(std::shared_ptr<int> const& value, int number) {
  return value && *value == number;
}
bool isValue(Kel::Ptr<Held> const& value, int number) {
  return value && value->number == number;
}
bool isValue(Nothing, int) {
  return true;
}

template <class KeyType, class MappedType>
struct Types {
  using Key = KeyType;
  using Mapped = MappedType;
};

/// Drives a table side by side with a standard map and a vector of the expected order.
template <class T>
class TableTest : public testing::Test {
 protected:
  using Key = typename T::Key;
  using Mapped = typename T::Mapped;

  void add(int number, int value) {
    table_.add(keyOf<Key>(number), valueOf<Mapped>(value));
    values_[number] = value;
    order_.push_back(number);
  }

  void erase(int number) {
    std::uint32_t const at = table_.position(keyOf<Key>(number));
    auto const expected = std::find(order_.begin(), order_.end(), number);
    ASSERT_EQ(at, expected - order_.begin());
    EXPECT_TRUE(isValue(table_.takeAt(at), values_.at(number)));
    values_.erase(number);
    *expected = order_.back();
    order_.pop_back();
  }

  /// Refills the table from one that has the keys `size` down to 1.
  void refill(int size, int value) {
    Table<Key, Nothing> other;
    values_.clear();
    order_.clear();
    for (int number = size; number > 0; --number) {
      other.add(keyOf<Key>(number), Nothing{});
      values_[number] = value;
      order_.push_back(number);
    }
    table_.refill(other, valueOf<Mapped>(value));
  }

  void addOrErase(int number, int value) {
    if (values_.count(number) == 0)
      add(number, value);
    else
      erase(number);
  }

  void expectFound(int number) {
    Key const key = keyOf<Key>(number);
    auto const expected = values_.find(number);
    EXPECT_EQ(table_.contains(key), expected != values_.end());
    Mapped const* const found = table_.find(key);
    ASSERT_EQ(found != nullptr, expected != values_.end());
    EXPECT_TRUE(!found || isValue(*found, expected->second));
  }

  void expectSameContent() {
    ASSERT_EQ(table_.size(), order_.size());
    ASSERT_EQ(table_.empty(), order_.empty());
    auto expected = order_.begin();
    for (auto const& [key, mapped] : table_) {
      ASSERT_EQ(key, keyOf<Key>(*expected));
      ASSERT_TRUE(isValue(mapped, values_.at(*expected)));
      ++expected;
    }
    ASSERT_EQ(expected, order_.end());
  }

  Table<Key, Mapped> table_;
  std::unordered_map<int, int> values_;
  std::vector<int> order_;
};

using AllTypes =
    testing::Types<Types<Wirex::IpAddr, Nothing>, Types<Wirex::IpAddr, std::uint8_t>,
                   Types<Wirex::IntfId, std::uint64_t>, Types<Wirex::IntfId, std::shared_ptr<int>>,
                   Types<Bridging::IgmpSnooping::Proxy::PortKey, std::uint8_t>,
                   Types<Wirex::IpAddr, Kel::Ptr<Held>>, Types<Wirex::IntfId, Kel::Ptr<Held>>,
                   Types<Clashing, std::shared_ptr<int>>, Types<Clashing, Nothing>>;
TYPED_TEST_SUITE(TableTest, AllTypes);

TYPED_TEST(TableTest, IsEmptyAtFirst) {
  this->expectSameContent();
  this->expectFound(1);
  EXPECT_EQ(this->table_.position(keyOf<typename TypeParam::Key>(1)), this->table_.absent);
}

TYPED_TEST(TableTest, FindsEveryEntryAtEverySize) {
  for (int number = 0; number < 200; ++number) {
    this->add(number, number * 7);
    this->expectSameContent();
    for (int other = 0; other <= number + 1; ++other) this->expectFound(other);
  }
}

TYPED_TEST(TableTest, EntriesStandInTheOrderOfInsertion) {
  for (int const number : {5, 3, 9, 1}) this->add(number, number);
  this->expectSameContent();
  EXPECT_THAT(this->order_, ElementsAre(5, 3, 9, 1));
}

TYPED_TEST(TableTest, LastEntryTakesThePlaceOfAnErasedOne) {
  for (int const number : {5, 3, 9, 1}) this->add(number, number);
  this->erase(3);
  this->expectSameContent();
  EXPECT_THAT(this->order_, ElementsAre(5, 1, 9));
  this->erase(9);
  this->expectSameContent();
  EXPECT_THAT(this->order_, ElementsAre(5, 1));
}

/// The sizes at which blocks grow: where scanning ends and where an index is half or three
/// quarters full.
TYPED_TEST(TableTest, ErasesFromEveryPlaceAtEverySizeWhereBlocksGrow) {
  for (int const size : {1, 2, 3, 4, 7, 8, 9, 12, 13, 16, 17, 24, 25, 32, 33, 48, 49}) {
    for (int erased = 0; erased < size; ++erased) {
      for (int number = 0; number < size; ++number) this->add(number, number);
      this->erase(erased);
      this->expectSameContent();
      for (int number = 0; number <= size; ++number) this->expectFound(number);
      while (!this->order_.empty()) this->erase(this->order_.front());
      this->expectSameContent();
    }
  }
}

TYPED_TEST(TableTest, GrowsAndShrinksWithoutLosingAnEntry) {
  std::mt19937 random(2);
  for (int const size : {9, 100, 1500}) {
    while (this->order_.size() < static_cast<std::size_t>(size)) {
      int const number = static_cast<int>(random() % 3000);
      if (this->values_.count(number) == 0) this->add(number, number);
    }
    this->expectSameContent();
    while (!this->order_.empty()) {
      this->erase(this->order_[random() % this->order_.size()]);
      if (this->order_.size() % 37 == 0) this->expectSameContent();
      this->expectFound(static_cast<int>(random() % 3000));
    }
    this->expectSameContent();
  }
}

TYPED_TEST(TableTest, BehavesAsAStandardMapDoes) {
  std::mt19937 random(1);
  for (int const keys : {4, 10, 14, 20, 30, 60, 700}) {
    for (int step = 0; step < 3000; ++step) {
      int const number = static_cast<int>(random() % static_cast<unsigned>(keys));
      this->addOrErase(number, step);
      this->expectFound(number);
      this->expectFound(static_cast<int>(random() % static_cast<unsigned>(keys)));
      if (step % 50 == 0) this->expectSameContent();
    }
    this->expectSameContent();
  }
}

TYPED_TEST(TableTest, MovesAsAWhole) {
  for (int number = 0; number < 20; ++number) this->add(number, number);
  auto moved = std::move(this->table_);
  EXPECT_TRUE(this->table_.empty());  // NOLINT(bugprone-use-after-move): a moved table is empty
  this->table_ = std::move(moved);
  this->expectSameContent();
}

TYPED_TEST(TableTest, MayBeFilledAgainAfterItWasCleared) {
  this->table_.clear();
  for (int const size : {3, 8, 40, 41}) {
    for (int number = 0; number < size; ++number) this->add(number, number);
    this->expectSameContent();
    this->table_.clear();
    this->values_.clear();
    this->order_.clear();
    this->expectSameContent();
    for (int number = 0; number < size; ++number) this->expectFound(number);
  }
}

TYPED_TEST(TableTest, RefillLeavesTheKeysOfTheOtherTableInItsOrder) {
  for (int const size : {0, 1, 3, 8, 9, 24, 25, 2, 49, 0, 4}) {
    this->refill(size, 77);
    this->expectSameContent();
    for (int number = 0; number <= size + 1; ++number) this->expectFound(number);
  }
}

TYPED_TEST(TableTest, MayGrowAndShrinkAfterItWasRefilled) {
  this->refill(20, 77);
  for (int number = 21; number <= 60; ++number) this->add(number, number);
  this->expectSameContent();
  for (int number = 1; number <= 60; ++number) this->erase(number);
  this->expectSameContent();
}

TYPED_TEST(TableTest, MayBeFilledAgainAfterItWasEmptied) {
  for (int round = 0; round < 3; ++round) {
    for (int number = 0; number < 40; ++number) this->add(number, number + round);
    this->expectSameContent();
    for (int number = 0; number < 40; ++number) this->erase(number);
    this->expectSameContent();
  }
}

TEST(TableMappedTest, MayBeChangedInPlace) {
  Table<Wirex::IpAddr, int> table;
  table.add(Toy::address(1), 1) += 10;
  *table.find(Toy::address(1)) += 100;
  for (auto const& [key, mapped] : table) mapped += 1000;
  EXPECT_EQ(table.mappedAt(0), 1111);
}

TEST(TableMappedTest, MayBeWiderThanTheKeys) {
  Table<Bridging::VlanId, std::uint64_t> table;
  for (int number = 1; number <= 50; ++number)
    table.add(Toy::vlan(number), static_cast<std::uint64_t>(number) << 40);
  for (int number = 1; number <= 50; ++number)
    EXPECT_EQ(*table.find(Toy::vlan(number)), static_cast<std::uint64_t>(number) << 40);
}

/// The head of a table may hold a null handle, which is not the same as no entry.
TEST(TableOfHandlesTest, TellsANullHandleFromNone) {
  Table<Wirex::IpAddr, Kel::Ptr<Held>> table;
  table.add(Toy::address(1), nullptr);
  EXPECT_EQ(table.size(), 1U);
  ASSERT_NE(table.find(Toy::address(1)), nullptr);
  EXPECT_EQ(*table.find(Toy::address(1)), nullptr);
  table.add(Toy::address(2), Kel::make<Held>(2));
  EXPECT_EQ(table.takeAt(0), nullptr);
  EXPECT_EQ(table.keyAt(0), Toy::address(2));
  EXPECT_EQ(table.mappedAt(0)->number, 2);
}

TEST(TableOfHandlesTest, MovesWithASingleEntry) {
  Table<Wirex::IntfId, Kel::Ptr<Held>> one;
  one.add(Toy::intf(1), Kel::make<Held>(1));
  Table<Wirex::IntfId, Kel::Ptr<Held>> other = std::move(one);
  EXPECT_TRUE(one.empty());  // NOLINT(bugprone-use-after-move): a moved table is empty
  EXPECT_EQ(other.mappedAt(0)->references(), 1U);
  one.add(Toy::intf(2), Kel::make<Held>(2));
  one.add(Toy::intf(3), Kel::make<Held>(3));
  one = std::move(other);
  EXPECT_EQ(one.size(), 1U);
  EXPECT_EQ(one.keyAt(0), Toy::intf(1));
  EXPECT_EQ(other.size(), 2U);  // NOLINT(bugprone-use-after-move): they change places
}

TEST(TableOfHandlesTest, ASingleEntryLetsGoOfItsKeyAndHandle) {
  auto const held = Kel::make<Held>(1);
  {
    Table<Wirex::IpAddr, Kel::Ptr<Held>> table;
    table.add(Toy::address(1), held);
    EXPECT_EQ(held->references(), 2U);
    table.clear();
    EXPECT_EQ(held->references(), 1U);
    EXPECT_TRUE(table.empty());
    table.add(Toy::address(2), held);
  }
  EXPECT_EQ(held->references(), 1U);
}

TEST(TableCursorTest, StaysWithinATableThatShrinksUnderIt) {
  Table<Wirex::IntfId, int> table;
  for (int number = 0; number < 30; ++number) table.add(Toy::intf(number), number);
  int visited = 0;
  for (auto const& [key, mapped] : table) {
    EXPECT_TRUE(table.contains(key));
    ++visited;
    while (table.size() > 5) table.takeAt(table.size() - 1);
  }
  EXPECT_EQ(visited, 5);
}

TEST(KeySnapshotTest, HoldsTheKeysInTheirOrder) {
  for (int const size : {0, 1, 15, 16, 17, 100}) {
    Table<Wirex::IntfId, Nothing> table;
    std::vector<Wirex::IntfId> expected;
    for (int number = 0; number < size; ++number) {
      table.add(Toy::intf(number), {});
      expected.push_back(Toy::intf(number));
    }
    Kel::KeySnapshot<Wirex::IntfId> const snapshot(table);
    EXPECT_EQ(snapshot.size(), table.size());
    EXPECT_EQ(std::vector<Wirex::IntfId>(snapshot.begin(), snapshot.end()), expected);
  }
}

TEST(KeySnapshotTest, OutlivesTheEntries) {
  for (int const size : {3, 40}) {
    Table<Wirex::IntfId, Nothing> table;
    for (int number = 0; number < size; ++number) table.add(Toy::intf(number), {});
    Kel::KeySnapshot<Wirex::IntfId> const snapshot(table);
    while (!table.empty()) table.takeAt(0);
    int number = 0;
    for (Wirex::IntfId const& key : snapshot) EXPECT_EQ(key, Toy::intf(number++));
    EXPECT_EQ(number, size);
  }
}

/// Addresses of one subnet and numbers of one range differ in few bits, wherever those are.
TEST(HashTest, SpreadsRegularKeysOverTheLowBits) {
  for (int const shift : {0, 8, 16, 20}) {
    std::vector<int> load(4096);
    for (std::uint32_t key = 0; key < load.size(); ++key)
      ++load[Kel::spreadHash(key << shift) % load.size()];
    EXPECT_LT(*std::max_element(load.begin(), load.end()), 20) << "shift " << shift;
  }
}

}  // namespace
