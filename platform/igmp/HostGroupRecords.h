#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "framework/kel/Notification.h"
#include "platform/igmp/GroupNumbers.h"
#include "platform/igmp/RecordPages.h"

namespace Igmp {

/// The records of a host, by group. Most hosts of a VLAN report the same of a group, so they share
/// one record; nobody can tell, because a host gets a copy of its own when somebody looks at its
/// record, and keeps it while somebody holds or watches that. They also share the groups' numbers,
/// by which each keeps its records.
template <auto Callback>
class HostGroupRecords {
 public:
  using Record = Kel::Ptr<IgmpV3GroupRecord>;

  /// A group and the host's own record of it.
  struct Entry {
    Wirex::IpAddr key;
    Record mapped;
  };
  /// Where a walk ends.
  struct End {};

  /// Visits the records in the order of their numbers, whatever happens to them meanwhile.
  class Cursor {
   public:
    explicit Cursor(HostGroupRecords const& records) noexcept
        : records_(records), number_(records.pages_.next(0)) {}
    Entry operator*() const { return {records_.numbers_->group(number_), records_.ownAt(number_)}; }
    Cursor& operator++() noexcept {
      number_ = records_.pages_.next(number_ + 1);
      return *this;
    }
    friend bool operator==(Cursor const& cursor, End) noexcept { return cursor.isAtEnd(); }

   private:
    bool isAtEnd() const noexcept { return number_ >= records_.pages_.end(); }

    HostGroupRecords const& records_;
    std::uint32_t number_;
  };

  HostGroupRecords() = default;
  HostGroupRecords(HostGroupRecords const&) = delete;
  HostGroupRecords& operator=(HostGroupRecords const&) = delete;
  ~HostGroupRecords() {
    while (!empty())
      for (auto at = pages_.next(0); at < pages_.end(); at = pages_.next(at + 1)) retireAt(at);
  }

  std::uint32_t size() const noexcept { return pages_.size(); }
  bool empty() const noexcept { return size() == 0; }
  bool contains(Wirex::IpAddr group) const noexcept { return pages_.find(numberOf(group)); }

  Cursor begin() const noexcept { return Cursor(*this); }
  End end() const noexcept { return {}; }

  /// The groups as they are now, for loops that change the collection.
  std::vector<Wirex::IpAddr> keys() const {
    std::vector<Wirex::IpAddr> groups;
    groups.reserve(size());
    for (std::uint32_t at = pages_.next(0); at < pages_.end(); at = pages_.next(at + 1))
      groups.push_back(numbers_->group(at));
    return groups;
  }

  /// For a walk in pieces, from the number 0 on: visits the group of the first record that is not
  /// below `number`, and lets `number` say where the walk goes on. Returns whether there was one.
  template <class Visit>
  bool visitNext(std::uint32_t& number, Visit visit) const {
    number = pages_.next(number);
    if (number >= pages_.end()) return false;
    visit(numbers_->group(number++));
    return true;
  }

  /// The host's own record, or null.
  IgmpV3GroupRecord* find(Wirex::IpAddr group) const {
    std::uint32_t number = GroupNumbers::none;
    return find(group, number);
  }
  /// @param number of the group where it was found before, if it was; afterwards what it is now.
  IgmpV3GroupRecord* find(Wirex::IpAddr group, std::uint32_t& number) const {
    number = numberOf(group, number);
    return pages_.find(number) ? ownAt(number).get() : nullptr;
  }
  Record get(Wirex::IpAddr group) const { return Record(find(group)); }

  /// For reading at once, neither to be held nor watched: the record may be shared. May be null.
  IgmpV3GroupRecord const* peek(Wirex::IpAddr group) const noexcept {
    Record const* const record = pages_.find(numberOf(group));
    return record ? record->get() : nullptr;
  }

  /// Has the host keep its records by the numbers that other hosts use, from when it has none on.
  void numbersIs(Kel::Ptr<GroupNumbers> const& numbers) {
    if (numbers_ != numbers && empty()) numbers_ = numbers;
  }

  /// Find-or-create.
  Record is(Kel::Entity const& owner, Wirex::IpAddr group) {
    if (contains(group)) return get(group);
    auto made = Kel::make<IgmpV3GroupRecord>(group);
    add(made, numberOf(group));
    notify(owner, group);
    return made;
  }

  /// Lets the host share a record, where nobody could tell.
  /// @param number as for find()
  /// @return whether nothing is left to do. If not, the host's own record is to be written.
  bool share(Kel::Entity const& owner, Record const& common, std::uint32_t& number) {
    number = numberOf(common->group(), number);
    if (Record* const present = pages_.find(number)) return shareIn(*present, common);
    if (owner.watched()) return shareNew(owner, common);
    number = add(common, number);
    return true;
  }

  void del(Kel::Entity const& owner, Wirex::IpAddr group) {
    std::uint32_t const number = numberOf(group);
    if (!pages_.find(number)) return;
    Kel::Ptr<Kel::Entity const> const self(&owner);
    retireAt(number);
    notify(owner, group);
  }

  void delAll(Kel::Entity const& owner) {
    Kel::Ptr<Kel::Entity const> const self(&owner);
    for (Wirex::IpAddr const group : keys()) del(owner, group);
  }

  void notify(Kel::Entity const& owner, Wirex::IpAddr group) const {
    owner.notify<Callback>(group);
  }

 private:
  std::uint32_t numberOf(Wirex::IpAddr group, std::uint32_t former = GroupNumbers::none) const {
    return numbers_ ? numbers_->find(group, former) : GroupNumbers::none;
  }

  static bool shareIn(Record& present, Record const& common) {
    if (!present->isShared() && present->isInUse()) return false;
    present = common;
    ++Kel::mutations;
    return true;
  }

  /// Whoever watches hears of the record, and may remove the host, the record and the common one.
  bool shareNew(Kel::Entity const& owner, Record common) {
    Kel::Ptr<Kel::Entity const> const self(&owner);
    is(owner, common->group());
    Record* const present = pages_.find(numberOf(common->group()));
    return !present || shareIn(*present, common);
  }

  std::uint32_t add(Record const& record, std::uint32_t number) {
    if (!numbers_) numbers_ = Kel::make<GroupNumbers>();
    ++Kel::mutations;
    number = numbers_->use(record->group(), number);
    pages_.add(number, record);
    return number;
  }

  /// A removed record's reactors stop calling handlers before it goes.
  void retireAt(std::uint32_t number) {
    ++Kel::mutations;
    numbers_->disuse(number);
    Record const removed = pages_.take(number);
    removed->kelDoZombieReactors(true);
  }

  Record const& ownAt(std::uint32_t number) const {
    // Nobody can tell a shared record from a copy, so that looking is const.
    Record& record = *pages_.find(number);
    if (record->isShared()) record = record->copy();
    return record;
  }

  Kel::Ptr<GroupNumbers> numbers_;
  RecordPages pages_;
};

}  // namespace Igmp
