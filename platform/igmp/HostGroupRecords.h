#pragma once

#include <cstdint>

#include "framework/kel/Collection.h"
#include "platform/igmp/IgmpV3GroupRecord.h"

namespace Igmp {

/// The records of a host, by group. Most hosts of a VLAN report the same of a group, so they share
/// one record; nobody can tell, because a host gets a copy of its own when somebody looks at its
/// record, and keeps it while somebody holds or watches that.
template <auto Callback>
class HostGroupRecords : private Kel::OwnedMembers<Wirex::IpAddr, IgmpV3GroupRecord> {
  using Owned = Kel::OwnedMembers<Wirex::IpAddr, IgmpV3GroupRecord>;
  using Record = Kel::Ptr<IgmpV3GroupRecord>;

 public:
  using Owned::absent, Owned::contains, Owned::empty, Owned::keyAt, Owned::keys, Owned::position,
      Owned::size;

  struct Entry {
    Wirex::IpAddr const& key;
    Record const& mapped;
  };
  struct End {};

  class Cursor {
   public:
    explicit Cursor(HostGroupRecords const& records) noexcept : records_(records) {}
    Entry operator*() const { return {records_.keyAt(place_), records_.ownAt(place_)}; }
    Cursor& operator++() noexcept {
      ++place_;
      return *this;
    }
    friend bool operator==(Cursor const& cursor, End) noexcept {
      return cursor.place_ >= cursor.records_.size();
    }

   private:
    HostGroupRecords const& records_;
    std::uint32_t place_ = 0;
  };

  Cursor begin() const noexcept { return Cursor(*this); }
  End end() const noexcept { return {}; }

  /// The host's own record, or null.
  IgmpV3GroupRecord* find(Wirex::IpAddr group) const {
    std::uint32_t place = absent;
    return find(group, place);
  }
  /// @param place where it was found before, if it was; afterwards where it is.
  IgmpV3GroupRecord* find(Wirex::IpAddr group, std::uint32_t& place) const {
    place = position(group, place);
    return place == absent ? nullptr : ownAt(place).get();
  }
  Record get(Wirex::IpAddr group) const { return Record(find(group)); }

  /// For reading at once, neither to be held nor watched: the record may be shared. May be null.
  IgmpV3GroupRecord const* peek(Wirex::IpAddr group) const noexcept { return Owned::find(group); }

  /// Find-or-create.
  Record is(Kel::Entity const& owner, Wirex::IpAddr group) {
    if (contains(group)) return get(group);
    auto made = Owned::ensure(group, [group] { return Kel::make<IgmpV3GroupRecord>(group); }).first;
    notify(owner, group);
    return made;
  }

  /// Lets the host share a record, where nobody could tell.
  /// @param place as for find()
  /// @return whether nothing is left to do. If not, the host's own record is to be written.
  bool share(Kel::Entity const& owner, Record const& common, std::uint32_t& place) {
    Wirex::IpAddr const group = common->group();
    place = position(group, place);
    if (place == absent && owner.watched()) {
      is(owner, group);
      place = position(group);
      if (place == absent) return true;  // whoever heard of it removed it
    }
    if (place == absent) {
      place = size();
      this->table_.add(group, common);
    } else {
      Record& present = this->table_.mappedAt(place);
      if (!present->isShared() && present->isInUse()) return false;
      present = common;
    }
    ++Kel::mutations;
    return true;
  }

  void del(Kel::Entity const& owner, Wirex::IpAddr group) {
    Kel::Ptr<Kel::Entity const> const self(&owner);
    if (Owned::del(group)) notify(owner, group);
  }

  void delAll(Kel::Entity const& owner) {
    Kel::Ptr<Kel::Entity const> const self(&owner);
    for (Wirex::IpAddr const group : keys()) del(owner, group);
  }

  void notify(Kel::Entity const& owner, Wirex::IpAddr group) const {
    owner.notify<Callback>(group);
  }

 private:
  Record const& ownAt(std::uint32_t place) const {
    // Nobody can tell a shared record from a copy, so that looking is const.
    Record& record = const_cast<HostGroupRecords*>(this)->table_.mappedAt(place);
    if (record->isShared()) record = record->copy();
    return record;
  }
};

}  // namespace Igmp
