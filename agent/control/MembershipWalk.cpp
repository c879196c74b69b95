#include "agent/control/MembershipWalk.h"

#include <utility>

namespace Agent {

namespace {

template <class T>
T takeLast(std::vector<T>& values) {
  T last = std::move(values.back());
  values.pop_back();
  return last;
}

/// The keys of a collection that are selected.
template <class Key, class Members>
std::vector<Key> selected(Members const& members, Selection const& selection) {
  std::vector<Key> keys;
  keys.reserve(members.size());
  for (std::uint32_t i = members.size(); i-- > 0;)
    if (selection.has(members.keyAt(i))) keys.push_back(members.keyAt(i));
  return keys;
}

}  // namespace

using Bridging::VlanId;
using Bridging::IgmpSnooping::IgmpGroup;
using Bridging::IgmpSnooping::IgmpIntfStatus;
using Wirex::IntfId;
using Wirex::IpAddr;

MembershipWalk::MembershipWalk(Switch const& snoopingSwitch, Selection selection)
    : switch_(snoopingSwitch),
      selection_(std::move(selection)),
      vlans_(selected<VlanId>(snoopingSwitch.entities().snoopingStatus->contextStatus(),
                              selection_)) {}

MembershipWalk::Membership const* MembershipWalk::step() {
  if (!reporters_.empty()) {
    IpAddr const reporter = takeLast(reporters_);
    IgmpIntfStatus const* const status = interface();
    return status ? status->membership().find(reporter) : nullptr;
  }
  if (!interfaces_.empty()) {
    place_.interface = takeLast(interfaces_);
    if (IgmpIntfStatus const* const status = interface()) {
      reporters_.reserve(status->membership().size());
      for (auto const& [reporter, membership] : status->membership())
        reporters_.push_back(reporter);
    }
    return nullptr;
  }
  if (!groups_.empty()) {
    place_.group = takeLast(groups_);
    if (IgmpGroup const* const status = group())
      interfaces_ = selected<IntfId>(status->intf(), selection_);
    return nullptr;
  }
  place_.vlan = takeLast(vlans_);
  if (auto const status = switch_.entities().snoopingStatus->contextStatus(place_.vlan))
    groups_ = selected<IpAddr>(status->group(), selection_);
  return nullptr;
}

IgmpGroup const* MembershipWalk::group() const {
  auto const status = switch_.entities().snoopingStatus->contextStatus(place_.vlan);
  return status ? status->group().find(place_.group) : nullptr;
}

IgmpIntfStatus const* MembershipWalk::interface() const {
  IgmpGroup const* const status = group();
  return status ? status->intf().find(place_.interface) : nullptr;
}

}  // namespace Agent
