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

/// The reporters of a port that include sources, if another one excludes; none if not.
std::vector<IgmpMembership const*> includingBesideExcluding(IgmpIntfStatus const& intf) {
  std::vector<IgmpMembership const*> including;
  bool excludes = false;
  for (auto const& [reporter, membership] : intf.membership())
    if (membership->filterMode() == FilterMode::exclude)
      excludes = true;
    else if (!membership->source().empty())
      including.push_back(membership.get());
  if (!excludes) including.clear();
  return including;
}

/// Whether one of the reporters may include a source. Where there are many, to say a source again
/// costs less than to ask them all.
bool mayInclude(std::vector<IgmpMembership const*> const& reporters, IpAddr source) {
  constexpr std::size_t asked = 32;
  return reporters.size() > asked ||
         std::any_of(reporters.begin(), reporters.end(),
                     [&](IgmpMembership const* reporter) { return reporter->source(source); });
}

}  // namespace

/// What a port's reporter is to say again.
struct MembershipWriter::Exclusion {
  Kel::Ptr<IgmpMembership> reporter;
  IpAddr source;
};

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
    for (auto const& [name, intf] : group->intf()) {
      for (auto const& [reporter, membership] : intf->membership()) membership->filterModeNotify();
      changed_.push_back({group, intf});
    }
  }
  unpublished_ = true;
  settle();
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
  if (changed_.empty() || changed_.back().intf != place.intf)
    changed_.push_back({place.group, place.intf});
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

  sayExclusionsAgain();
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
void MembershipWriter::sayExclusionsAgain() {
  std::vector<Exclusion> lost;
  auto evaluated = std::exchange(changed_, {});
  std::sort(evaluated.begin(), evaluated.end(),
            [](Changed const& a, Changed const& b) { return a.intf.get() < b.intf.get(); });
  evaluated.erase(std::unique(evaluated.begin(), evaluated.end(),
                              [](Changed const& a, Changed const& b) { return a.intf == b.intf; }),
                  evaluated.end());
  for (auto const& [group, intf] : evaluated) addLost(*group, *intf, lost);
  if (lost.empty()) return;
  for (auto const& [reporter, source] : lost) reporter->sourceDel(source);
  Kel::runActivities();
  for (auto const& [reporter, source] : lost) reporter->sourceIs(source);
  Kel::runActivities();
}

/// Adds what the group's other ports exclude and may have lost to a port that was evaluated.
void MembershipWriter::addLost(IgmpGroup const& group, IgmpIntfStatus const& evaluated,
                               std::vector<Exclusion>& lost) {
  for (auto const& [name, intf] : group.intf()) {
    IgmpMembership* const reporter = leastExcluding(*intf);
    if (!reporter) continue;
    auto const including = includingBesideExcluding(evaluated);
    if (including.empty()) return;
    for (IpAddr const source : reporter->source())
      if (mayInclude(including, source)) lost.push_back({Kel::Ptr(reporter), source});
  }
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
