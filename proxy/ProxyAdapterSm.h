#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include "framework/entities/AdapterVlanConfig.h"
#include "framework/entities/IgmpContextStatus.h"
#include "framework/kel/Activity.h"
#include "framework/kel/Reactors.h"
#include "platform/igmp/IgmpHost.h"
#include "platform/igmp/SharedRecords.h"
#include "proxy/ChangedGroups.h"
#include "proxy/CommonRecord.h"
#include "proxy/KeyedHosts.h"
#include "proxy/PortSettlement.h"
#include "proxy/ReporterCounts.h"
#include "proxy/SourceCount.h"

namespace Bridging::IgmpSnooping::Proxy {

/// Aggregates the membership of one VLAN: follows its snooping status, counts what each group's
/// member ports want, and writes into every host of the VLAN the group records that it must
/// report, which are the membership of all ports but its own (RFC 4605 section 4.1 merges, split
/// horizon leaves out). Group, port and membership reactors hear of changes when the activity
/// runs; records are rewritten when the agent raises `newIgmpReport`. Single-threaded.
class KEL_EXPORT AdapterSm : public Kel::PtrInterface {
 public:
  class KelAdapterConfig;
  class KelCoreStatus;
  class KelIgmpGroup;
  using IgmpGroups = Kel::Reactors<Wirex::IpAddr, KelIgmpGroup>;

  /// Makes one; the arguments are the constructor's.
  template <class... Arguments>
  static Kel::Ptr<AdapterSm> AdapterSmIs(Arguments&&... arguments) {
    return Kel::make<AdapterSm>(std::forward<Arguments>(arguments)...);
  }

  AdapterSm(VlanId vlanId, Kel::Ptr<AdapterVlanConfig const> const& adapterConfig,
            Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir,
            Kel::Ptr<IgmpContextStatus const> const& coreStatus);
  ~AdapterSm() override;

  /// For find-or-create: throws Kel::NameInUseException where an argument differs.
  void requireConstructedWith(Kel::Ptr<AdapterVlanConfig const> const& adapterConfig,
                              Kel::Ptr<Igmp::IgmpHostDir> const& igmpHostDir,
                              Kel::Ptr<IgmpContextStatus const> const& coreStatus) const;

  VlanId vlanId() const { return vlanId_; }
  Kel::Ptr<AdapterVlanConfig const> adapterConfig() const;
  Kel::Ptr<Igmp::IgmpHostDir> const& igmpHostDir() const { return igmpHostDir_; }
  Kel::Ptr<IgmpContextStatus const> coreStatus() const;
  /// Goes over to another status of the VLAN; the group reactors are reconciled with it.
  void coreStatusIs(Kel::Ptr<IgmpContextStatus const> const& status);
  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  /// The reactor on a snooped group, or null.
  Kel::Ptr<KelIgmpGroup> kelIgmpGroup(Wirex::IpAddr group) const { return igmpGroup_.get(group); }
  IgmpGroups const& igmpGroup() const { return igmpGroup_; }
  Kel::Ptr<KelIgmpGroup> newIgmpGroup(Kel::Ptr<IgmpGroup const> const& group);
  Kel::Ptr<KelIgmpGroup> igmpGroupIs(Kel::Ptr<IgmpGroup const> const& group);
  void igmpGroupDel(Wirex::IpAddr group) { igmpGroup_.del(group); }

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

  void handleInitialized();
  /// Rewrites the records of every host for the groups that changed.
  void updateIgmpHost();
  /// Rewrites the records of one host for every group, or drops them if the host has gone.
  void newIgmpHost(PortKey const& key);
  /// Removes a group from the reports of all hosts.
  void clearGroup(Wirex::IpAddr group);
  /// Rewrites one host's record of one group, which must have a reactor.
  void processSplitHorizon(PortKey const& key, Wirex::IpAddr group);

 private:
  using Changed = ChangedGroups<AdapterSm, KelIgmpGroup>;

  /// The framework's zombie pass calls this for a group reactor that is about to go.
  void kel_handleIgmpGroup(KelIgmpGroup& reactor);
  void followGroup(Wirex::IpAddr address);
  void reconcileGroups();
  /// A group and its place in igmpGroup.
  using PlacedGroup = std::pair<std::uint32_t, Wirex::IpAddr>;
  void addChangedGroups(std::vector<PlacedGroup>& groups, std::uint32_t firstPlace) const;
  void updateRecords(KelIgmpGroup& group);
  KeyedHosts::Sources keyedHostSources() const;
  Kel::Ptr<KeyedHosts const> const& keyedHosts(KeyedHosts::Sources const& sources);
  void rewriteRecord(PortKey const& key, KelIgmpGroup& group, std::uint32_t& hostPlace);
  void processSplitHorizon(PortKey const& key, KelIgmpGroup& group, std::uint32_t& hostPlace);
  Igmp::IgmpHost* igmpHost(PortKey const& key, std::uint32_t& place) const;
  bool shareRecord(PortKey const& key, KelIgmpGroup& group, std::uint32_t& hostPlace);
  CommonRecord::Record const& commonRecord(KelIgmpGroup& group);
  bool mergeMemberPorts(KelIgmpGroup& group, SourceCount& merged) const;
  void writeRecord(Igmp::IgmpHost& host, KelIgmpGroup& group, SourceCount& merged,
                   bool ownPortAlone);

  VlanId vlanId_;
  bool initialized_ = false;
  Kel::Ptr<Kel::ActivityConfig> activity_;
  Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir_;
  Kel::Ptr<KelAdapterConfig> adapterConfig_;
  Kel::Ptr<KelCoreStatus> coreStatus_;
  Kel::Ptr<SourceCount> spareCounts_;
  Kel::Ptr<Igmp::SharedRecords> const sharedRecords_;
  Kel::Ptr<KeyedHosts const> keyedHosts_;
  Kel::Ptr<Changed> changed_;
  IgmpGroups igmpGroup_;
};

/// Follows the keys of the hosts to fill.
class KEL_EXPORT AdapterSm::KelAdapterConfig final
    : public Kel::ReactorFor<AdapterSm, AdapterVlanConfig::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void adapterSmIs(AdapterSm* adapterSm) { ownerIs(adapterSm); }

  void onHostKey(PortKey const& key) override {
    if (notificationActive()) owner().newIgmpHost(key);
  }
};

/// Follows the groups of the VLAN, and the agent's word that reports were processed.
class KEL_EXPORT AdapterSm::KelCoreStatus final
    : public Kel::ReactorFor<AdapterSm, IgmpContextStatus::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void adapterSmIs(AdapterSm* adapterSm) { ownerIs(adapterSm); }

  void notifierIs(Kel::Ptr<IgmpContextStatus const> status) override;
  void onGroup(Wirex::IpAddr address) override {
    if (!isZombie()) owner().followGroup(address);
  }
  void onNewIgmpReport() override {
    if (notificationActive()) owner().updateIgmpHost();
  }
};

/// One snooped group: its member ports' reactors and what all of them together want.
class KEL_EXPORT AdapterSm::KelIgmpGroup final
    : public Kel::ActivityReactor<IgmpGroup::NotifieeConst> {
 public:
  class KelIgmpIntf;
  using IgmpIntfs = Kel::Reactors<Wirex::IntfId, KelIgmpIntf>;

  KelIgmpGroup(Kel::Ptr<Kel::ActivityConfig> activity, Kel::Ptr<IgmpGroup const> const& group,
               AdapterSm* adapterSm);
  ~KelIgmpGroup() override;

  Wirex::IpAddr addr() const { return notifier()->addr(); }

  /// One reactor per member port.
  IgmpIntfs const& igmpIntf() const { return igmpIntf_; }
  /// The reactor on a port, or null.
  Kel::Ptr<KelIgmpIntf> igmpIntf(Wirex::IntfId const& intf) const { return igmpIntf_.get(intf); }
  Kel::Ptr<KelIgmpIntf> newIgmpIntf(Kel::Ptr<IgmpIntfStatus const> const& status);
  Kel::Ptr<KelIgmpIntf> igmpIntfIs(Kel::Ptr<IgmpIntfStatus const> const& status);
  void igmpIntfDel(Wirex::IntfId const& intf) { igmpIntf_.del(intf); }

  /// The counts over all member ports. Port reactors count before the group's own first pass, so
  /// whoever comes first makes them.
  Kel::Ptr<SourceCount> const& record() const { return record_; }
  static Kel::Ptr<SourceCount> newRecord() { return SourceCount::SourceCountIs(); }
  Kel::Ptr<SourceCount> const& recordIs();
  void recordDel();

  /// Whether the counts may have changed since the hosts' records were last written.
  bool igmpHostChanged() const { return changedLink_.isListed(); }
  void igmpHostChangedIs(bool changed);

  Kel::ActivityConfig* actsm() const { return kelFwkActivity(); }
  void notifierIs(Kel::Ptr<IgmpGroup const> group) override;
  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;
  void onIntf(Wirex::IntfId intf) override;

  void handleInitialized();
  void handleDelete();

 private:
  friend class AdapterSm;

  void followIntf(Wirex::IntfId const& intf);
  void reconcileIntfs();

  Kel::Ptr<Changed> changed_;  // the adapter's
  Changed::Link changedLink_;
  Kel::Ptr<SourceCount> record_;
  CommonRecord commonRecord_;
  std::uint32_t recordNumber_ = Igmp::SharedRecords::none;  // in most hosts, where they have one
  IgmpIntfs igmpIntf_;
};

/// One member port of a group: the merged filter of its reporters.
///
/// 1. The port contributes 1 to the group's `starGCount` while `starG` is set, and 1 to a source's
///    count for each entry of `portInclude` and `portExclude`, made and removed by `processPort`.
/// 2. A port that goes takes nothing back; neither does a reporter that goes. The agent turns a
///    leaving reporter into include mode without sources first.
class KEL_EXPORT AdapterSm::KelIgmpGroup::KelIgmpIntf final : public IgmpIntfStatus::NotifieeConst {
 public:
  class KelMembership;
  using Memberships = Kel::Reactors<Wirex::IpAddr, KelMembership>;
  using FilterMode = ReporterCounts::FilterMode;
  using Count = SourceCount::Count;
  using PortSources = Kel::Table<Wirex::IpAddr, Count>;

  KelIgmpIntf(Kel::ActivityConfig* activity, Kel::Ptr<IgmpIntfStatus const> const& status,
              KelIgmpGroup* group);
  ~KelIgmpIntf() override;

  Wirex::IntfId const& intfId() const { return notifier()->intfId(); }
  KelIgmpGroup& kelIgmpGroup() const { return *kelIgmpGroup_; }

  /// One reactor per reporter.
  Memberships const& membership() const { return membership_; }
  /// The reactor on a reporter, or null.
  Kel::Ptr<KelMembership> membership(Wirex::IpAddr reporter) const {
    return membership_.get(reporter);
  }
  Kel::Ptr<KelMembership> newMembership(Kel::Ptr<IgmpMembership const> const& membership);
  Kel::Ptr<KelMembership> membershipIs(Kel::Ptr<IgmpMembership const> const& membership);
  void membershipDel(Wirex::IpAddr reporter);

  FilterMode mode() const { return mode_; }
  void modeIs(FilterMode mode);

  /// Whether the port wants every source of the group.
  bool starG() const { return starG_; }
  void starGIs(bool starG);

  /// Counts the changes of the port's reporters; each change evaluates the port.
  std::uint16_t portChanged() const { return portChanged_; }
  void portChangedIs(std::uint16_t count);
  void portChangedInc(std::uint16_t by);

  /// The sources that the port includes. Deleting one counts the group's sources again, whether it
  /// was there or not.
  PortSources const& portInclude() const { return portInclude_; }
  Count portInclude(Wirex::IpAddr source) const { return portCount(FilterMode::include, source); }
  Count portIncludeInc(Wirex::IpAddr source, Count by) {
    return count(FilterMode::include, source, by);
  }
  Count portIncludeDec(Wirex::IpAddr source, Count by) {
    return portIncludeInc(source, static_cast<Count>(-by));
  }
  void portIncludeDel(Wirex::IpAddr source) { remove(FilterMode::include, source); }

  /// The sources that the port excludes; as `portInclude`.
  PortSources const& portExclude() const { return portExclude_; }
  Count portExclude(Wirex::IpAddr source) const { return portCount(FilterMode::exclude, source); }
  Count portExcludeInc(Wirex::IpAddr source, Count by) {
    return count(FilterMode::exclude, source, by);
  }
  Count portExcludeDec(Wirex::IpAddr source, Count by) {
    return portExcludeInc(source, static_cast<Count>(-by));
  }
  void portExcludeDel(Wirex::IpAddr source) { remove(FilterMode::exclude, source); }

  /// Fills a fresh `result` with what the group's other ports want.
  void subtract(SourceCount& result) const;

  Kel::ActivityConfig* actsm() const { return kelFwkActivity(); }
  Kel::ActivityConfig* kelFwkActivity() const override;  // the group's
  void notifierIs(Kel::Ptr<IgmpIntfStatus const> status) override;
  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;
  void onMembership(Wirex::IpAddr reporter) override;

  void handleStarG();
  void handleIncludeSource(Wirex::IpAddr source) { handleSource(FilterMode::include, source); }
  void handleExcludeSource(Wirex::IpAddr source) { handleSource(FilterMode::exclude, source); }
  void processPort();

 private:
  friend class KelIgmpGroup;
  friend class KelMembership;

  /// What the port lists in a mode.
  PortSources& listed(FilterMode mode) {
    return mode == FilterMode::exclude ? portExclude_ : portInclude_;
  }
  Count portCount(FilterMode mode, Wirex::IpAddr source) const;
  Count count(FilterMode mode, Wirex::IpAddr source, Count by);
  void remove(FilterMode mode, Wirex::IpAddr source);
  template <class Goes>
  void removeEach(FilterMode mode, char const* why, Goes goes);
  void handleSource(FilterMode mode, Wirex::IpAddr source);
  bool subtractExcludes(SourceCount& result) const;
  void subtractIncludes(SourceCount& result) const;

  // The reporters' lists are counted as they change, by reactors that hear of it at once. A port
  // with one reporter asks that one.
  void countReporter(KelMembership& reporter);
  void discountReporter(KelMembership& reporter);
  /// A reporter is not heard any more, although it still is one.
  void loseReporter(KelMembership& reporter);
  void reporterChangesMode(KelMembership& reporter);
  void reporterChangesSource(KelMembership const& reporter, Wirex::IpAddr source);
  void noteChanges(KelMembership const& reporter);
  bool hearsAllReporters();
  KelMembership const* firstReporter() const;
  bool someoneExcludes() const;
  bool someoneIncludes(Wirex::IpAddr source) const;
  bool allExclude(Wirex::IpAddr source) const;

  bool isObserved() const;
  ReporterCounts mergedReporters() const;
  void mergeReporters(ReporterCounts const& reporters);
  void mergeIncludes(ReporterCounts const& reporters);
  void mergeExcludes(ReporterCounts const& reporters);
  void starGIfNothingExcluded();
  void mergeAll();
  void mergeChanges();
  void mergeChangedIncludes(PortSettlement::Sources const& changed);
  void mergeChangedExcludes(PortSettlement::Sources const& changed);
  void discountIncludes(PortSettlement::Sources const& changed);
  std::vector<Wirex::IpAddr> includedAndExcludedElsewhere(
      PortSettlement::Sources const& changed) const;
  void followMembership(Wirex::IpAddr reporter);
  void reconcileMemberships();
  Wirex::IpAddr group() const { return kelIgmpGroup_->addr(); }

  KelIgmpGroup* kelIgmpGroup_;
  [[no_unique_address]] PortSettlement settlement_;  // what follows stands in its padding
  FilterMode mode_ = FilterMode::exclude;
  bool starG_ = false;
  std::uint16_t portChanged_ = 0;
  std::unique_ptr<ReporterCounts> counts_;  // from the second reporter on
  PortSources portInclude_;
  PortSources portExclude_;
  Memberships membership_;
};

/// One reporter on a member port. One that has just appeared counts as *,G, which is what a report
/// without sources means, until its first change evaluates the port.
class KEL_EXPORT AdapterSm::KelIgmpGroup::KelIgmpIntf::KelMembership final
    : public IgmpMembership::NotifieeConst {
 public:
  KelMembership(Kel::ActivityConfig* activity, Kel::Ptr<IgmpMembership const> const& membership,
                KelIgmpIntf* intf);

  Wirex::IpAddr addr() const { return notifier()->addr(); }

  Kel::ActivityConfig* actsm() const { return kelFwkActivity(); }
  Kel::ActivityConfig* kelFwkActivity() const override;  // the port's
  void notifierIs(Kel::Ptr<IgmpMembership const> membership) override;
  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;
  void onFilterMode() override;
  void onSource(Wirex::IpAddr source) override;
  void onFilterModeAtOnce() override;
  void onSourceAtOnce(Wirex::IpAddr source) override;

  void handleInitialized();
  void handleFilterMode();
  void handleSource(Wirex::IpAddr source);

 private:
  friend class KelIgmpIntf;

  /// As what the port counts it.
  enum class Counted : std::uint8_t { no, including, excluding };

  using FilterMode = ReporterCounts::FilterMode;

  Counted whatItIs() const;
  FilterMode countedMode() const;

  Counted counted() const noexcept { return static_cast<Counted>(smallNumber()); }
  void countedIs(Counted counted) noexcept { smallNumberIs(static_cast<unsigned>(counted)); }

  KelIgmpIntf* kelIgmpIntf_;
};

/// Makes the adapter of a VLAN.
/// @param adapterConfig the VLAN's, with the keys of the hosts to fill
/// @param igmpHostDir where the hosts are found by name
/// @param coreStatus the VLAN's snooping status
KEL_EXPORT Kel::Ptr<AdapterSm> adapterSmFactory(VlanId vlanId,
                                                Kel::Ptr<AdapterVlanConfig const> adapterConfig,
                                                Kel::Ptr<Igmp::IgmpHostDir> igmpHostDir,
                                                Kel::Ptr<IgmpContextStatus const> coreStatus);

}  // namespace Bridging::IgmpSnooping::Proxy
