#include "proxy/ProxyAdapterSm.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "framework/kel/Assertion.h"
#include "framework/kel/Trace.h"

KEL_TRACE_MODULE("IgmpSnoopingProxyAdapter", "ProxyAdapterSm")

namespace Bridging::IgmpSnooping::Proxy {

using Wirex::IgmpV3GroupRecordType;
using Wirex::IntfId;
using Wirex::IpAddr;

using KelIgmpGroup = AdapterSm::KelIgmpGroup;
using KelIgmpIntf = KelIgmpGroup::KelIgmpIntf;
using KelMembership = KelIgmpIntf::KelMembership;

Kel::Ptr<AdapterSm> adapterSmFactory(VlanId vlanId, Kel::Ptr<AdapterVlanConfig const> adapterConfig,
                                     Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir,
                                     Kel::Ptr<IgmpContextStatus const> coreStatus) {
  return AdapterSm::AdapterSmIs(vlanId, std::move(adapterConfig), std::move(igmpHostDir),
                                std::move(coreStatus));
}

namespace {

/// Empty counts for the length of a computation. They are handed on to the next one, blocks and
/// all, through the adapter's spare; a computation within a computation makes its own.
class ScratchCounts {
 public:
  explicit ScratchCounts(Kel::Ptr<SourceCount>& spare)
      : spare_(spare), counts_(spare ? std::move(spare) : SourceCount::SourceCountIs()) {}
  ScratchCounts(ScratchCounts const&) = delete;
  ScratchCounts& operator=(ScratchCounts const&) = delete;
  ~ScratchCounts() {
    counts_->starGCountIs(0);
    counts_->includeDelAll();
    counts_->excludeDelAll();
    spare_.swap(counts_);
  }

  Kel::Ptr<SourceCount> const& handle() const { return counts_; }
  SourceCount& operator*() const { return *counts_; }
  SourceCount* operator->() const { return counts_.get(); }

 private:
  Kel::Ptr<SourceCount>& spare_;
  Kel::Ptr<SourceCount> counts_;
};

/// The filter mode of a record that says what is merged; none where nobody wants the group. Ends
/// in *,G without excludes.
std::optional<IgmpV3GroupRecordType> modeOf(SourceCount& merged) {
  bool const wantsEverySource = merged.starGCount() != 0;
  if (wantsEverySource) {
    KEL_TRACE_OF("processSplitHorizon", 4, "SplitHorizon Put *,G into igmpHost");
    merged.excludeDelAll();
  }
  if (wantsEverySource || !merged.exclude().empty()) {
    KEL_TRACE_OF("processSplitHorizon", 4, "SplitHorizon exclude mode");
    return IgmpV3GroupRecordType::modeIsExclude;
  }
  if (!merged.include().empty()) return IgmpV3GroupRecordType::modeIsInclude;
  KEL_TRACE_OF("processSplitHorizon", 4, "SplitHorizon includes == 0");
  return std::nullopt;
}

void fill(Igmp::IgmpV3GroupRecord& record, IgmpV3GroupRecordType mode, SourceCount const& merged) {
  Kel::Ptr<Igmp::IgmpV3HostGroupSourceList> const list = record.sourceIs();
  record.filterModeIs(mode);
  auto const goes = [](IpAddr source) {
    KEL_TRACE_OF("processSplitHorizon", 4, "SplitHorizon Removing old source s: " << source);
  };
  auto const refill = [&](auto const& sources, char const* comes) {
    list->sourceIpRefill(sources, 1, goes, [comes](IpAddr source) {
      KEL_TRACE_OF("processSplitHorizon", 4, comes << source);
    });
  };
  if (mode == IgmpV3GroupRecordType::modeIsInclude)
    refill(merged.include(), "SplitHorizon Adding to include s: ");
  else
    refill(merged.exclude(), "SplitHorizon Adding to exclude s: ");
}

/// Holds a port and its group for the length of a change of the group's counts: whoever watches
/// these may remove either, or the adapter.
class CountedPort {
 public:
  explicit CountedPort(KelIgmpIntf& port) : port_(&port), group_(&port.kelIgmpGroup()) {}

 private:
  Kel::Ptr<KelIgmpIntf> port_;
  Kel::Ptr<KelIgmpGroup> group_;
};

/// Whether a port's host leaves something out that the hosts of other ports report. May be true
/// also where ports exclude sources, and is for the group's only port.
bool leavesSomethingOut(KelIgmpIntf const& port) {
  SourceCount const& counts = *port.kelIgmpGroup().recordIs();
  if (port.kelIgmpGroup().igmpIntf().size() < 2) return true;
  if (counts.starGCount() != 0) return counts.starGCount() <= (port.starG() ? 1 : 0);
  if (!counts.exclude().empty()) return true;
  for (auto const [source, including] : counts.include())
    if (including < 2 && including <= (port.portInclude(source) != 0 ? 1 : 0)) return true;
  return false;
}

/// Visits the member ports of a group of which leavesSomethingOut() is true.
template <class Visit>
void forEachPortApart(KelIgmpGroup& group, Visit visit) {
  auto const forEachOf = [&](auto isApart) {
    for (auto const& [intf, port] : group.igmpIntf())
      if (isApart(*port)) visit(intf);
  };
  SourceCount const& counts = *group.recordIs();
  bool const severalPorts = group.igmpIntf().size() > 1;
  if (severalPorts && counts.starGCount() > 1) return;
  if (!severalPorts || counts.starGCount() != 0 || !counts.exclude().empty()) {
    forEachOf(leavesSomethingOut);
    return;
  }
  for (auto const [source, including] : counts.include())
    if (including < 2)
      forEachOf([source = source, including = including](KelIgmpIntf const& port) {
        return including <= (port.portInclude(source) != 0 ? 1 : 0);
      });
}

/// Picks any source.
constexpr auto any = [](IpAddr /*source*/) { return true; };

/// Whether a decision on a record is traced step by step.
bool decisionsAreTraced() {
  return kelTraceHandle.wanted(4) || kelTraceHandle.wanted(8) || kelTraceHandle.wanted(9);
}

}  // namespace

// ---- AdapterSm

AdapterSm::AdapterSm(VlanId vlanId, Kel::Ptr<AdapterVlanConfig const> const& adapterConfig,
                     Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir,
                     Kel::Ptr<IgmpContextStatus const> const& coreStatus)
    : vlanId_(vlanId),
      activity_(Kel::make<Kel::ActivityConfig>()),
      igmpHostDir_(std::move(igmpHostDir)),
      sharedRecords_(Kel::make<Igmp::SharedRecords>()),
      changed_(Kel::make<Changed>(this)) {
  if (adapterConfig) adapterConfig_ = Kel::make<KelAdapterConfig>(adapterConfig, this);
  if (coreStatus) coreStatus_ = Kel::make<KelCoreStatus>(coreStatus, this);
  handleInitialized();
  reconcileGroups();
}

AdapterSm::~AdapterSm() {
  AdapterSm::kelDoZombieReactors(true);
  changed_->adapterHasGone();
}

void AdapterSm::requireConstructedWith(Kel::Ptr<AdapterVlanConfig const> const& adapterConfig,
                                       Kel::Ptr<Igmp::IgmpHostDir> const& igmpHostDir,
                                       Kel::Ptr<IgmpContextStatus const> const& coreStatus) const {
  Kel::requireEqual("adapterConfig", adapterConfig, this->adapterConfig());
  Kel::requireEqual("igmpHostDir", igmpHostDir, igmpHostDir_);
  Kel::requireEqual("coreStatus", coreStatus, this->coreStatus());
}

Kel::Ptr<AdapterVlanConfig const> AdapterSm::adapterConfig() const {
  return adapterConfig_ ? adapterConfig_->notifier() : nullptr;
}

Kel::Ptr<IgmpContextStatus const> AdapterSm::coreStatus() const {
  return coreStatus_ ? coreStatus_->notifier() : nullptr;
}

void AdapterSm::coreStatusIs(Kel::Ptr<IgmpContextStatus const> const& status) {
  Kel::nonNull(status, "Bridging::IgmpSnooping::Proxy::AdapterSm", "coreStatus");
  if (status != coreStatus()) coreStatus_->notifierIs(status);
}

Kel::Ptr<KelIgmpGroup> AdapterSm::newIgmpGroup(Kel::Ptr<IgmpGroup const> const& group) {
  return Kel::make<KelIgmpGroup>(activity_, group, this);
}

Kel::Ptr<KelIgmpGroup> AdapterSm::igmpGroupIs(Kel::Ptr<IgmpGroup const> const& group) {
  Kel::nonNull(group, "Bridging::IgmpSnooping::Proxy::AdapterSm", "igmpGroup");
  return igmpGroup_.watch(group->addr(), group, [&] { return newIgmpGroup(group); });
}

void AdapterSm::hasNotificationActiveIs(bool active) {
  if (adapterConfig_) adapterConfig_->hasNotificationActiveIs(active);
  if (coreStatus_) coreStatus_->hasNotificationActiveIs(active);
  igmpGroup_.hasNotificationActiveIs(active);
}

void AdapterSm::kelDoZombieReactors(bool zombie) {
  if (adapterConfig_) adapterConfig_->kelDoZombieReactors(zombie);
  if (coreStatus_) coreStatus_->kelDoZombieReactors(zombie);
  igmpGroup_.kelDoZombieReactors(zombie);
}

void AdapterSm::kel_handleIgmpGroup(KelIgmpGroup& reactor) {
  reactor.handleDelete();
}

void AdapterSm::followGroup(IpAddr address) {
  if (auto const group = coreStatus()->group(address))
    igmpGroupIs(group);
  else
    igmpGroupDel(address);
}

void AdapterSm::reconcileGroups() {
  // The handlers that clearing a group runs may go over to another status.
  auto const status = coreStatus();
  igmpGroup_.reconcile(status->group(), [this](IpAddr address) { followGroup(address); });
}

void AdapterSm::handleInitialized() {
  KEL_TRACE(9, "AdapterSm::handleInitialized");
  KEL_ASSERT(coreStatus(), "coreStatus()");
  KEL_ASSERT(adapterConfig() && adapterConfig()->vlanId() == vlanId(),
             "adapterConfig()->vlanId() == vlanId()");
  updateIgmpHost();
  initializedIs(true);
}

// Whatever is written into hosts may run handlers that remove groups, keys, or this adapter. So the
// walks over keys and groups hold the adapter, and pass over what has gone meanwhile.

void AdapterSm::updateIgmpHost() {
  KEL_TRACE(9, "AdapterSm::updateIgmpHost");
  Kel::Ptr<AdapterSm> const self(this);
  std::vector<PlacedGroup> changed;
  addChangedGroups(changed, 0);
  for (auto next = changed.begin(); next != changed.end();) {
    auto const [place, address] = *next++;
    Kel::Ptr<KelIgmpGroup> const group = kelIgmpGroup(address);
    if (!group || !group->igmpHostChanged()) continue;
    std::uint64_t const additions = changed_->additions();
    updateRecords(*group);
    if (additions != changed_->additions()) {  // by handlers of what was written
      changed.erase(changed.begin(), next);
      addChangedGroups(changed, place + 1);
      next = changed.begin();
    }
  }
}

/// Adds the flagged groups whose place in igmpGroup is `firstPlace` or behind it, and sorts all.
void AdapterSm::addChangedGroups(std::vector<PlacedGroup>& groups, std::uint32_t firstPlace) const {
  changed_->forEach([&](KelIgmpGroup const& group) {
    std::uint32_t const place = igmpGroup_.position(group.addr());
    if (place != igmpGroup_.absent && place >= firstPlace) groups.emplace_back(place, group.addr());
  });
  std::sort(groups.begin(), groups.end());
}

/// Rewrites every host's record of a group that is flagged, and takes the flag back.
void AdapterSm::updateRecords(KelIgmpGroup& group) {
  KeyedHosts::Sources const sources = keyedHostSources();
  AdapterVlanConfig::HostKeys const& keys = sources.config.hostKey();
  Kel::Ptr<KeyedHosts const> const hosts = keyedHosts(sources);
  bool sharing = !decisionsAreTraced() && hosts->size() > 1;
  CommonRecord::Record const common = sharing ? commonRecord(group) : nullptr;
  KeyedHosts::Marks apart;
  if (sharing) forEachPortApart(group, [&](IntfId const& intf) { hosts->mark(intf, apart); });
  Igmp::SharedRecords::Renewal renewal(sharedRecords_, group.addr(), common, group.recordNumber_);
  for (std::uint32_t i = 0; !group.isZombie(); ++i) {
    if (sharing) i = hosts->reach(renewal, apart, i);
    if (i == hosts->size()) break;
    PortKey const& key = hosts->key(i);
    if (keys.position(key, i) == keys.absent) continue;
    KEL_TRACE_OF("updateIgmpHost", 4, "AdapterSm::updateIgmpHost key " << key);
    std::uint32_t place = hosts->place(i);
    rewriteRecord(key, group, place);
    sharing = sharing && !decisionsAreTraced() && hosts->isUpToDate(sources) &&
              common == commonRecord(group);
  }
  group.igmpHostChangedIs(false);
}

KeyedHosts::Sources AdapterSm::keyedHostSources() const {
  return {*adapterConfig_->notifier(), *igmpHostDir_, *sharedRecords_};
}

Kel::Ptr<KeyedHosts const> const& AdapterSm::keyedHosts(KeyedHosts::Sources const& sources) {
  if (!keyedHosts_ || !keyedHosts_->isUpToDate(sources))
    keyedHosts_ = Kel::make<KeyedHosts>(
        sources, [this](PortKey const& key, std::uint32_t& place) { return igmpHost(key, place); });
  return keyedHosts_;
}

void AdapterSm::newIgmpHost(PortKey const& key) {
  KEL_TRACE(9, "AdapterSm::newIgmpHost key " << key);
  if (adapterConfig()->hostKey(key)) {
    Kel::Ptr<AdapterSm> const self(this);
    std::uint32_t hostPlace = KeyedHosts::absent;
    for (IpAddr const address : igmpGroup_.keys()) {
      if (!adapterConfig()->hostKey(key)) break;
      Kel::Ptr<KelIgmpGroup> const group = kelIgmpGroup(address);
      if (group && !group->isZombie()) rewriteRecord(key, *group, hostPlace);
    }
  } else if (auto const host = igmpHostDir_->igmpHost(key.hostName())) {
    host->v3groupDelAll();
  }
}

void AdapterSm::clearGroup(IpAddr group) {
  KEL_TRACE(9, "AdapterSm::clearGroup " << group);
  Kel::Ptr<AdapterSm> const self(this);
  KeyedHosts::Sources const sources = keyedHostSources();
  AdapterVlanConfig::HostKeys const& keys = sources.config.hostKey();
  Kel::Ptr<KeyedHosts const> const hosts = keyedHosts(sources);
  std::uint32_t number = Igmp::SharedRecords::none;
  Igmp::SharedRecords::Renewal renewal(sharedRecords_, group, nullptr, number);
  bool sharing = !decisionsAreTraced();
  for (std::uint32_t i = 0;; ++i) {
    if (sharing) i = hosts->reach(renewal, {}, i);
    if (i == hosts->size()) break;
    PortKey const& key = hosts->key(i);
    if (keys.position(key, i) == keys.absent) continue;
    KEL_TRACE(4, "AdapterSm::clearGroup key " << key);
    std::uint32_t place = hosts->place(i);
    Kel::Ptr<Igmp::IgmpHost> const host(igmpHost(key, place));
    if (!host) {
      // The hosts of a VLAN go together: where one is missing the others are about to go too.
      KEL_TRACE(0, "No igmpHost");
      return;
    }
    host->v3groupDel(group);
    sharing = sharing && !decisionsAreTraced() && hosts->isUpToDate(sources);
  }
}

void AdapterSm::processSplitHorizon(PortKey const& key, IpAddr group) {
  std::uint32_t hostPlace = KeyedHosts::absent;
  rewriteRecord(key, *kelIgmpGroup(group), hostPlace);
}

/// Rewrites a single host's record.
void AdapterSm::rewriteRecord(PortKey const& key, KelIgmpGroup& group, std::uint32_t& hostPlace) {
  Kel::Ptr<AdapterSm> const self(this);
  KelIgmpIntf const* const memberPort = group.igmpIntf().find(key.intfId());
  bool const isApart = memberPort && leavesSomethingOut(*memberPort);
  if (decisionsAreTraced() || isApart || !shareRecord(key, group, hostPlace))
    processSplitHorizon(key, group, hostPlace);
}

void AdapterSm::processSplitHorizon(PortKey const& key, KelIgmpGroup& group,
                                    std::uint32_t& hostPlace) {
  IpAddr const groupAddress = group.addr();
  KEL_TRACE(8, "KelIgmpIntf::processSplitHorizon() g: " << groupAddress << " hostKey " << key);
  Kel::Ptr<AdapterSm> const self(this);
  KelIgmpIntf const* const memberPort = group.igmpIntf().find(key.intfId());
  ScratchCounts const merged(spareCounts_);
  if (memberPort) {
    memberPort->subtract(*merged);
  } else if (mergeMemberPorts(group, *merged)) {
    KEL_TRACE(4, "non Group Intf: our excludes did not match others g: " << groupAddress);
    merged->starGCountIs(1);
  }
  Kel::Ptr<Igmp::IgmpHost> const host(igmpHost(key, hostPlace));
  if (!host) {
    KEL_TRACE(0, "No igmpHost");
    return;
  }
  bool const ownPortAlone = memberPort && group.igmpIntf().size() == 1;
  writeRecord(*host, group, *merged, ownPortAlone);
}

/// @param place where it was found before, if it was; afterwards where it is.
Igmp::IgmpHost* AdapterSm::igmpHost(PortKey const& key, std::uint32_t& place) const {
  Igmp::IgmpHost* const host = igmpHostDir_->igmpHost().find(key.hostName(), place);
  if (host) host->v3groupSharedIs(sharedRecords_);
  return host;
}

/// Gives a host that leaves nothing out the record of what all member ports want, which all such
/// hosts share. Returns false where that could be noticed, or there is no such host.
bool AdapterSm::shareRecord(PortKey const& key, KelIgmpGroup& group, std::uint32_t& hostPlace) {
  Igmp::IgmpHost* const host = igmpHost(key, hostPlace);
  if (!host) return false;
  if (CommonRecord::Record const& common = commonRecord(group))
    return host->v3groupShare(common, group.recordNumber_);
  Igmp::IgmpV3GroupRecord const* const present = host->v3group().peek(group.addr());
  if (!present) return !host->v3groupIsHeard();
  if (!present->isShared() && present->isInUse()) return false;
  host->v3groupDel(group.addr());
  return true;
}

CommonRecord::Record const& AdapterSm::commonRecord(KelIgmpGroup& group) {
  auto const make = [&]() -> CommonRecord::Record {
    ScratchCounts const merged(spareCounts_);
    if (mergeMemberPorts(group, *merged)) merged->starGCountIs(1);
    auto const mode = modeOf(*merged);
    if (!mode) return nullptr;
    auto record = Kel::make<Igmp::IgmpV3GroupRecord>(group.addr());
    fill(*record, *mode, *merged);
    return record;
  };
  return group.commonRecord_.of(*group.recordIs(), group.igmpIntf().size(), make);
}

/// Merges what all member ports want, for a host whose own port has no listener. Returns whether
/// ports exclude sources of which no common one is left. That is taken for *,G, and deliberately
/// also where one port excludes and another includes different sources, although RFC 4605
/// section 4.1 would merge these into an exclude list.
bool AdapterSm::mergeMemberPorts(KelIgmpGroup& group, SourceCount& merged) const {
  SourceCount const& global = *group.recordIs();
  merged.starGCountIs(global.starGCount());
  std::uint32_t const memberPortCount = group.igmpIntf().size();
  bool someoneDoesNotExclude = false;
  for (auto const [source, ports] : global.exclude()) {
    if (ports == memberPortCount)
      merged.excludeInc(source, 1);
    else
      someoneDoesNotExclude = true;
  }
  merged.includeRefill(global.include(), 1);
  if (!merged.exclude().empty())  // what any port includes is never excluded
    for (auto const [source, ports] : global.include()) merged.excludeDel(source);
  return someoneDoesNotExclude && merged.exclude().empty();
}

void AdapterSm::writeRecord(Igmp::IgmpHost& host, KelIgmpGroup& group, SourceCount& merged,
                            bool ownPortAlone) {
  Kel::Ptr<Igmp::IgmpV3GroupRecord> record(host.v3group().find(group.addr(), group.recordNumber_));
  if (!record) record = host.v3groupIs(group.addr());
  record->sourceIs();
  record->heardBackIs(ownPortAlone);
  if (auto const mode = modeOf(merged))
    fill(*record, *mode, merged);
  else
    host.v3groupDel(group.addr());
}

// ---- KelCoreStatus

void AdapterSm::KelCoreStatus::notifierIs(Kel::Ptr<IgmpContextStatus const> status) {
  // The handlers that an update runs may remove the adapter, or go over to yet another status.
  Kel::Ptr<AdapterSm> const adapterSm(&owner());
  NotifieeConst::notifierIs(status);
  adapterSm->updateIgmpHost();
  if (status == notifier()) adapterSm->reconcileGroups();
}

// ---- KelIgmpGroup

KelIgmpGroup::KelIgmpGroup(Kel::Ptr<Kel::ActivityConfig> activity,
                           Kel::Ptr<IgmpGroup const> const& group, AdapterSm* adapterSm)
    : ActivityReactor(std::move(activity)), changed_(adapterSm->changed_) {
  watch(group);
  reconcileIntfs();
  handleInitialized();
}

KelIgmpGroup::~KelIgmpGroup() {
  igmpHostChangedIs(false);
}

Kel::Ptr<KelIgmpIntf> KelIgmpGroup::newIgmpIntf(Kel::Ptr<IgmpIntfStatus const> const& status) {
  return Kel::make<KelIgmpIntf>(kelFwkActivity(), status, this);
}

Kel::Ptr<KelIgmpIntf> KelIgmpGroup::igmpIntfIs(Kel::Ptr<IgmpIntfStatus const> const& status) {
  Kel::nonNull(status, "Bridging::IgmpSnooping::Proxy::AdapterSm::KelIgmpGroup", "igmpIntf");
  return igmpIntf_.watch(status->intfId(), status, [&] { return newIgmpIntf(status); });
}

Kel::Ptr<SourceCount> const& KelIgmpGroup::recordIs() {
  if (!record_) record_ = newRecord();
  return record_;
}

void KelIgmpGroup::recordDel() {
  record_ = nullptr;
  commonRecord_.forget();
  for (auto const& [intf, port] : igmpIntf_) port->settlement_.unsettle();
}

void KelIgmpGroup::igmpHostChangedIs(bool changed) {
  if (changed == igmpHostChanged()) return;
  // One that was deleted, but is still held, stays out of the list of its former adapter.
  if (changed && isZombie()) return;
  if (changed)
    changed_->add(changedLink_, *this);
  else
    changed_->remove(changedLink_);
}

void KelIgmpGroup::notifierIs(Kel::Ptr<IgmpGroup const> group) {
  NotifieeConst::notifierIs(std::move(group));
  reconcileIntfs();
}

void KelIgmpGroup::followIntf(IntfId const& intf) {
  if (auto const status = notifier()->intf(intf))
    igmpIntfIs(status);
  else
    igmpIntfDel(intf);
}

void KelIgmpGroup::reconcileIntfs() {
  igmpIntf_.reconcile(notifier()->intf(), [this](IntfId const& intf) { followIntf(intf); });
}

void KelIgmpGroup::hasNotificationActiveIs(bool active) {
  NotifieeConst::hasNotificationActiveIs(active);
  igmpIntf_.hasNotificationActiveIs(active);
}

void KelIgmpGroup::kelDoZombieReactors(bool zombie) {
  // Only the step from live to zombie: the pass comes again when the object itself is destroyed.
  bool const deleted = zombie && !isZombie();
  NotifieeConst::kelDoZombieReactors(zombie);
  igmpIntf_.kelDoZombieReactors(zombie);
  if (!deleted) return;
  if (AdapterSm* const adapterSm = changed_->adapter())
    adapterSm->kel_handleIgmpGroup(*this);
  else
    igmpHostChangedIs(false);
}

void KelIgmpGroup::onIntf(IntfId intf) {
  if (notificationActive()) followIntf(intf);
}

void KelIgmpGroup::handleInitialized() {
  KEL_TRACE(9, "KelIgmpGroup::handleInitialized");
  recordIs();
  initializedIs(true);
}

void KelIgmpGroup::handleDelete() {
  KEL_TRACE(9, "KelIgmpGroup::handleDelete " << addr());
  igmpHostChangedIs(false);
  if (AdapterSm* const adapterSm = changed_->adapter()) adapterSm->clearGroup(addr());
}

// ---- KelIgmpIntf

KelIgmpIntf::KelIgmpIntf(Kel::ActivityConfig* activity,
                         Kel::Ptr<IgmpIntfStatus const> const& status, KelIgmpGroup* group)
    : NotifieeConst(activity ? Delivery::byActivity : Delivery::immediate), kelIgmpGroup_(group) {
  watch(status);
  reconcileMemberships();
}

KelIgmpIntf::~KelIgmpIntf() = default;

Kel::Ptr<KelMembership> KelIgmpIntf::newMembership(
    Kel::Ptr<IgmpMembership const> const& membership) {
  return Kel::make<KelMembership>(kelFwkActivity(), membership, this);
}

Kel::Ptr<KelMembership> KelIgmpIntf::membershipIs(
    Kel::Ptr<IgmpMembership const> const& membership) {
  Kel::nonNull(membership, "Bridging::IgmpSnooping::Proxy::AdapterSm::KelIgmpGroup::KelIgmpIntf",
               "membership");
  Kel::Ptr<KelIgmpIntf> const self(this);
  auto reporter =
      membership_.watch(membership->addr(), membership, [&] { return newMembership(membership); });
  countReporter(*reporter);
  return reporter;
}

void KelIgmpIntf::membershipDel(IpAddr reporter) {
  if (KelMembership* const leaving = membership_.find(reporter)) discountReporter(*leaving);
  membership_.del(reporter);
}

void KelIgmpIntf::modeIs(FilterMode mode) {
  mode_ = mode;
  settlement_.unsettle();
}

void KelIgmpIntf::starGIs(bool starG) {
  if (starG == starG_) return;
  starG_ = starG;
  handleStarG();
}

void KelIgmpIntf::portChangedIs(std::uint16_t count) {
  if (count == portChanged_) return;
  portChanged_ = count;
  processPort();
}

void KelIgmpIntf::portChangedInc(std::uint16_t by) {
  portChangedIs(static_cast<std::uint16_t>(portChanged_ + by));
}

KelIgmpIntf::Count KelIgmpIntf::portCount(FilterMode mode, IpAddr source) const {
  PortSources const& sources = mode == FilterMode::exclude ? portExclude_ : portInclude_;
  Count const* const count = sources.find(source);
  return count ? *count : Count{0};
}

KelIgmpIntf::Count KelIgmpIntf::count(FilterMode mode, IpAddr source, Count by) {
  CountedPort const held(*this);
  settlement_.unsettle();
  Count* const present = listed(mode).find(source);
  Count& count = present ? *present : listed(mode).add(source, 0);
  count = static_cast<Count>(count + by);
  if (by != 0) handleSource(mode, source);
  return portCount(mode, source);
}

void KelIgmpIntf::remove(FilterMode mode, IpAddr source) {
  settlement_.unsettle();
  if (std::uint32_t const at = listed(mode).position(source); at != PortSources::absent)
    listed(mode).takeAt(at);
  handleSource(mode, source);
}

void KelIgmpIntf::handleStarG() {
  CountedPort const held(*this);
  Kel::Ptr<SourceCount> const record = kelIgmpGroup_->recordIs();
  KEL_TRACE(4, "KelIgmpIntf::handleStarG " << intfId() << " group " << group()
                                           << " global starGCount " << record->starGCount());
  if (starG_) {
    KEL_TRACE(4, "KelIgmpIntf::handleStarG Increment global *,G refcount");
    record->starGCountInc(1);
  } else {
    KEL_TRACE(4, "KelIgmpIntf::handleStarG Decrement global *,G refcount");
    record->starGCountDec(1);
  }
  // From three ports on, one more or less changes no host's record: without its own port, each
  // host still has another one that wants every source.
  if (record->starGCount() <= 2) {
    KEL_TRACE(4, "KelIgmpIntf::handleStarG Set host changed " << record->starGCount());
    kelIgmpGroup_->igmpHostChangedIs(true);
  }
}

/// A source's count changed in one of the port's lists.
void KelIgmpIntf::handleSource(FilterMode mode, IpAddr source) {
  char const* const handler =
      mode == FilterMode::exclude ? "handleExcludeSource" : "handleIncludeSource";
  KEL_TRACE_OF(handler, 4, "KelIgmpIntf::" << handler << ' ' << intfId() << " group " << group());
  bool const isListed = portCount(mode, source) != 0;
  KEL_TRACE_OF(
      handler, 4,
      handler << (isListed ? " Increment" : " Decrement") << " global refcount s: " << source);
  CountedPort const held(*this);
  Kel::Ptr<SourceCount> const record = kelIgmpGroup_->recordIs();
  if (isListed)
    incRefCount(record, mode, source);
  else
    decRefCount(record, mode, source);
  kelIgmpGroup_->igmpHostChangedIs(true);
}

void KelIgmpIntf::processPort() {
  CountedPort const held(*this);
  KEL_TRACE(4, "KelIgmpIntf::processPort " << intfId() << " group " << group() << " numMember "
                                           << membership_.size());
  if (isObserved()) {
    mergeReporters(mergedReporters());
  } else if (settlement_.isSettled() && someoneExcludes() == (mode_ == FilterMode::exclude)) {
    mergeChanges();
  } else {
    mergeAll();
  }
}

/// Merges what the reporters want into what the port wants.
void KelIgmpIntf::mergeReporters(ReporterCounts const& reporters) {
  if (reporters.excludingReporters() != 0)
    mergeExcludes(reporters);
  else
    mergeIncludes(reporters);
}

ReporterCounts KelIgmpIntf::mergedReporters() const {
  ReporterCounts reporters;
  for (auto const& [reporter, reactor] : membership_) {
    IgmpMembership const& membership = *reactor->notifier();
    if (membership.filterMode() == FilterMode::exclude)
      KEL_TRACE_OF("processPort", 4, "processPort in exclude mode: " << reporter);
    reporters.addAll(membership.filterMode(), membership.source());
  }
  return reporters;
}

/// Removes from one of the port's lists the sources that `goes` picks.
template <class Goes>
void KelIgmpIntf::removeEach(FilterMode mode, char const* why, Goes goes) {
  for (IpAddr const source : Kel::KeySnapshot<IpAddr>(listed(mode))) {
    if (!goes(source)) continue;
    KEL_TRACE_OF("processPort", 4, why << source);
    remove(mode, source);
  }
}

/// No reporter is in exclude mode: the port includes what any of them includes.
void KelIgmpIntf::mergeIncludes(ReporterCounts const& reporters) {
  starGIs(false);
  modeIs(FilterMode::include);
  removeEach(FilterMode::exclude, "Include case, delete any exclude sources in port ", any);
  removeEach(FilterMode::include, "Delete old include ",
             [&](IpAddr source) { return reporters.include(source) == 0; });
  for (auto const [source, count] : reporters.include()) {
    KEL_TRACE_OF("processPort", 4, "Add include " << source);
    if (portInclude(source) == 0) portIncludeInc(source, 1);
  }
}

/// Some reporter is in exclude mode: the port excludes what every reporter excludes.
void KelIgmpIntf::mergeExcludes(ReporterCounts const& reporters) {
  modeIs(FilterMode::exclude);
  removeEach(FilterMode::include, "Start off by deleting include source ", any);
  std::uint32_t const numMember = membership_.size();
  for (auto const [source, reporting] : reporters.exclude()) {
    auto const count = static_cast<Count>(reporting);
    if (count == numMember) {
      KEL_TRACE_OF("processPort", 4, "All reporters want to exclude this source " << source);
      if (portExclude(source) == 0) portExcludeInc(source, 1);
    } else {
      KEL_TRACE_OF(
          "processPort", 4,
          "Some reporter does not want to exclude this source " << source << " count is " << count);
    }
  }
  for (auto const [source, count] : reporters.include()) {
    // Also where the port does not exclude it, and then another port's count pays for it.
    KEL_TRACE_OF("processPort", 4, "Deleting include source from exclude list " << source);
    portExcludeDel(source);
  }
  removeEach(FilterMode::exclude, "Deleting exclude list source (!= numMember) ",
             [&](IpAddr source) { return reporters.exclude(source) != numMember; });
  starGIfNothingExcluded();
}

void KelIgmpIntf::starGIfNothingExcluded() {
  bool const nothingExcluded = portExclude_.empty();
  if (nothingExcluded)
    KEL_TRACE_OF("processPort", 4,
                 "processPort: starGThere is true " << intfId() << " group " << group());
  starGIs(nothingExcluded);
}

// ---- KelIgmpIntf: evaluations that nobody watches or traces look at what changed alone

/// Whether somebody would see the order of an evaluation, or act in the middle of it.
bool KelIgmpIntf::isObserved() const {
  return kelTraceHandle.wanted(4) || kelIgmpGroup_->recordIs()->watched();
}

void KelIgmpIntf::mergeAll() {
  bool const hearsAll = hearsAllReporters();
  if (counts_) {
    counts_->disjointExcludesIs(SourceCount::noVersion);
    mergeReporters(*counts_);
  } else {
    mergeReporters(mergedReporters());
  }
  if (hearsAll) settlement_.settle(membership_.size());
}

/// The same as mergeReporters() where the port's lists are what the former evaluation made of them,
/// and its mode is to stay.
void KelIgmpIntf::mergeChanges() {
  PortSettlement::Sources const changed = settlement_.takeChanges();
  if (mode_ == FilterMode::exclude)
    mergeChangedExcludes(changed);
  else
    mergeChangedIncludes(changed);
  settlement_.settle(membership_.size());
}

void KelIgmpIntf::mergeChangedIncludes(PortSettlement::Sources const& changed) {
  starGIs(false);
  for (auto const [source, unused] : changed) {
    bool const isWanted = someoneIncludes(source);
    if (isWanted == (portInclude(source) != 0)) continue;
    if (isWanted)
      portIncludeInc(source, 1);
    else
      portIncludeDel(source);
  }
}

void KelIgmpIntf::mergeChangedExcludes(PortSettlement::Sources const& changed) {
  auto const addIfAllExclude = [this](IpAddr source) {
    if (portExclude(source) == 0 && allExclude(source)) portExcludeInc(source, 1);
  };
  auto const deleteUnlessAllExclude = [this](IpAddr source) {
    if (portExclude(source) != 0 && !allExclude(source)) portExcludeDel(source);
  };
  bool const otherReporters = settlement_.reporters() != membership_.size();
  for (auto const [source, unused] : changed) addIfAllExclude(source);
  if (otherReporters)  // what all of them exclude, any of them does
    for (IpAddr const source : firstReporter()->notifier()->source()) addIfAllExclude(source);
  discountIncludes(changed);
  for (auto const [source, unused] : changed) deleteUnlessAllExclude(source);
  if (otherReporters)
    for (IpAddr const source : Kel::KeySnapshot<IpAddr>(portExclude_))
      deleteUnlessAllExclude(source);
  starGIfNothingExcluded();
}

/// In exclude mode each evaluation deletes the included sources from the exclude list once more,
/// which flags the group each time, and takes another one off the count of a source that other
/// ports exclude.
void KelIgmpIntf::discountIncludes(PortSettlement::Sources const& changed) {
  if (!counts_ || counts_->include().empty()) return;
  kelIgmpGroup_->igmpHostChangedIs(true);
  auto const common = includedAndExcludedElsewhere(changed);
  for (IpAddr const source : common) portExcludeDel(source);
  counts_->disjointExcludesIs(common.empty() ? kelIgmpGroup_->recordIs()->excludeVersion()
                                             : SourceCount::noVersion);
}

/// The included sources that are among the group's excludes.
std::vector<IpAddr> KelIgmpIntf::includedAndExcludedElsewhere(
    PortSettlement::Sources const& changed) const {
  SourceCount const& global = *kelIgmpGroup_->recordIs();
  std::vector<IpAddr> common;
  auto const addCommonOf = [&](auto const& sources) {
    for (auto const [source, unused] : sources)
      if (counts_->include().contains(source) && global.exclude().contains(source))
        common.push_back(source);
  };
  if (counts_->disjointExcludes() == global.excludeVersion())
    addCommonOf(changed);
  else if (counts_->include().size() < global.exclude().size())
    addCommonOf(counts_->include());
  else
    addCommonOf(global.exclude());
  return common;
}

// ---- KelIgmpIntf: the reporters, counted as they change

/// Whether all changes of the reporters are heard at once. If so they are counted, where there are
/// several.
bool KelIgmpIntf::hearsAllReporters() {
  if (counts_) return true;
  for (auto const& [address, reporter] : membership_) countReporter(*reporter);
  for (auto const& [address, reporter] : membership_)
    if (reporter->counted() == KelMembership::Counted::no) return false;
  if (membership_.size() < 2) return true;
  counts_ = std::make_unique<ReporterCounts>();
  for (auto const& [address, reporter] : membership_)
    counts_->addAll(reporter->countedMode(), reporter->notifier()->source());
  return true;
}

void KelIgmpIntf::countReporter(KelMembership& reporter) {
  if (reporter.counted() != KelMembership::Counted::no) return;
  if (!counts_) settlement_.unsettle();
  if (!reporter.notificationActive()) {
    counts_.reset();
    settlement_.unsettle();
    return;
  }
  reporter.countedIs(reporter.whatItIs());
  if (counts_) counts_->addAll(reporter.countedMode(), reporter.notifier()->source());
  noteChanges(reporter);
}

void KelIgmpIntf::discountReporter(KelMembership& reporter) {
  if (reporter.counted() == KelMembership::Counted::no) return;
  if (counts_) counts_->removeAll(reporter.countedMode(), reporter.notifier()->source());
  noteChanges(reporter);
  reporter.countedIs(KelMembership::Counted::no);
}

void KelIgmpIntf::loseReporter(KelMembership& reporter) {
  if (reporter.counted() == KelMembership::Counted::no) return;
  reporter.countedIs(KelMembership::Counted::no);
  counts_.reset();
  settlement_.unsettle();
}

void KelIgmpIntf::reporterChangesMode(KelMembership& reporter) {
  if (reporter.counted() == reporter.whatItIs()) return;
  discountReporter(reporter);
  countReporter(reporter);
}

void KelIgmpIntf::reporterChangesSource(KelMembership const& reporter, IpAddr source) {
  IgmpMembership::Sources const& sources = reporter.notifier()->source();
  settlement_.noteChange(source, counts_ ? counts_->size() : sources.size());
  if (!counts_) return;
  if (sources.contains(source))
    counts_->add(reporter.countedMode(), source);
  else
    counts_->remove(reporter.countedMode(), source);
}

void KelIgmpIntf::noteChanges(KelMembership const& reporter) {
  if (!settlement_.isSettled()) return;
  IgmpMembership::Sources const& sources = reporter.notifier()->source();
  std::uint32_t const all = counts_ ? counts_->size() : sources.size();
  for (IpAddr const source : sources) settlement_.noteChange(source, all);
}

// The following hold where all reporters are heard, and so while the port is settled.

KelMembership const* KelIgmpIntf::firstReporter() const {
  return membership_.empty() ? nullptr : (*membership_.begin()).mapped.get();
}

bool KelIgmpIntf::someoneExcludes() const {
  if (counts_) return counts_->excludingReporters() != 0;
  KelMembership const* const reporter = firstReporter();
  return reporter && reporter->countedMode() == FilterMode::exclude;
}

/// In include mode.
bool KelIgmpIntf::someoneIncludes(IpAddr source) const {
  if (counts_) return counts_->include().contains(source);
  KelMembership const* const reporter = firstReporter();
  return reporter && reporter->notifier()->source(source);
}

/// In exclude mode.
bool KelIgmpIntf::allExclude(IpAddr source) const {
  return counts_ ? counts_->exclude(source) == membership_.size()
                 : firstReporter()->notifier()->source(source);
}

void KelIgmpIntf::subtract(SourceCount& result) const {
  SourceCount const& global = *kelIgmpGroup_->recordIs();
  KEL_TRACE(9, "KelIgmpIntf::subtract on intf " << intfId());
  KEL_TRACE(4, "subtract: " << intfId() << "my starG is " << starG_ << " global starG is "
                            << global.starGCount());
  if (global.starGCount() - (starG_ ? 1 : 0) >= 1) {
    KEL_TRACE(4, "subtract: some other port(s) want *,G "
                     << " g: " << group());
    result.starGCountIs(1);
    return;
  }
  bool const othersExclude = subtractExcludes(result);
  subtractIncludes(result);
  if (othersExclude && result.exclude().empty()) {
    KEL_TRACE(4, "subtract: our excludes did not match others g: " << group());
    result.starGCountIs(1);
  }
}

/// Returns whether another port excludes a source that not all of them exclude.
bool KelIgmpIntf::subtractExcludes(SourceCount& result) const {
  std::uint32_t const ports = kelIgmpGroup_->igmpIntf().size();
  bool othersExclude = false;
  for (auto const [source, excluding] : kelIgmpGroup_->recordIs()->exclude()) {
    bool const weExclude = portExclude(source) != 0;
    bool const allOthersExclude = excluding + (weExclude ? 0u : 1u) == ports;
    if (weExclude && !allOthersExclude)
      KEL_TRACE_OF(
          "subtract", 4,
          "subtract: some port wants s: " << source << " g: " << group() << " count " << excluding);
    else
      KEL_TRACE_OF("subtract", 4,
                   "subtract: " << (!allOthersExclude ? "some port does not"
                                    : weExclude       ? "all ports"
                                                      : "all ports except ours")
                                << " want to exclude s: " << source << " g: " << group());
    if (allOthersExclude)
      result.excludeInc(source, 1);
    else if (excluding > (weExclude ? 1 : 0))
      othersExclude = true;
  }
  return othersExclude;
}

void KelIgmpIntf::subtractIncludes(SourceCount& result) const {
  for (auto const [source, including] : kelIgmpGroup_->recordIs()->include()) {
    int others = including;
    if (Count const own = portInclude(source); own != 0) {
      KEL_TRACE_OF("subtract", 8,
                   "subtract: portInclude has " << source << " count " << own << " global count "
                                                << including);
      --others;
    }
    if (others < 1) continue;
    KEL_TRACE_OF("subtract", 4,
                 "subtract: put it in include and knock it off from exclude: " << source << " g: "
                                                                               << group());
    result.includeInc(source, 1);
    result.excludeDel(source);
  }
}

Kel::ActivityConfig* KelIgmpIntf::kelFwkActivity() const {
  return kelIgmpGroup_->kelFwkActivity();
}

void KelIgmpIntf::notifierIs(Kel::Ptr<IgmpIntfStatus const> status) {
  NotifieeConst::notifierIs(std::move(status));
  reconcileMemberships();
}

void KelIgmpIntf::followMembership(IpAddr reporter) {
  if (auto const membership = notifier()->membership(reporter))
    membershipIs(membership);
  else
    membershipDel(reporter);
}

void KelIgmpIntf::reconcileMemberships() {
  membership_.reconcile(notifier()->membership(),
                        [this](IpAddr reporter) { followMembership(reporter); });
}

void KelIgmpIntf::hasNotificationActiveIs(bool active) {
  NotifieeConst::hasNotificationActiveIs(active);
  membership_.hasNotificationActiveIs(active);
}

void KelIgmpIntf::kelDoZombieReactors(bool zombie) {
  NotifieeConst::kelDoZombieReactors(zombie);
  membership_.kelDoZombieReactors(zombie);
}

void KelIgmpIntf::onMembership(IpAddr reporter) {
  if (notificationActive()) followMembership(reporter);
}

// ---- KelMembership

KelMembership::KelMembership(Kel::ActivityConfig* activity,
                             Kel::Ptr<IgmpMembership const> const& membership, KelIgmpIntf* intf)
    : NotifieeConst(activity ? Delivery::byActivity : Delivery::immediate), kelIgmpIntf_(intf) {
  watch(membership);
  handleInitialized();
}

Kel::ActivityConfig* KelMembership::kelFwkActivity() const {
  return kelIgmpIntf_->kelFwkActivity();
}

void KelMembership::notifierIs(Kel::Ptr<IgmpMembership const> membership) {
  // What goes may take this reactor and its port along.
  Kel::Ptr<KelMembership> const self(this);
  CountedPort const held(*kelIgmpIntf_);
  bool const isCounted = counted() != Counted::no;
  kelIgmpIntf_->discountReporter(*this);
  NotifieeConst::notifierIs(std::move(membership));
  if (isCounted) kelIgmpIntf_->countReporter(*this);
  handleFilterMode();
}

void KelMembership::hasNotificationActiveIs(bool active) {
  if (!active && counted() != Counted::no) kelIgmpIntf_->loseReporter(*this);
  NotifieeConst::hasNotificationActiveIs(active);
}

void KelMembership::kelDoZombieReactors(bool zombie) {
  if (zombie && counted() != Counted::no) kelIgmpIntf_->loseReporter(*this);
  NotifieeConst::kelDoZombieReactors(zombie);
}

KelMembership::Counted KelMembership::whatItIs() const {
  return notifier()->filterMode() == FilterMode::exclude ? Counted::excluding : Counted::including;
}

KelMembership::FilterMode KelMembership::countedMode() const {
  return counted() == Counted::excluding ? FilterMode::exclude : FilterMode::include;
}

void KelMembership::onFilterModeAtOnce() {
  if (counted() != Counted::no) kelIgmpIntf_->reporterChangesMode(*this);
}

void KelMembership::onSourceAtOnce(IpAddr source) {
  if (counted() != Counted::no) kelIgmpIntf_->reporterChangesSource(*this, source);
}

void KelMembership::onFilterMode() {
  if (notificationActive()) handleFilterMode();
}

void KelMembership::onSource(IpAddr source) {
  if (notificationActive()) handleSource(source);
}

void KelMembership::handleInitialized() {
  KEL_TRACE(9, "KelMembership::handleInitialized " << addr() << " intf " << kelIgmpIntf_->intfId()
                                                   << " group " << kelIgmpIntf_->group());
  kelIgmpIntf_->starGIs(true);
  initializedIs(true);
}

void KelMembership::handleFilterMode() {
  if (!initialized()) return;
  KEL_TRACE(9, "KelMembership::handleFilterMode");
  kelIgmpIntf_->portChangedInc(1);
}

void KelMembership::handleSource(IpAddr /*source*/) {
  if (!initialized()) return;
  KEL_TRACE(9, "KelMembership::handleSource");
  kelIgmpIntf_->portChangedInc(1);
}

}  // namespace Bridging::IgmpSnooping::Proxy
