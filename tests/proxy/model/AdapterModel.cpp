#include "tests/proxy/model/AdapterModel.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace Bridging::IgmpSnooping::Proxy::Model {

namespace {

constexpr int modeIsInclude = 1;
constexpr int modeIsExclude = 2;

std::uint16_t countOf(Counts const& counts, int source) {
  auto const entry = counts.find(source);
  return entry == counts.end() ? std::uint16_t{0} : entry->second;
}

std::set<int> sourcesOf(Counts const& counts) {
  std::set<int> sources;
  for (auto const& [source, count] : counts) sources.insert(source);
  return sources;
}

}  // namespace

AdapterModel::AdapterModel(HostKeys const& hostKeys, Hosts& hosts,
                           std::shared_ptr<Status const> status, Perturbation perturbation)
    : hostKeys_(hostKeys), hosts_(hosts), status_(std::move(status)), perturbation_(perturbation) {
  followGroups();
}

AdapterModel::~AdapterModel() {
  for (auto const& [group, reactor] : groups_) clear(group);
}

void AdapterModel::statusIs(std::shared_ptr<Status const> status) {
  status_ = std::move(status);
  updateHosts();
  followGroups();
}

void AdapterModel::groupChanged(Status const& status, int group) {
  if (status_.get() != &status) return;
  if (auto const present = status.groups.find(group))
    groupIs(group, present);
  else
    groupDel(group);
}

void AdapterModel::hostKeyChanged(HostKey const& key) {
  if (hostKeys_.find(key)) {
    for (auto const& [group, reactor] : groups_) report(key, group);
  } else if (auto const host = hosts_.find(key); host != hosts_.end()) {
    host->second.clear();
  }
}

void AdapterModel::reportRaised(Status const& status) {
  if (status_.get() == &status) updateHosts();
}

// --- What waits for the activity

void AdapterModel::portChanged(Place const& groupPlace, Group const& group, int port) {
  GroupReactor const* const reactor = groupAt(groupPlace);
  if (reactor && reactor->watched.get() == &group)
    queue({Callback::port, {groupPlace.group}, port});
}

void AdapterModel::reporterChanged(Place const& portPlace, Port const& port, int reporter) {
  PortReactor const* const reactor = portAt(portPlace);
  if (reactor && reactor->watched.get() == &port)
    queue({Callback::reporter, {portPlace.group, portPlace.port}, reporter});
}

void AdapterModel::modeChanged(Place const& place, Membership const& membership) {
  if (hears(place, membership)) queue({Callback::mode, place, 0});
}

void AdapterModel::sourceChanged(Place const& place, Membership const& membership, int source) {
  if (hears(place, membership)) queue({Callback::source, place, source});
}

bool AdapterModel::hears(Place const& place, Membership const& membership) {
  PortReactor const* const port = portAt(place);
  if (!port) return false;
  auto const reactor = port->reporters.find(place.reporter);
  return reactor != port->reporters.end() && reactor->second.get() == &membership;
}

void AdapterModel::queue(Pending const& pending) {
  if (perturbed(Perturbation::changesAreHeardAtOnce)) return deliver(pending);
  if (std::find(pending_.begin(), pending_.end(), pending) == pending_.end())
    pending_.push_back(pending);
}

std::size_t AdapterModel::runActivities() {
  std::size_t delivered = 0;
  for (; !pending_.empty(); ++delivered) {
    Pending const next = pending_.front();
    pending_.pop_front();
    deliver(next);
  }
  return delivered;
}

void AdapterModel::deliver(Pending const& pending) {
  Place place = pending.place;
  switch (pending.callback) {
    case Callback::port:
      place.port = pending.key;
      if (auto const port = groupAt(place)->watched->ports.find(place.port))
        portIs(place, port);
      else
        portDel(place);
      break;
    case Callback::reporter:
      place.reporter = pending.key;
      if (auto const membership = portAt(place)->watched->memberships.find(place.reporter))
        reporterIs(place, membership);
      else
        reporterDel(place);
      break;
    case Callback::mode:
    case Callback::source:
      evaluate(*groupAt(place), *portAt(place));
      break;
  }
}

// --- Reactors come, go over to other objects, and go

AdapterModel::GroupReactor* AdapterModel::groupAt(Place const& place) {
  auto const reactor = groups_.find(place.group);
  return reactor == groups_.end() ? nullptr : &reactor->second;
}

AdapterModel::PortReactor* AdapterModel::portAt(Place const& place) {
  GroupReactor* const group = groupAt(place);
  if (!group) return nullptr;
  auto const reactor = group->ports.find(place.port);
  return reactor == group->ports.end() ? nullptr : &reactor->second;
}

void AdapterModel::followGroups() {
  for (int const group : status_->groups.order) groupIs(group, status_->groups.find(group));
  std::set<int> gone;
  for (auto const& [group, reactor] : groups_)
    if (!status_->groups.find(group)) gone.insert(group);
  for (int const group : gone) groupDel(group);
}

void AdapterModel::groupIs(int group, std::shared_ptr<Group const> const& watched) {
  GroupReactor& reactor = groups_[group];
  if (reactor.watched == watched) return;
  reactor.watched = watched;
  std::erase_if(pending_, [&](Pending const& pending) {
    return pending.callback == Callback::port && pending.place.group == group;
  });
  for (int const port : watched->ports.order) portIs({group, port}, watched->ports.find(port));
  std::set<int> gone;
  for (auto const& [port, portReactor] : reactor.ports)
    if (!watched->ports.find(port)) gone.insert(port);
  for (int const port : gone) portDel({group, port});
}

void AdapterModel::groupDel(int group) {
  if (!groups_.contains(group)) return;
  clear(group);
  std::erase_if(pending_, [&](Pending const& pending) { return pending.place.group == group; });
  groups_.erase(group);
}

void AdapterModel::portIs(Place const& place, std::shared_ptr<Port const> const& watched) {
  PortReactor& reactor = groupAt(place)->ports[place.port];
  if (reactor.watched == watched) return;
  reactor.watched = watched;
  Place const portPlace{place.group, place.port};
  std::erase_if(pending_, [&](Pending const& pending) {
    return pending.callback == Callback::reporter && pending.place == portPlace;
  });
  for (int const reporter : watched->memberships.order)
    reporterIs({place.group, place.port, reporter}, watched->memberships.find(reporter));
  std::set<int> gone;
  for (auto const& [reporter, membership] : reactor.reporters)
    if (!watched->memberships.find(reporter)) gone.insert(reporter);
  for (int const reporter : gone) reporterDel({place.group, place.port, reporter});
}

void AdapterModel::portDel(Place const& place) {
  GroupReactor& group = *groupAt(place);
  if (!group.ports.contains(place.port)) return;
  if (perturbed(Perturbation::leavingPortTakesBackItsCounts)) {
    PortReactor& port = group.ports[place.port];
    starGIs(group, port, false);
    for (int const source : sourcesOf(port.include))
      unlist(group, group.include, port.include, source);
    for (int const source : sourcesOf(port.exclude))
      unlist(group, group.exclude, port.exclude, source);
  }
  std::erase_if(pending_, [&](Pending const& pending) {
    return pending.callback != Callback::port && pending.place.group == place.group &&
           pending.place.port == place.port;
  });
  group.ports.erase(place.port);
}

void AdapterModel::reporterIs(Place const& place,
                              std::shared_ptr<Membership const> const& watched) {
  GroupReactor& group = *groupAt(place);
  PortReactor& port = *portAt(place);
  auto const [reactor, isNew] = port.reporters.try_emplace(place.reporter, watched);
  if (isNew) {
    // Until its first change it counts as a report without sources.
    if (!perturbed(Perturbation::newReporterIsNotStarG)) starGIs(group, port, true);
    return;
  }
  if (reactor->second == watched) return;
  reactor->second = watched;
  std::erase_if(pending_, [&](Pending const& pending) { return pending.place == place; });
  if (!perturbed(Perturbation::replacedReporterIsNoChange)) evaluate(group, port);
}

void AdapterModel::reporterDel(Place const& place) {
  PortReactor& port = *portAt(place);
  if (port.reporters.erase(place.reporter) == 0) return;
  std::erase_if(pending_, [&](Pending const& pending) { return pending.place == place; });
  if (perturbed(Perturbation::leavingReporterEvaluatesPort)) evaluate(*groupAt(place), port);
}

// --- Counting

void AdapterModel::starGIs(GroupReactor& group, PortReactor& port, bool starG) {
  if (port.starG == starG) return;
  port.starG = starG;
  group.starGCount = static_cast<std::uint16_t>(group.starGCount + (starG ? 1 : -1));
  int const threshold = perturbed(Perturbation::starGThresholdOfThree) ? 3 : 2;
  if (group.starGCount <= threshold) group.hostChanged = true;
}

void AdapterModel::list(GroupReactor& group, Counts& ofGroup, Counts& ofPort, int source) {
  ofPort[source] = 1;
  ++ofGroup[source];
  group.hostChanged = true;
}

/// Takes one off the group's count whether the port had the source or not.
void AdapterModel::unlist(GroupReactor& group, Counts& ofGroup, Counts& ofPort, int source) {
  ofPort.erase(source);
  if (auto const entry = ofGroup.find(source); entry != ofGroup.end() && --entry->second == 0)
    ofGroup.erase(entry);
  group.hostChanged = true;
}

void AdapterModel::unlistExclude(GroupReactor& group, PortReactor& port, int source) const {
  if (perturbed(Perturbation::absentExcludeIsNotDecremented) && !port.exclude.contains(source))
    return;
  unlist(group, group.exclude, port.exclude, source);
}

void AdapterModel::evaluate(GroupReactor& group, PortReactor& port) {
  ++port.changes;
  bool someReporterExcludes = false;
  Counts included;
  Counts excluded;
  for (auto const& [reporter, membership] : port.reporters) {
    if (membership->excludes) someReporterExcludes = true;
    for (int const source : membership->sources)
      ++(membership->excludes ? excluded : included)[source];
  }
  port.includeMode = !someReporterExcludes;
  if (someReporterExcludes)
    mergeExcludes(group, port, included, excluded);
  else
    mergeIncludes(group, port, included);
}

void AdapterModel::mergeIncludes(GroupReactor& group, PortReactor& port, Counts const& included) {
  starGIs(group, port, false);
  for (int const source : sourcesOf(port.exclude)) unlistExclude(group, port, source);
  for (int const source : sourcesOf(port.include))
    if (!included.contains(source)) unlist(group, group.include, port.include, source);
  for (int const source : sourcesOf(included))
    if (!port.include.contains(source)) list(group, group.include, port.include, source);
}

void AdapterModel::mergeExcludes(GroupReactor& group, PortReactor& port, Counts const& included,
                                 Counts const& excluded) {
  std::size_t const reporters = port.reporters.size();
  for (int const source : sourcesOf(port.include))
    unlist(group, group.include, port.include, source);
  for (auto const& [source, count] : excluded)
    if (count == reporters && !port.exclude.contains(source))
      list(group, group.exclude, port.exclude, source);
  for (int const source : sourcesOf(included)) unlistExclude(group, port, source);
  for (int const source : sourcesOf(port.exclude))
    if (countOf(excluded, source) != reporters) unlistExclude(group, port, source);
  starGIs(group, port, port.exclude.empty());
}

// --- Reporting

void AdapterModel::updateHosts() {
  for (auto& [group, reactor] : groups_) {
    if (!reactor.hostChanged) continue;
    for (auto const& [key, value] : hostKeys_.at) report(key, group);
    reactor.hostChanged = false;
  }
}

void AdapterModel::clear(int group) {
  for (HostKey const& key : hostKeys_.order) {
    auto const host = hosts_.find(key);
    if (host != hosts_.end())
      host->second.erase(group);
    else if (!perturbed(Perturbation::clearingPassesMissingHosts))
      return;
  }
}

void AdapterModel::report(HostKey const& key, int group) {
  auto const host = hosts_.find(key);
  if (host == hosts_.end()) return;

  GroupReactor const& reactor = groups_.at(group);
  auto const own = reactor.ports.find(key.port);
  Merged const merged =
      own == reactor.ports.end() ? allPorts(reactor) : allPortsBut(reactor, own->second);

  RecordPicture record;
  record.sources.emplace();
  if (merged.starG) {
    record.type = modeIsExclude;
  } else if (!merged.exclude.empty()) {
    record.type = modeIsExclude;
    for (int const source : merged.exclude) (*record.sources)[source] = 1;
  } else if (!merged.include.empty()) {
    record.type = modeIsInclude;
    for (int const source : merged.include) (*record.sources)[source] = 1;
  } else {
    host->second.erase(group);
    return;
  }
  host->second[group] = std::move(record);
}

AdapterModel::Merged AdapterModel::allPorts(GroupReactor const& group) const {
  Merged merged;
  merged.starG = group.starGCount > 0;
  bool someoneDoesNotExclude = false;
  for (auto const& [source, count] : group.exclude) {
    if (count == group.ports.size())
      merged.exclude.insert(source);
    else
      someoneDoesNotExclude = true;
  }
  for (auto const& [source, count] : group.include) {
    merged.include.insert(source);
    merged.exclude.erase(source);
  }
  if (someoneDoesNotExclude && merged.exclude.empty()) {
    if (perturbed(Perturbation::mergeIsExact)) return exactly(group);
    merged.starG = true;
  }
  return merged;
}

AdapterModel::Merged AdapterModel::allPortsBut(GroupReactor const& group, PortReactor const& own) {
  Merged merged;
  if (group.starGCount - (own.starG ? 1 : 0) >= 1) {
    merged.starG = true;
    return merged;
  }
  std::size_t const ports = group.ports.size();
  bool othersExclude = false;
  for (auto const& [source, count] : group.exclude) {
    bool const weExclude = own.exclude.contains(source);
    if (count == (weExclude ? ports : ports - 1))
      merged.exclude.insert(source);
    else if (count > (weExclude ? 1 : 0))
      othersExclude = true;
  }
  for (auto const& [source, count] : group.include) {
    if (count - (own.include.contains(source) ? 1 : 0) < 1) continue;
    merged.include.insert(source);
    merged.exclude.erase(source);
  }
  if (othersExclude && merged.exclude.empty()) merged.starG = true;
  return merged;
}

/// RFC 9776 section 6.4.1 over ports: what all in exclude mode exclude and none includes.
AdapterModel::Merged AdapterModel::exactly(GroupReactor const& group) {
  Merged merged;
  bool first = true;
  for (auto const& [number, port] : group.ports) {
    if (port.includeMode) continue;
    std::set<int> common;
    for (auto const& [source, count] : port.exclude)
      if (first || merged.exclude.contains(source)) common.insert(source);
    merged.exclude = std::move(common);
    first = false;
  }
  for (auto const& [source, count] : group.include) merged.exclude.erase(source);
  merged.starG = merged.exclude.empty();
  return merged;
}

// --- Pictures

GroupPicture AdapterModel::picture(int group) const {
  GroupReactor const& reactor = groups_.at(group);
  GroupPicture picture{
      reactor.starGCount, reactor.include, reactor.exclude, reactor.hostChanged, {}};
  for (auto const& [number, port] : reactor.ports) {
    PortPicture& portPicture = picture.ports[number];
    portPicture = {port.starG, port.includeMode, port.changes, port.include, port.exclude, {}};
    for (auto const& [reporter, membership] : port.reporters)
      portPicture.reporters.insert(reporter);
  }
  return picture;
}

VlanPicture AdapterModel::picture() const {
  VlanPicture picture;
  for (auto const& [group, reactor] : groups_) picture.groups[group] = this->picture(group);
  picture.hosts = hosts_;
  return picture;
}

}  // namespace Bridging::IgmpSnooping::Proxy::Model
