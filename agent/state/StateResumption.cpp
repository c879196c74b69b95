#include "agent/state/StateResumption.h"

#include <algorithm>
#include <map>
#include <utility>

#include "agent/state/StateCodec.h"
#include "agent/text/Wording.h"
#include "framework/types/PortKey.h"

namespace Agent {

using Bridging::IgmpSnooping::SnoopedPort;
using Bridging::IgmpSnooping::TimedFilter;
using Bridging::IgmpSnooping::Proxy::PortKey;
using Horix::Time;
using Wirex::IntfId;

namespace {

constexpr std::chrono::seconds longestResponseTime(3175);  // that a query can ask for

long long secondsOf(Time time) {
  return std::chrono::ceil<std::chrono::seconds>(time).count();
}

/// Nothing that was learned lives for longer without being heard again.
Time longestMembership(Switch& snoopingSwitch) {
  Time longest{};
  for (VlanConfig const& vlan : snoopingSwitch.configuration().vlans)
    longest = std::max<Time>(
        longest, snoopingSwitch.learning(vlan.vlanId)->policy().groupMembershipInterval());
  return longest;
}

Time ageOf(SealedState const& state, Moment const& now, Switch& snoopingSwitch) {
  Time const age = now.since(state.written);
  if (age < Time())
    throw UnusableState(message("it is of a time that is ", secondsOf(-age),
                                " s ahead of the clock, which was set back"));
  if (Time const longest = longestMembership(snoopingSwitch); age > longest)
    throw UnusableState(message("it is ", secondsOf(age), " s old, and memberships live for ",
                                secondsOf(longest), " s"));
  return age;
}

/// Takes one entry after the other to where it belongs.
class Resumption {
 public:
  /// @param passed what is to be subtracted of the writer's times.
  Resumption(Switch& snoopingSwitch, Time age, Time passed)
      : switch_(snoopingSwitch),
        now_(snoopingSwitch.now()),
        passed_(passed),
        resumed_{.age = age} {}

  Resumed const& resumed() const { return resumed_; }

  /// Each host's whole memory.
  void giveMemories() {
    for (auto& [name, memory] : memories_)
      switch_.proxy().igmpHostDirSm()->memoryIs(name, std::move(memory));
  }

  // A file may say anything: nothing began later than now, and nothing is that old.
  void operator()(KeptSince const& kept) {
    constexpr Time oldest = std::chrono::years(50);
    since_ = std::min(here(kept.since), now_) - std::min(kept.before, oldest);
  }

  void operator()(KeptMembership const& kept) {
    Time const since = takeSince();
    auto* const learning = switch_.learning(kept.vlan);
    if (!learning || learning->vlanId() != kept.vlan || !learnsIn(kept.interface, *learning))
      return;
    TimedFilter const filter = filterOf(kept);
    bool const excludes = filter.mode == Gmp::Igmp::IgmpFilterMode::exclude;
    if (filter.requested.empty() && !(excludes && filter.deadline > now_)) return;
    if (!learning->restore(kept.interface, kept.reporter, kept.group, filter, since))
      ++resumed_.memberships;
  }

  void operator()(KeptRouter const& kept) {
    Time const since = takeSince();
    SnoopedPort const* const port = this->port(kept.interface);
    Time const until = here(kept.until);
    if (!port || !port->vlan().contains(kept.vlan) || until <= now_) return;
    switch_.routers(kept.vlan)->heardIs({kept.interface, kept.byPim, {kept.address, until}, since});
    ++resumed_.routers;
  }

  void operator()(KeptQuerier const& kept) {
    auto* const querier = switch_.querier(kept.vlan);
    Time const until = here(kept.until);
    if (!querier || querier->vlanId() != kept.vlan || until <= now_) return;
    querier->restore({kept.address, kept.macAddress, kept.interface, kept.version, kept.robustness,
                      std::chrono::round<std::chrono::seconds>(kept.queryInterval)},
                     until);
  }

  void operator()(KeptOlderVersion const& kept) {
    auto* const routers = switch_.routers(kept.vlan);
    Time const until = here(kept.until);
    if (!routers || kept.version == Igmp::IgmpVersion::v3 || until <= now_) return;
    routers->queries()->olderQuerierIs({kept.version, kept.querier, until});
  }

  void operator()(KeptQueryCourse const& kept) {
    auto* const querier = switch_.querier(kept.vlan);
    if (!querier || querier->vlanId() != kept.vlan) return;
    Bridging::IgmpSnooping::QueryCourse course{here(kept.next), kept.startupQueriesLeft};
    for (KeptPort const& port : kept.asked) course.asked.push_back({port.interface, port.vlan});
    querier->goOnFrom(course);
  }

  void operator()(KeptTold const& kept) {
    Igmp::HostMemory::Told told{kept.group, kept.excludes, kept.sources, kept.transmissions};
    for (KeptPendingSource const& source : kept.pendingSources)
      told.pendingSources.push_back({source.address, source.transmissions});
    std::sort(told.sources.begin(), told.sources.end());
    memoryOf(kept.host).told.push_back(std::move(told));
  }

  void operator()(KeptAnswer const& kept) {
    if (Time const due = here(kept.due); due <= now_ + longestResponseTime)
      memoryOf(kept.host).answers.push_back({kept.group, kept.sources, due});
  }

  void operator()(KeptHostVersion const& kept) {
    Time const until = here(kept.until);
    if (kept.version == Igmp::IgmpVersion::v3 || until <= now_) return;
    memoryOf(kept.host).olderQueriers.push_back({kept.version, kept.querier, until});
  }

 private:
  Igmp::HostMemory& memoryOf(KeptPort const& host) {
    return memories_[PortKey(host.vlan, host.interface).hostName()];
  }

  /// Since when what is taken now has been known.
  Time takeSince() { return std::exchange(since_, now_); }

  Time here(Time writers) const { return writers == Time::max() ? writers : writers - passed_; }

  TimedFilter filterOf(KeptMembership const& kept) const {
    TimedFilter filter;
    if (kept.excludes) filter.mode = Gmp::Igmp::IgmpFilterMode::exclude;
    if (kept.excludes) filter.deadline = here(kept.until);
    for (KeptSource const& source : kept.requested)
      if (Time const until = here(source.until); until > now_)
        filter.requested.push_back({source.address, until});
    filter.excluded = kept.excluded;
    return filter;
  }

  SnoopedPort const* port(IntfId const& intf) const {
    auto const found = switch_.ports().find(intf);
    return found == switch_.ports().end() ? nullptr : &found->second;
  }

  /// Whether what is heard on an interface is learned there: in the VLAN or in one of its secondary
  /// ones.
  bool learnsIn(IntfId const& intf, Switch::VlanLearning const& learning) const {
    SnoopedPort const* const port = this->port(intf);
    if (!port) return false;
    for (auto const& [vlan, snooped] : port->vlan())
      if (snooped.learning == &learning) return true;
    return false;
  }

  Switch& switch_;
  Time now_;
  Time passed_;
  Resumed resumed_;
  Time since_ = now_;
  std::map<Kel::Name, Igmp::HostMemory> memories_;
};

}  // namespace

Resumed resume(Switch& snoopingSwitch, SealedState const& state, Moment const& now) {
  Time const age = ageOf(state, now, snoopingSwitch);
  Resumption resumption(snoopingSwitch, age, state.written.monotonic + age - now.monotonic);
  StateReader reader(state.entries);
  while (auto const entry = reader.next()) std::visit(resumption, *entry);
  resumption.giveMemories();
  return resumption.resumed();
}

}  // namespace Agent
