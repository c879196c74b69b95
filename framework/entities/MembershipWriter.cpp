#include "framework/entities/MembershipWriter.h"

#include <algorithm>
#include <utility>

#include "framework/kel/Activity.h"

namespace Bridging::IgmpSnooping {

using Wirex::IntfId;
using Wirex::IpAddr;

namespace {

using FilterMode = MembershipWriter::FilterMode;

bool wantsNothing(IgmpMembership const& membership) {
  return membership.filterMode() == FilterMode::include && membership.source().empty();
}

/// A reporter of a port on which all exclude something, the one with the fewest sources: what the
/// port excludes is among them. Null if there is none such.
IgmpMembership* leastExcluding(IgmpIntfStatus const& intf) {
  IgmpMembership* least = nullptr;
  for (auto const& [reporter, membership] : intf.membership()) {
    if (membership->filterMode() == FilterMode::include || membership->source().empty())
      return nullptr;
    if (!least || membership->source().size() < least->source().size()) least = membership.get();
  }
  return least;
}

/// Whether one reporter of a port includes sources while another one excludes.
bool isMixed(IgmpIntfStatus const& intf) {
  bool includes = false;
  bool excludes = false;
  for (auto const& [reporter, membership] : intf.membership()) {
    if (membership->filterMode() == FilterMode::exclude)
      excludes = true;
    else
      includes |= !membership->source().empty();
    if (includes && excludes) return true;
  }
  return false;
}

/// Of each port that may have lost counts of what it excludes, a reporter that can say it again.
void addExcluding(IgmpGroup const& group, std::vector<Kel::Ptr<IgmpMembership>>& reporters) {
  if (group.intf().size() < 2) return;
  std::size_t const before = reporters.size();
  for (auto const& [name, intf] : group.intf())
    if (IgmpMembership* const reporter = leastExcluding(*intf)) reporters.emplace_back(reporter);
  if (reporters.size() == before) return;
  for (auto const& [name, intf] : group.intf())
    if (isMixed(*intf)) return;
  reporters.resize(before);
}

}  // namespace

MembershipWriter::MembershipWriter(Kel::Ptr<IgmpContextStatus> status)
    : status_(std::move(status)) {}

MembershipWriter::~MembershipWriter() = default;

void MembershipWriter::membershipIs(IpAddr group, IntfId const& intf, IpAddr reporter,
                                    FilterMode mode, std::span<IpAddr const> sources) {
  Place const place = make(group, intf, reporter);
  place.membership->filterModeIs(mode);
  for (IpAddr const source : place.membership->source().keys())
    if (std::find(sources.begin(), sources.end(), source) == sources.end())
      place.membership->sourceDel(source);
  for (IpAddr const source : sources) place.membership->sourceIs(source);
  written(place);
}

void MembershipWriter::membershipDel(IpAddr group, IntfId const& intf, IpAddr reporter) {
  auto const groupStatus = status_->group(group);
  auto const intfStatus = groupStatus ? groupStatus->intf(intf) : nullptr;
  if (intfStatus && intfStatus->membership().contains(reporter))
    membershipIs(group, intf, reporter, FilterMode::include, {});
}

void MembershipWriter::repeat() {
  Kel::runActivities();
  for (auto const& [address, group] : status_->group()) {
    for (auto const& [name, intf] : group->intf())
      for (auto const& [reporter, membership] : intf->membership()) membership->filterModeNotify();
    changed_.push_back(group);
  }
  unpublished_ = true;
}

void MembershipWriter::publish() {
  settle();
  if (std::exchange(unpublished_, false)) status_->newIgmpReportNotify();
}

/// From the top down, so that readers find each entity in its place.
MembershipWriter::Place MembershipWriter::make(IpAddr address, IntfId const& name,
                                               IpAddr reporter) {
  Place place;
  if (!status_->group().contains(address)) status_->groupIs(newGroup(address));
  place.group = status_->group(address);
  if (!place.group->intf().contains(name)) place.group->intfIs(newIntf(*place.group, name));
  place.intf = place.group->intf(name);
  place.membership = place.intf->membership(reporter);
  if (place.membership) return place;
  place.membership = newMembership(*place.intf, reporter);
  place.membership->filterModeIs(FilterMode::include);
  place.intf->membershipIs(place.membership);
  appeared_.push_back(place);
  return place;
}

void MembershipWriter::written(Place place) {
  unpublished_ = true;
  if (changed_.empty() || changed_.back() != place.group) changed_.push_back(place.group);
  if (wantsNothing(*place.membership)) left_.push_back(std::move(place));
}

void MembershipWriter::settle() {
  Kel::runActivities();
  for (Place const& place : std::exchange(appeared_, {})) {
    place.membership->filterModeNotify();
    if (wantsNothing(*place.membership)) left_.push_back(place);  // never written
  }
  Kel::runActivities();

  auto left = std::exchange(left_, {});
  std::erase_if(left, [](Place const& place) { return !wantsNothing(*place.membership); });
  for (Place const& place : left) remove(place);
  Kel::runActivities();
  for (auto const& [group, intf, membership] : left)
    if (!intf->membership().empty())
      intf->membership().find(intf->membership().keyAt(0))->filterModeNotify();
  Kel::runActivities();

  auto changed = std::exchange(changed_, {});
  std::sort(changed.begin(), changed.end(),
            [](auto const& a, auto const& b) { return a.get() < b.get(); });
  changed.erase(std::unique(changed.begin(), changed.end()), changed.end());
  sayExclusionsAgain(changed);
}

void MembershipWriter::remove(Place const& place) {
  auto const& [group, intf, membership] = place;
  // One that has left twice in a batch comes here twice.
  if (intf->membership().find(membership->addr()) != membership.get()) return;
  intf->membershipDel(membership->addr());
  if (intf->membership().empty()) group->intfDel(intf->intfId());
  if (group->intf().empty()) status_->groupDel(group->addr());
  removed(*membership);
}

/// All ports at once: a count that has lost something is right again only from zero on.
void MembershipWriter::sayExclusionsAgain(std::vector<Kel::Ptr<IgmpGroup>> const& groups) {
  std::vector<Kel::Ptr<IgmpMembership>> reporters;
  for (auto const& group : groups) addExcluding(*group, reporters);
  if (reporters.empty()) return;
  std::vector<std::vector<IpAddr>> excluded;
  for (auto const& reporter : reporters) {
    excluded.emplace_back(reporter->source().begin(), reporter->source().end());
    reporter->sourceDelAll();
  }
  Kel::runActivities();
  for (std::size_t i = 0; i < reporters.size(); ++i)
    for (IpAddr const source : excluded[i]) reporters[i]->sourceIs(source);
  Kel::runActivities();
}

Kel::Ptr<IgmpGroup> MembershipWriter::newGroup(IpAddr group) {
  return Kel::make<IgmpGroup>(group);
}

Kel::Ptr<IgmpIntfStatus> MembershipWriter::newIntf(IgmpGroup& /*group*/, IntfId const& intf) {
  return Kel::make<IgmpIntfStatus>(intf);
}

Kel::Ptr<IgmpMembership> MembershipWriter::newMembership(IgmpIntfStatus& /*intf*/,
                                                         IpAddr reporter) {
  return Kel::make<IgmpMembership>(reporter);
}

}  // namespace Bridging::IgmpSnooping
