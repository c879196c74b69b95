#include "tests/proxy/model/AdapterDriver.h"

#include <algorithm>
#include <charconv>
#include <iterator>
#include <set>
#include <string_view>
#include <utility>

namespace Bridging::IgmpSnooping::Proxy::Model {

namespace {

constexpr std::uint16_t adapterVlan = 10;

// --- Numbers and what they stand for

Wirex::IpAddr address(std::uint8_t network, int number) {
  return {network, 1, 1, static_cast<std::uint8_t>(number)};
}
Wirex::IpAddr groupAddress(int group) {
  return address(239, group);
}
Wirex::IpAddr reporterAddress(int reporter) {
  return address(10, reporter);
}
Wirex::IpAddr sourceAddress(int source) {
  return address(192, source);
}
Wirex::IntfId interface(int port) {
  return Wirex::IntfId(Kel::format("Et%d", port));
}
PortKey portKey(HostKey const& key) {
  return {VlanId(static_cast<std::uint16_t>(key.vlan)), interface(key.port)};
}
Kel::Name hostName(HostKey const& key) {
  return portKey(key).stringvalue();
}
Gmp::Igmp::IgmpFilterMode filterMode(bool excludes) {
  return excludes ? Gmp::Igmp::IgmpFilterMode::exclude : Gmp::Igmp::IgmpFilterMode::include;
}

int number(Wirex::IpAddr const& address) {
  return static_cast<int>(address.value() & 0xff);
}
int number(Wirex::IntfId const& intf) {
  std::string_view const digits = intf.stringValue().view().substr(2);
  int port = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), port);
  return port;
}
HostKey number(PortKey const& key) {
  return {key.vlanId().value(), number(key.intfId())};
}

template <class Collection, class Key>
void readOrder(Collection const& collection, std::vector<Key>& order) {
  order.clear();
  for (auto const& entry : collection) order.push_back(number(entry.key));
}

template <class Collection>
Counts counts(Collection const& collection) {
  Counts counts;
  for (auto const& [source, count] : collection) counts.emplace(number(source), count);
  return counts;
}

PortPicture picture(AdapterSm::KelIgmpGroup::KelIgmpIntf const& port) {
  PortPicture picture{port.starG(),
                      port.mode() != Gmp::Igmp::IgmpFilterMode::exclude,
                      port.portChanged(),
                      counts(port.portInclude()),
                      counts(port.portExclude()),
                      {}};
  for (auto const& [reporter, reactor] : port.membership())
    picture.reporters.insert(number(reporter));
  return picture;
}

GroupPicture picture(AdapterSm::KelIgmpGroup const& group) {
  GroupPicture groupPicture{group.record()->starGCount(),
                            counts(group.record()->include()),
                            counts(group.record()->exclude()),
                            group.igmpHostChanged(),
                            {}};
  for (auto const& [intf, reactor] : group.igmpIntf())
    groupPicture.ports.emplace(number(intf), picture(*reactor));
  return groupPicture;
}

HostPicture picture(Igmp::IgmpHost const& host) {
  HostPicture records;
  for (auto const& [group, record] : host.v3group()) {
    RecordPicture& recordPicture = records[number(group)];
    recordPicture.type = static_cast<int>(record->filterMode());
    if (record->source()) recordPicture.sources = counts(record->source()->sourceIp());
  }
  return records;
}

bool canOnlyQueue(Event::What what) {
  return what >= Event::firstDelayed && what <= Event::lastDelayed;
}

Place groupPlace(Event const& event) {
  return {event.group};
}
Place portPlace(Event const& event) {
  return {event.group, event.port};
}
Place reporterPlace(Event const& event) {
  return {event.group, event.port, event.reporter};
}

}  // namespace

AdapterDriver::AdapterDriver(Perturbation perturbation)
    : perturbation_(perturbation),
      config_(Kel::make<AdapterVlanConfig>(VlanId(adapterVlan))),
      hostDir_(Kel::make<Igmp::IgmpHostDir>()) {
  for (Statuses& status : statuses_) status = Statuses::made(VlanId(adapterVlan));
  makeAdapter();
}

bool AdapterDriver::apply(Event const& event) {
  using What = Event::What;
  latest_ = event;
  deliveryDifference_.clear();
  switch (event.what) {
    case What::groupMade:
      return makeGroup(event);
    case What::groupRemoved:
      return removeGroup(event);
    case What::groupReplaced:
      return replaceGroup(event);
    case What::groupPutBack:
      return putGroupBack(event);
    case What::groupShared:
      return shareGroup(event);
    case What::portMade:
      return makePort(event);
    case What::portRemoved:
      return removePort(event);
    case What::portReplaced:
      return replacePort(event);
    case What::portPutBack:
      return putPortBack(event);
    case What::reporterMade:
      return makeReporter(event);
    case What::reporterRemoved:
      return removeReporter(event);
    case What::reporterReplaced:
      return replaceReporter(event);
    case What::reporterPutBack:
      return putReporterBack(event);
    case What::modeSet:
      return setMode(event);
    case What::modeRaised:
      return raiseMode(event);
    case What::sourcesAdded:
      return addSources(event, membershipOf(event));
    case What::sourcesRemoved:
      return removeSources(event);
    case What::sourcesCleared:
      return clearSources(event);
    case What::sourceRaised:
      return raiseSources(event);
    case What::removedReporterChanged: {
      auto const removed = removedMemberships_.find(reporterPlace(event));
      return removed != removedMemberships_.end() && addSources(event, removed->second);
    }
    case What::hostKeySet:
      return setHostKey(event);
    case What::hostKeyRemoved:
      return removeHostKey(event);
    case What::hostKeyRaised:
      return raiseHostKey(event);
    case What::hostMade:
      return makeHost(event);
    case What::hostRemoved:
      return removeHost(event);
    case What::statusSwitched:
      return switchStatus();
    case What::adapterDropped:
      return dropAdapter();
    case What::adapterMade:
      return makeAdapter();
    case What::activitiesRun:
      return runActivities();
    case What::reportRaised:
      return raiseReport();
  }
  return false;
}

// --- Twins

AdapterDriver::Statuses const& AdapterDriver::statusOf(Event const& event) const {
  return statuses_[event.inOtherStatus ? 1 - followed_ : followed_];
}

AdapterDriver::Groups AdapterDriver::groupOf(Event const& event) const {
  Statuses const& status = statusOf(event);
  return {status.real->group(groupAddress(event.group)), status.twin->groups.find(event.group)};
}

AdapterDriver::Ports AdapterDriver::portOf(Event const& event) const {
  Groups const group = groupOf(event);
  if (!group) return {};
  return {group.real->intf(interface(event.port)), group.twin->ports.find(event.port)};
}

AdapterDriver::Memberships AdapterDriver::membershipOf(Event const& event) const {
  Ports const port = portOf(event);
  if (!port) return {};
  return {port.real->membership(reporterAddress(event.reporter)),
          port.twin->memberships.find(event.reporter)};
}

AdapterDriver::Groups AdapterDriver::newGroup(int group, std::vector<Reporter> const& reporters) {
  Groups made = Groups::made(groupAddress(group));
  for (Reporter const& reporter : reporters) {
    if (made.twin->ports.at.contains(reporter.port)) continue;
    std::vector<Reporter> ofPort;
    std::copy_if(reporters.begin(), reporters.end(), std::back_inserter(ofPort),
                 [&](Reporter const& other) { return other.port == reporter.port; });
    Ports const port = newPort(reporter.port, ofPort);
    made.real->intfIs(port.real);
    made.twin->ports.at[reporter.port] = port.twin;
  }
  readOrder(made.real->intf(), made.twin->ports.order);
  return made;
}

AdapterDriver::Ports AdapterDriver::newPort(int port, std::vector<Reporter> const& reporters) {
  Ports made = Ports::made(interface(port));
  for (Reporter const& reporter : reporters) {
    Memberships const membership = newMembership(reporter);
    made.real->membershipIs(membership.real);
    made.twin->memberships.at[reporter.reporter] = membership.twin;
  }
  readOrder(made.real->membership(), made.twin->memberships.order);
  return made;
}

AdapterDriver::Memberships AdapterDriver::newMembership(Reporter const& reporter) {
  Memberships made = Memberships::made(reporterAddress(reporter.reporter));
  made.real->filterModeIs(filterMode(reporter.excludes));
  made.twin->excludes = reporter.excludes;
  for (int const source : reporter.sources) {
    made.real->sourceIs(sourceAddress(source));
    made.twin->sources.insert(source);
  }
  return made;
}

// --- Groups

bool AdapterDriver::makeGroup(Event const& event) {
  if (groupOf(event)) return false;
  Statuses const& status = statusOf(event);
  status.real->groupIs(groupAddress(event.group));
  status.twin->groups.at[event.group] = std::make_shared<Group>();
  groupWasChanged(status, event.group);
  return true;
}

bool AdapterDriver::removeGroup(Event const& event) {
  Groups const group = groupOf(event);
  if (!group) return false;
  Statuses const& status = statusOf(event);
  removedGroups_[groupPlace(event)] = group;
  status.real->groupDel(groupAddress(event.group));
  status.twin->groups.at.erase(event.group);
  groupWasChanged(status, event.group);
  return true;
}

bool AdapterDriver::replaceGroup(Event const& event) {
  if (Groups const former = groupOf(event)) removedGroups_[groupPlace(event)] = former;
  return putGroup(statusOf(event), event.group, newGroup(event.group, event.reporters));
}

bool AdapterDriver::putGroupBack(Event const& event) {
  auto const removed = removedGroups_.find(groupPlace(event));
  if (removed == removedGroups_.end()) return false;
  return putGroup(statusOf(event), event.group, Groups(removed->second));
}

bool AdapterDriver::shareGroup(Event const& event) {
  Groups const group = groupOf(event);
  if (!group) return false;
  Event inOther = event;
  inOther.inOtherStatus = !event.inOtherStatus;
  return putGroup(statusOf(inOther), event.group, group);
}

bool AdapterDriver::putGroup(Statuses const& status, int group, Groups const& put) {
  if (status.twin->groups.find(group) == put.twin) return false;
  status.real->groupIs(put.real);
  status.twin->groups.at[group] = put.twin;
  groupWasChanged(status, group);
  return true;
}

void AdapterDriver::groupWasChanged(Statuses const& status, int group) {
  readOrder(status.real->group(), status.twin->groups.order);
  if (model_) model_->groupChanged(*status.twin, group);
}

// --- Ports

bool AdapterDriver::makePort(Event const& event) {
  Groups const group = groupOf(event);
  if (!group || group.twin->ports.find(event.port)) return false;
  group.real->intfIs(interface(event.port));
  group.twin->ports.at[event.port] = std::make_shared<Port>();
  portWasChanged(event, group);
  return true;
}

bool AdapterDriver::removePort(Event const& event) {
  Ports const port = portOf(event);
  if (!port) return false;
  Groups const group = groupOf(event);
  removedPorts_[portPlace(event)] = port;
  group.real->intfDel(interface(event.port));
  group.twin->ports.at.erase(event.port);
  portWasChanged(event, group);
  return true;
}

bool AdapterDriver::replacePort(Event const& event) {
  if (Ports const former = portOf(event)) removedPorts_[portPlace(event)] = former;
  return putPort(event, newPort(event.port, event.reporters));
}

bool AdapterDriver::putPortBack(Event const& event) {
  auto const removed = removedPorts_.find(portPlace(event));
  if (removed == removedPorts_.end() || !putPort(event, removed->second)) return false;
  removedPorts_.erase(removed);
  return true;
}

bool AdapterDriver::putPort(Event const& event, Ports const& put) {
  Groups const group = groupOf(event);
  if (!group) return false;
  group.real->intfIs(put.real);
  group.twin->ports.at[event.port] = put.twin;
  portWasChanged(event, group);
  return true;
}

void AdapterDriver::portWasChanged(Event const& event, Groups const& group) {
  readOrder(group.real->intf(), group.twin->ports.order);
  if (model_) model_->portChanged(groupPlace(event), *group.twin, event.port);
}

// --- Reporters

bool AdapterDriver::makeReporter(Event const& event) {
  Ports const port = portOf(event);
  if (!port || port.twin->memberships.find(event.reporter)) return false;
  port.real->membershipIs(reporterAddress(event.reporter));
  port.twin->memberships.at[event.reporter] = std::make_shared<Membership>();
  reporterWasChanged(event, port);
  return true;
}

bool AdapterDriver::removeReporter(Event const& event) {
  Memberships const membership = membershipOf(event);
  if (!membership) return false;
  Ports const port = portOf(event);
  removedMemberships_[reporterPlace(event)] = membership;
  port.real->membershipDel(reporterAddress(event.reporter));
  port.twin->memberships.at.erase(event.reporter);
  reporterWasChanged(event, port);
  return true;
}

bool AdapterDriver::replaceReporter(Event const& event) {
  if (Memberships const former = membershipOf(event))
    removedMemberships_[reporterPlace(event)] = former;
  return putReporter(event,
                     newMembership({event.port, event.reporter, event.excludes, event.sources}));
}

bool AdapterDriver::putReporterBack(Event const& event) {
  auto const removed = removedMemberships_.find(reporterPlace(event));
  if (removed == removedMemberships_.end() || !putReporter(event, removed->second)) return false;
  removedMemberships_.erase(removed);
  return true;
}

bool AdapterDriver::putReporter(Event const& event, Memberships const& put) {
  Ports const port = portOf(event);
  if (!port) return false;
  port.real->membershipIs(put.real);
  port.twin->memberships.at[event.reporter] = put.twin;
  reporterWasChanged(event, port);
  return true;
}

void AdapterDriver::reporterWasChanged(Event const& event, Ports const& port) {
  readOrder(port.real->membership(), port.twin->memberships.order);
  if (model_) model_->reporterChanged(portPlace(event), *port.twin, event.reporter);
}

bool AdapterDriver::setMode(Event const& event) {
  Memberships const membership = membershipOf(event);
  if (!membership || membership.twin->excludes == event.excludes) return false;
  membership.real->filterModeIs(filterMode(event.excludes));
  membership.twin->excludes = event.excludes;
  if (model_) model_->modeChanged(reporterPlace(event), *membership.twin);
  return true;
}

bool AdapterDriver::raiseMode(Event const& event) {
  Memberships const membership = membershipOf(event);
  if (!membership) return false;
  membership.real->filterModeNotify();
  if (model_) model_->modeChanged(reporterPlace(event), *membership.twin);
  return true;
}

bool AdapterDriver::addSources(Event const& event, Memberships const& membership) {
  if (!membership) return false;
  bool changed = false;
  for (int const source : event.sources) {
    membership.real->sourceIs(sourceAddress(source));
    if (!membership.twin->sources.insert(source).second) continue;
    changed = true;
    if (model_) model_->sourceChanged(reporterPlace(event), *membership.twin, source);
  }
  return changed;
}

bool AdapterDriver::removeSources(Event const& event) {
  Memberships const membership = membershipOf(event);
  if (!membership) return false;
  bool changed = false;
  for (int const source : event.sources) {
    membership.real->sourceDel(sourceAddress(source));
    if (membership.twin->sources.erase(source) == 0) continue;
    changed = true;
    if (model_) model_->sourceChanged(reporterPlace(event), *membership.twin, source);
  }
  return changed;
}

bool AdapterDriver::clearSources(Event const& event) {
  Memberships const membership = membershipOf(event);
  if (!membership || membership.twin->sources.empty()) return false;
  membership.real->sourceDelAll();
  std::set<int> const removed = std::exchange(membership.twin->sources, {});
  if (model_)
    for (int const source : removed)
      model_->sourceChanged(reporterPlace(event), *membership.twin, source);
  return true;
}

bool AdapterDriver::raiseSources(Event const& event) {
  Memberships const membership = membershipOf(event);
  if (!membership) return false;
  for (int const source : event.sources) {
    membership.real->sourceNotify(sourceAddress(source));
    if (model_) model_->sourceChanged(reporterPlace(event), *membership.twin, source);
  }
  return !event.sources.empty();
}

// --- Hosts

bool AdapterDriver::setHostKey(Event const& event) {
  auto const entry = hostKeys_.at.find(event.hostKey);
  if (entry != hostKeys_.at.end() && entry->second == event.keyValue) return false;
  config_->hostKeyIs(portKey(event.hostKey), event.keyValue);
  hostKeys_.at[event.hostKey] = event.keyValue;
  hostKeyWasChanged(event.hostKey);
  return true;
}

bool AdapterDriver::removeHostKey(Event const& event) {
  if (hostKeys_.at.erase(event.hostKey) == 0) return false;
  config_->hostKeyDel(portKey(event.hostKey));
  hostKeyWasChanged(event.hostKey);
  return true;
}

bool AdapterDriver::raiseHostKey(Event const& event) {
  config_->hostKeyNotify(portKey(event.hostKey));
  hostKeyWasChanged(event.hostKey);
  return true;
}

void AdapterDriver::hostKeyWasChanged(HostKey const& key) {
  readOrder(config_->hostKey(), hostKeys_.order);
  if (model_) model_->hostKeyChanged(key);
}

bool AdapterDriver::makeHost(Event const& event) {
  if (!hosts_.try_emplace(event.hostKey).second) return false;
  hostDir_->igmpHostIs(hostName(event.hostKey));
  return true;
}

bool AdapterDriver::removeHost(Event const& event) {
  if (hosts_.erase(event.hostKey) == 0) return false;
  hostDir_->igmpHostDel(hostName(event.hostKey));
  return true;
}

// --- The adapter

bool AdapterDriver::switchStatus() {
  followed_ = 1 - followed_;
  if (!model_) return true;
  adapter_->coreStatusIs(statuses_[followed_].real);
  model_->statusIs(statuses_[followed_].twin);
  return true;
}

bool AdapterDriver::dropAdapter() {
  if (!model_) return false;
  adapter_ = nullptr;
  model_.reset();
  return true;
}

bool AdapterDriver::makeAdapter() {
  if (model_) return false;
  adapter_ = adapterSmFactory(VlanId(adapterVlan), config_, hostDir_, statuses_[followed_].real);
  model_.emplace(hostKeys_, hosts_, statuses_[followed_].twin, perturbation_);
  return true;
}

bool AdapterDriver::runActivities() {
  std::size_t const delivered = Kel::runActivities();
  std::size_t const expected = model_ ? model_->runActivities() : 0;
  if (delivered != expected)
    deliveryDifference_ = "notifications delivered\n  adapter: " + std::to_string(delivered) +
                          "\n  model:   " + std::to_string(expected) + '\n';
  return true;
}

bool AdapterDriver::raiseReport() {
  Statuses const& followed = statuses_[followed_];
  followed.real->newIgmpReportNotify();
  if (model_) model_->reportRaised(*followed.twin);
  return true;
}

// --- Comparison

VlanPicture AdapterDriver::observedGroup(int group) const {
  VlanPicture observed;
  if (auto const reactor = adapter_->kelIgmpGroup(groupAddress(group)))
    observed.groups[group] = picture(*reactor);
  return observed;
}

VlanPicture AdapterDriver::observed() const {
  VlanPicture observed;
  if (adapter_)
    for (auto const& [group, reactor] : adapter_->igmpGroup())
      observed.groups[number(group)] = picture(*reactor);
  for (auto const& [key, records] : hosts_)
    if (auto const host = hostDir_->igmpHost(hostName(key))) observed.hosts[key] = picture(*host);
  return observed;
}

std::string AdapterDriver::difference() const {
  VlanPicture expected;
  if (canOnlyQueue(latest_.what)) {
    if (!model_) return {};
    if (model_->hasGroup(latest_.group))
      expected.groups[latest_.group] = model_->picture(latest_.group);
    return Model::difference(observedGroup(latest_.group), expected);
  }
  if (model_)
    expected = model_->picture();
  else
    expected.hosts = hosts_;
  return deliveryDifference_ + Model::difference(observed(), expected);
}

}  // namespace Bridging::IgmpSnooping::Proxy::Model
