#pragma once

#include <cstdint>

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/types/IgmpV3GroupRecordType.h"
#include "framework/types/IpAddr.h"

namespace Igmp {

/// The sources of a group record. The value kept with each is not interpreted.
class KEL_EXPORT IgmpV3HostGroupSourceList : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IgmpV3HostGroupSourceList const> {
   public:
    virtual void onSourceIp(Wirex::IpAddr /*source*/) {}
    virtual void onSourceIpkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using SourceIps = Kel::Values<Wirex::IpAddr, std::uint8_t, &NotifieeConst::onSourceIp>;

  /// The sources, each with its value.
  SourceIps const& sourceIp() const { return sourceIp_; }
  std::uint8_t sourceIp(Wirex::IpAddr source) const { return sourceIp_.get(source); }
  void sourceIpIs(Wirex::IpAddr source, std::uint8_t value) { sourceIp_.is(*this, source, value); }
  void sourceIpDel(Wirex::IpAddr source) { sourceIp_.del(*this, source); }
  void sourceIpDelAll() { sourceIp_.delAll(*this); }
  /// Rebuilds the list from empty with the keys of another collection.
  /// @param goes, comes are called with each source before it goes or comes.
  template <class Mapped, class Goes = Kel::Unheeded, class Comes = Kel::Unheeded>
  void sourceIpRefill(Kel::Collection<Wirex::IpAddr, Mapped> const& sources, std::uint8_t value,
                      Goes const& goes = {}, Comes const& comes = {}) {
    sourceIp_.refill(*this, sources, value, goes, comes);
  }
  void sourceIpNotify(Wirex::IpAddr source) { sourceIp_.notify(*this, source); }
  void sourceIpNotify() { notify<&NotifieeConst::onSourceIpkelImmediate>(); }

 private:
  SourceIps sourceIp_;
};

/// What a host reports for one group: MODE_IS_INCLUDE or MODE_IS_EXCLUDE with its sources.
class KEL_EXPORT IgmpV3GroupRecord : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IgmpV3GroupRecord const> {
   public:
    virtual void onFilterMode() {}
    virtual void onSource() {}
    virtual void onHeardBack() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using RecordType = Wirex::IgmpV3GroupRecordType;

  explicit IgmpV3GroupRecord(Wirex::IpAddr group) : group_(group) {}

  Wirex::IpAddr group() const { return group_; }

  RecordType filterMode() const { return filterMode_.get(); }
  void filterModeIs(RecordType mode) { filterMode_.is(*this, mode); }

  /// Null until the first `sourceIs()`.
  Kel::Ptr<IgmpV3HostGroupSourceList> const& source() const { return source_.get(); }
  Kel::Ptr<IgmpV3HostGroupSourceList> newSource() const {
    return Kel::make<IgmpV3HostGroupSourceList>();
  }
  /// The source list, made if there is none.
  Kel::Ptr<IgmpV3HostGroupSourceList> sourceIs() {
    if (source()) return source();
    auto list = newSource();
    source_.is(*this, list);
    return list;
  }
  void sourceDel() { source_.is(*this, nullptr); }

  /// Whether it says only what was learned on the host's own port. Its host keeps that to itself:
  /// whoever is on the port would hear the membership from the switch after the last listener has
  /// left, and two switches that share a port would tell it each other for ever.
  bool heardBack() const { return heardBack_.get(); }
  void heardBackIs(bool heardBack) { heardBack_.is(*this, heardBack); }

  /// Whether it is that of several hosts, none of which was looked at.
  bool isShared() const noexcept { return shared_; }
  void sharedIs(bool shared) noexcept { shared_ = shared; }

  /// Whether somebody holds or watches it, beside the host whose it is, or its list.
  bool isInUse() const noexcept {
    auto const& list = source();
    return references() > 1 || watched() || (list && (list->references() > 1 || list->watched()));
  }

  /// One for a single host.
  Kel::Ptr<IgmpV3GroupRecord> copy() const {
    auto made = Kel::make<IgmpV3GroupRecord>(group_);
    made->filterModeIs(filterMode());
    if (!source()) return made;
    auto const list = made->sourceIs();
    for (auto const [address, value] : source()->sourceIp()) list->sourceIpIs(address, value);
    return made;
  }

 private:
  Wirex::IpAddr group_;
  bool shared_ = false;
  Kel::Value<bool, &NotifieeConst::onHeardBack> heardBack_;
  Kel::Value<RecordType, &NotifieeConst::onFilterMode> filterMode_{RecordType::modeIsInclude};
  Kel::NullablePointer<IgmpV3HostGroupSourceList, &NotifieeConst::onSource> source_;
};

}  // namespace Igmp
