#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <ostream>
#include <set>
#include <utility>

#include <gtest/gtest.h>

#include "framework/kel/Activity.h"
#include "proxy/ProxyAdapterSm.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {

using FilterMode = Gmp::Igmp::IgmpFilterMode;
using RecordType = Wirex::IgmpV3GroupRecordType;
using Wirex::IntfId;
using Wirex::IpAddr;
using KelIgmpGroup = AdapterSm::KelIgmpGroup;
using KelIgmpIntf = KelIgmpGroup::KelIgmpIntf;
using KelMembership = KelIgmpIntf::KelMembership;

constexpr IpAddr g1(239, 1, 1, 1), g2(239, 1, 1, 2), g3(239, 1, 1, 3);
constexpr IpAddr s1(192, 0, 2, 1), s2(192, 0, 2, 2), s3(192, 0, 2, 3), s4(192, 0, 2, 4);
constexpr IpAddr r1(10, 0, 0, 1), r2(10, 0, 0, 2), r3(10, 0, 0, 3);

/// Sources in ascending order, whatever the order of the collection they came from.
using Sources = std::set<IpAddr>;

inline std::ostream& operator<<(std::ostream& out, Sources const& sources) {
  out << '{';
  char const* separator = "";
  for (IpAddr const source : sources) out << std::exchange(separator, ", ") << source;
  return out << '}';
}

/// A host's record of a group, as a value.
struct Record {
  RecordType type;
  Sources sources;

  friend bool operator==(Record const&, Record const&) = default;
  friend std::ostream& operator<<(std::ostream& out, Record const& record) {
    return out << record.type << ' ' << record.sources;
  }
};

inline Record including(Sources sources) {
  return {RecordType::modeIsInclude, std::move(sources)};
}
inline Record excluding(Sources sources) {
  return {RecordType::modeIsExclude, std::move(sources)};
}
inline Record const everything = excluding({});
inline std::optional<Record> const nothing;

using CountBySource = std::map<IpAddr, SourceCount::Count>;

/// The counts of a `SourceCount`, as a value.
struct Counts {
  SourceCount::Count starG = 0;
  CountBySource include;
  CountBySource exclude;

  friend bool operator==(Counts const&, Counts const&) = default;
  friend std::ostream& operator<<(std::ostream& out, Counts const& counts) {
    out << "*,G " << counts.starG;
    for (auto const& [source, count] : counts.include) out << " include " << source << ' ' << count;
    for (auto const& [source, count] : counts.exclude) out << " exclude " << source << ' ' << count;
    return out;
  }
};

/// Nothing but ports that want everything.
inline Counts starG(SourceCount::Count ports) {
  return {ports, {}, {}};
}

template <class Collection>
CountBySource countsOf(Collection const& collection) {
  CountBySource counts;
  for (auto const [source, count] : collection) counts[source] = count;
  return counts;
}

inline Counts countsOf(SourceCount const& counts) {
  return {counts.starGCount(), countsOf(counts.include()), countsOf(counts.exclude())};
}

/// One reporter of a group behind a port. What it reports has arrived at the adapter, but not yet
/// in the hosts' records.
class Reporter {
 public:
  explicit Reporter(Kel::Ptr<IgmpMembership> membership) : membership_(std::move(membership)) {}

  Reporter const& include(Sources const& sources) const {
    return changeTo(FilterMode::include, sources);
  }
  Reporter const& exclude(Sources const& sources) const {
    return changeTo(FilterMode::exclude, sources);
  }

 private:
  Reporter const& changeTo(FilterMode mode, Sources const& sources) const {
    membership_->filterModeIs(mode);
    for (IpAddr const source : membership_->source().keys())
      if (!sources.contains(source)) membership_->sourceDel(source);
    for (IpAddr const source : sources) membership_->sourceIs(source);
    Kel::runActivities();
    return *this;
  }

  Kel::Ptr<IgmpMembership> membership_;
};

/// A port of the VLAN on which listeners report.
class Port {
 public:
  Port(Kel::Ptr<IgmpContextStatus> status, char const* name)
      : status_(std::move(status)), intf_(name) {}

  /// The first report of a group, as yet without filter mode and sources.
  Reporter reports(IpAddr group, IpAddr reporter = r1) const {
    Reporter const reports(status_->groupIs(group)->intfIs(intf_)->membershipIs(reporter));
    Kel::runActivities();
    return reports;
  }

  /// The reporter is taken out without having turned to include mode without sources.
  void loses(IpAddr group, IpAddr reporter = r1) const {
    status_->group(group)->intf(intf_)->membershipDel(reporter);
    Kel::runActivities();
  }

  void isTakenOutOf(IpAddr group) const {
    status_->group(group)->intfDel(intf_);
    Kel::runActivities();
  }

 private:
  Kel::Ptr<IgmpContextStatus> status_;
  IntfId intf_;
};

/// A VLAN with its snooping status, its hosts, and the adapter between them.
struct ProxiedVlan {
  PortKey key(char const* port) const { return {vlanId, IntfId(port)}; }

  /// The host on a port, made if need be; `proxyOn` also gives the adapter its key.
  Kel::Ptr<Igmp::IgmpHost> host(char const* port) const {
    return hosts->igmpHostIs(key(port).stringvalue());
  }
  Kel::Ptr<Igmp::IgmpHost> proxyOn(char const* port) const {
    auto made = host(port);
    config->hostKeyIs(key(port), true);
    return made;
  }

  Port port(char const* name) const { return {status, name}; }

  /// What the status holds of a reporter.
  Kel::Ptr<IgmpMembership> snooped(char const* port, IpAddr reporter = r1,
                                   IpAddr address = g1) const {
    return status->group(address)->intf(IntfId(port))->membership(reporter);
  }

  /// The end of the agent's turn: what was reported goes into the hosts' records.
  void publish() const {
    Kel::runActivities();
    status->newIgmpReportNotify();
  }

  /// What the host on a port reports for a group.
  std::optional<Record> record(char const* port, IpAddr address = g1) const {
    auto const found = hosts->igmpHost(key(port).stringvalue());
    auto const record = found ? found->v3group(address) : nullptr;
    if (!record) return nothing;
    EXPECT_TRUE(record->source()) << "a record without a source list";
    Record seen{record->filterMode(), {}};
    for (auto const [source, value] : record->source()->sourceIp()) {
      EXPECT_EQ(value, 1) << source;
      EXPECT_TRUE(seen.sources.insert(source).second) << source << " stands in the list twice";
    }
    return seen;
  }

  Kel::Ptr<KelIgmpGroup> group(IpAddr address = g1) const { return adapter->kelIgmpGroup(address); }
  Kel::Ptr<KelIgmpIntf> intf(char const* port, IpAddr address = g1) const {
    return group(address)->igmpIntf(IntfId(port));
  }
  Counts counts(IpAddr address = g1) const { return countsOf(*group(address)->record()); }
  bool changed(IpAddr address = g1) const { return group(address)->igmpHostChanged(); }

  VlanId vlanId{10};
  Kel::Ptr<IgmpContextStatus> status = Kel::make<IgmpContextStatus>(vlanId);
  Kel::Ptr<AdapterVlanConfig> config = Kel::make<AdapterVlanConfig>(vlanId);
  Kel::Ptr<Igmp::IgmpHostDir> hosts = Kel::make<Igmp::IgmpHostDir>();
  Kel::Ptr<AdapterSm> adapter = adapterSmFactory(vlanId, config, hosts, status);
};

/// Tests of one VLAN.
class SnoopedVlan : public ::testing::Test, protected ProxiedVlan {};

}  // namespace Bridging::IgmpSnooping::Proxy::Testing
