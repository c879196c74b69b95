#pragma once

#include <cstdint>
#include <utility>
#include <vector>

#include "framework/kel/Notification.h"
#include "platform/igmp/RecordPages.h"
#include "platform/igmp/SharedRecords.h"

namespace Igmp {

/// The records of a host, by group. Most hosts of a VLAN report the same of a group, so they share
/// one record; nobody can tell, because a host gets a copy of its own when somebody looks at its
/// record, and keeps it while somebody holds or watches that.
template <auto Callback>
class HostGroupRecords {
 public:
  using Record = SharedRecords::Record;

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
        : records_(records), number_(records.next(0)) {}
    Entry operator*() const {
      return {records_.shared_->group(number_), Record(records_.ownAt(number_))};
    }
    Cursor& operator++() noexcept {
      number_ = records_.next(number_ + 1);
      return *this;
    }
    friend bool operator==(Cursor const& cursor, End) noexcept { return cursor.isAtEnd(); }

   private:
    bool isAtEnd() const noexcept { return number_ >= records_.allNumbers(); }

    HostGroupRecords const& records_;
    std::uint32_t number_;
  };

  HostGroupRecords() = default;
  HostGroupRecords(HostGroupRecords const&) = delete;
  HostGroupRecords& operator=(HostGroupRecords const&) = delete;
  ~HostGroupRecords() {
    while (own_.size() > 0)
      for (auto at = own_.next(0); at < own_.end(); at = own_.next(at + 1)) removeAt(at);
    if (shared_) shared_->hostDel(host_);
  }

  std::uint32_t size() const noexcept {
    return own_.size() + (shared_ ? shared_->commons(host_) : 0);
  }
  bool empty() const noexcept { return size() == 0; }
  bool contains(Wirex::IpAddr group) const noexcept { return peek(group) != nullptr; }

  Cursor begin() const noexcept { return Cursor(*this); }
  End end() const noexcept { return {}; }

  /// The groups as they are now, for loops that change the collection.
  std::vector<Wirex::IpAddr> keys() const {
    std::vector<Wirex::IpAddr> groups;
    groups.reserve(size());
    for (std::uint32_t at = next(0); at < allNumbers(); at = next(at + 1))
      groups.push_back(shared_->group(at));
    return groups;
  }

  /// For a walk in pieces, from the number 0 on: visits the group of the first record that is not
  /// below `number`, and lets `number` say where the walk goes on. Returns whether there was one.
  template <class Visit>
  bool visitNext(std::uint32_t& number, Visit visit) const {
    number = next(number);
    if (number >= allNumbers()) return false;
    visit(shared_->group(number++));
    return true;
  }

  /// The host's own record, or null.
  IgmpV3GroupRecord* find(Wirex::IpAddr group) const {
    std::uint32_t number = SharedRecords::none;
    return find(group, number);
  }
  /// @param number of the group where it was found before, if it was; afterwards what it is now.
  IgmpV3GroupRecord* find(Wirex::IpAddr group, std::uint32_t& number) const {
    number = numberOf(group, number);
    return ownAt(number);
  }
  Record get(Wirex::IpAddr group) const { return Record(find(group)); }

  /// For reading at once, neither to be held nor watched: the record may be shared. May be null.
  IgmpV3GroupRecord const* peek(Wirex::IpAddr group) const noexcept { return at(numberOf(group)); }

  /// Has the host share records with others. Does nothing while it has records.
  void sharedIs(Kel::Ptr<SharedRecords> const& shared) {
    if (shared_ == shared || !empty()) return;
    if (shared_) shared_->hostDel(host_);
    shared_ = shared;
    host_ = shared_->hostIs(own_);
  }

  /// Find-or-create.
  Record is(Kel::Entity const& owner, Wirex::IpAddr group) {
    if (Record present = get(group)) return present;
    auto made = Kel::make<IgmpV3GroupRecord>(group);
    if (!shared_) sharedIs(Kel::make<SharedRecords>());
    ++Kel::mutations;
    putOwn(numberOf(group), made);
    notify(owner, group);
    return made;
  }

  /// Lets the host share a record, where nobody could tell.
  /// @param heard whether somebody hears of records that come and go
  /// @param number as for find()
  /// @return whether nothing is left to do. If not, the host's own record is to be written.
  bool share(Kel::Entity const& owner, bool heard, Record const& common, std::uint32_t& number) {
    number = numberOf(common->group(), number);
    if (at(number)) return shareIn(number, common);
    if (heard) return shareNew(owner, common);
    number = shareAt(number, common);
    return true;
  }

  /// The host's number among those with which it shares; `SharedRecords::none` if it does not.
  std::uint32_t numberIn(SharedRecords const& shared) const noexcept {
    return shared_.get() == &shared ? host_ : SharedRecords::none;
  }

  void del(Kel::Entity const& owner, Wirex::IpAddr group) {
    std::uint32_t const number = numberOf(group);
    if (!at(number)) return;
    Kel::Ptr<Kel::Entity const> const self(&owner);
    removeAt(number);
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
  std::uint32_t allNumbers() const noexcept { return shared_ ? shared_->end() : 0; }

  std::uint32_t numberOf(Wirex::IpAddr group, std::uint32_t former = SharedRecords::none) const {
    return shared_ ? shared_->find(group, former) : SharedRecords::none;
  }

  /// The first number from `number` on that has a record, or that of the end.
  std::uint32_t next(std::uint32_t number) const noexcept {
    while (number < allNumbers() && !at(number)) ++number;
    return number;
  }

  /// The record of a number, the host's own or the common one; null if there is none.
  IgmpV3GroupRecord* at(std::uint32_t number) const noexcept {
    if (Record const* const own = own_.find(number)) return own->get();
    return shared_ ? shared_->common(number, host_) : nullptr;
  }

  /// The host's own record of a number, or null. Nobody can tell a shared one from a copy, so that
  /// looking is const.
  IgmpV3GroupRecord* ownAt(std::uint32_t number) const {
    IgmpV3GroupRecord* const present = at(number);
    if (!present || !present->isShared()) return present;
    Record const copy = present->copy();
    putOwn(number, copy);
    return copy.get();
  }

  bool shareIn(std::uint32_t number, Record const& common) {
    IgmpV3GroupRecord const& present = *at(number);
    if (!present.isShared() && present.isInUse()) return false;
    shareAt(number, common);
    return true;
  }

  /// Whoever watches hears of the record, and may remove the host, the record and the common one.
  bool shareNew(Kel::Entity const& owner, Record common) {
    Kel::Ptr<Kel::Entity const> const self(&owner);
    is(owner, common->group());
    std::uint32_t const number = numberOf(common->group());
    return !at(number) || shareIn(number, common);
  }

  /// Has the host have a shared record in the place of what it has. Returns the group's number.
  std::uint32_t shareAt(std::uint32_t number, Record const& common) {
    ++Kel::mutations;
    if (!shared_) sharedIs(Kel::make<SharedRecords>());
    if (!shared_->isCommon(number, *common)) return putOwn(number, common);
    Record const former = takeOwn(number);
    shared_->join(number, host_);
    return number;
  }

  /// Puts a record of its own in the place of what the host has. Returns the group's number.
  std::uint32_t putOwn(std::uint32_t number, Record const& record) const {
    if (Record* const own = own_.find(number)) {
      *own = record;
      return number;
    }
    number = shared_->use(record->group(), number);
    shared_->part(number, host_);
    own_.add(number, record);
    return number;
  }

  /// A removed record's reactors stop calling handlers before it goes.
  void removeAt(std::uint32_t number) {
    ++Kel::mutations;
    if (Record const removed = takeOwn(number))
      removed->kelDoZombieReactors(true);
    else
      shared_->part(number, host_);
  }

  /// Takes the record that is the host's own; null if it has none.
  Record takeOwn(std::uint32_t number) {
    if (!own_.find(number)) return nullptr;
    Record taken = own_.take(number);
    shared_->disuse(number);
    return taken;
  }

  Kel::Ptr<SharedRecords> shared_;
  std::uint32_t host_ = 0;  // its number there
  mutable RecordPages own_;
};

}  // namespace Igmp
