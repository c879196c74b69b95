#pragma once

#include <cstdint>
#include <optional>

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/types/AllowedTrafficDirection.h"
#include "framework/types/IgmpVersion.h"
#include "framework/types/IntfId.h"
#include "framework/types/IpAddr.h"
#include "platform/horix/Clock.h"
#include "platform/igmp/HostGroupRecords.h"
#include "platform/igmp/VlanQueries.h"
#include "platform/wirex/VlanPam.h"

/// The IGMP hosts: one per (port, VLAN), named by the text of its PortKey. The proxy writes them;
/// the host library builds and sends their reports and answers queries.
namespace Igmp {

/// How a host sends, which its port and the configuration of its VLAN say.
struct HostSettings {
  Wirex::MacAddress macAddress{};       ///< of the port; a host that has none yet sends nothing
  Wirex::IpAddr sourceAddress;          ///< of its messages (RFC 9776 section 4.2.13)
  std::uint16_t mtu = 1500;             ///< bytes of an IP datagram on the port
  std::uint8_t robustnessVariable = 2;  ///< 1 to 7 (RFC 9776 section 8.1)
  /// Whether it reports changes of its records unasked. Queries are answered in any case.
  bool reportsUnasked = false;
  /// Whether it reports unasked only because a query was heard on its port. Such a host begins
  /// after a random time, like one that answers (RFC 9776 section 5.2), so that the hosts that hear
  /// a new querier do not all report at once.
  bool reportsSinceQuery = false;
  /// Whether it heeds queries on its port. It heeds those of its VLAN anyway where it follows them.
  bool hearsQueries = true;
  /// Whether it ignores IGMPv2 and IGMPv3 queries without Router Alert (RFC 9776 section 9.1).
  bool requireRouterAlert = false;

  friend bool operator==(HostSettings const&, HostSettings const&) noexcept = default;
};

/// One IGMP host, of a port in a VLAN. It sends while it is enabled, has packet access and is not
/// blocked, and only what its port lets out.
class KEL_EXPORT IgmpHost : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IgmpHost const> {
   public:
    virtual void onIntfId() {}
    virtual void onVlanId() {}
    virtual void onUseMux() {}
    virtual void onTagged() {}
    virtual void onExternalPam() {}
    virtual void onPam() {}
    virtual void onIgmpVersion() {}
    virtual void onDeviceName() {}
    virtual void onEnabled() {}
    virtual void onConfigVersion() {}
    virtual void onIntfConfigVersion() {}
    virtual void onBlocked() {}
    virtual void onDirection() {}
    virtual void onSettings() {}
    virtual void onVlanQueries() {}
    virtual void onV3group(Wirex::IpAddr /*group*/) {}
    virtual void onV3groupkelImmediate() {}
    /// Asks every reactor whether it hears of records that come and go. One that does not leaves
    /// the answer as it is, which spares its host the records that nobody would look at.
    virtual void onV3groupHeard(bool* heard) { *heard = true; }

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Direction = Bridging::AllowedTrafficDirection;
  using V3groups = HostGroupRecords<&NotifieeConst::onV3group>;

  explicit IgmpHost(Kel::Name name) : name_(std::move(name)) {}

  Kel::Name const& name() const { return name_; }

  Wirex::IntfId const& intfId() const { return intfId_.get(); }
  void intfIdIs(Wirex::IntfId const& intf) { intfId_.is(*this, intf); }

  /// The VLAN number; 0 until it is set.
  std::uint16_t vlanId() const { return vlanId_.get(); }
  void vlanIdIs(std::uint16_t vlan) { vlanId_.is(*this, vlan); }

  /// Not used by the host library; the proxy writes false.
  bool useMux() const { return useMux_.get(); }
  void useMuxIs(bool useMux) { useMux_.is(*this, useMux); }

  bool tagged() const { return tagged_.get(); }
  void taggedIs(bool tagged) { tagged_.is(*this, tagged); }

  /// Whether packet access is supplied through `pam`.
  bool externalPam() const { return externalPam_.get(); }
  void externalPamIs(bool external) { externalPam_.is(*this, external); }

  /// The packet access of the (port, VLAN), or null.
  Kel::Ptr<Wirex::VlanPam> const& pam() const { return pam_.get(); }
  void pamIs(Kel::Ptr<Wirex::VlanPam> const& pam) { pam_.is(*this, pam); }

  IgmpVersion igmpVersion() const { return igmpVersion_.get(); }
  void igmpVersionIs(IgmpVersion version) { igmpVersion_.is(*this, version); }

  /// The kernel's name of the port.
  Kel::String8 const& deviceName() const { return deviceName_.get(); }
  void deviceNameIs(Kel::String8 const& deviceName) { deviceName_.is(*this, deviceName); }

  bool enabled() const { return enabled_.get(); }
  void enabledIs(bool enabled) { enabled_.is(*this, enabled); }

  /// Raised by one whenever the host is configured again, and so for its interface.
  std::uint32_t configVersion() const { return configVersion_.get(); }
  void configVersionIs(std::uint32_t version) { configVersion_.is(*this, version); }
  /// Raised by one whenever the host's interface is configured again.
  std::uint32_t intfConfigVersion() const { return intfConfigVersion_.get(); }
  void intfConfigVersionIs(std::uint32_t version) { intfConfigVersion_.is(*this, version); }

  bool blocked() const { return blocked_.get(); }
  void blockedIs(bool blocked) { blocked_.is(*this, blocked); }

  Direction direction() const { return direction_.get(); }
  void directionIs(Direction direction) { direction_.is(*this, direction); }

  /// Written by whoever knows the ports; the proxy leaves it alone.
  HostSettings const& settings() const { return settings_.get(); }
  void settingsIs(HostSettings const& settings) { settings_.is(*this, settings); }

  /// The queries of its VLAN if it answers all of them and not only those on its port; else null.
  /// Written as the settings are.
  Kel::Ptr<VlanQueries const> const& vlanQueries() const { return vlanQueries_.get(); }
  void vlanQueriesIs(Kel::Ptr<VlanQueries const> const& queries) {
    vlanQueries_.is(*this, queries);
  }

  /// Reading a record through `v3group` makes a copy for this host, where it shares the record with
  /// others; `v3group().peek(group)` makes none.
  V3groups const& v3group() const { return v3group_; }
  Kel::Ptr<IgmpV3GroupRecord const> v3group(Wirex::IpAddr group) const {
    return v3group_.get(group);
  }
  Kel::Ptr<IgmpV3GroupRecord> v3group(Wirex::IpAddr group) { return v3group_.get(group); }
  Kel::Ptr<IgmpV3GroupRecord> newV3group(Wirex::IpAddr group) const {
    return Kel::make<IgmpV3GroupRecord>(group);
  }
  Kel::Ptr<IgmpV3GroupRecord> v3groupIs(Wirex::IpAddr group) { return v3group_.is(*this, group); }
  /// Whether some reactor hears of records that come and go.
  bool v3groupIsHeard() const {
    bool heard = false;
    tellAtOnce<&NotifieeConst::onV3groupHeard>(&heard);
    return heard;
  }
  /// The records that it shares with other hosts (`HostGroupRecords::sharedIs`).
  void v3groupSharedIs(Kel::Ptr<SharedRecords> const& shared) { v3group_.sharedIs(shared); }
  /// Lets the host share a record of several hosts (`HostGroupRecords::share`). Returns false where
  /// somebody would notice: then its own record is to be written.
  bool v3groupShare(Kel::Ptr<IgmpV3GroupRecord> const& common, std::uint32_t& number) {
    return v3group_.share(*this, v3groupIsHeard(), common, number);
  }
  /// Its number among the hosts with which it shares records; `SharedRecords::none` if it does not.
  std::uint32_t v3groupNumberIn(SharedRecords const& shared) const {
    return v3group_.numberIn(shared);
  }
  void v3groupDel(Wirex::IpAddr group) { v3group_.del(*this, group); }
  void v3groupDelAll() { v3group_.delAll(*this); }
  void v3groupNotify(Wirex::IpAddr group) { v3group_.notify(*this, group); }
  void v3groupNotify() { notify<&NotifieeConst::onV3groupkelImmediate>(); }

 private:
  Kel::Name name_;
  Kel::Value<Wirex::IntfId, &NotifieeConst::onIntfId> intfId_;
  Kel::Value<std::uint16_t, &NotifieeConst::onVlanId> vlanId_;
  Kel::Value<bool, &NotifieeConst::onUseMux> useMux_;
  Kel::Value<bool, &NotifieeConst::onTagged> tagged_;
  Kel::Value<bool, &NotifieeConst::onExternalPam> externalPam_;
  Kel::NullablePointer<Wirex::VlanPam, &NotifieeConst::onPam> pam_;
  Kel::Value<IgmpVersion, &NotifieeConst::onIgmpVersion> igmpVersion_{IgmpVersion::v3};
  Kel::Value<Kel::String8, &NotifieeConst::onDeviceName> deviceName_;
  Kel::Value<bool, &NotifieeConst::onEnabled> enabled_;
  Kel::Value<std::uint32_t, &NotifieeConst::onConfigVersion> configVersion_;
  Kel::Value<std::uint32_t, &NotifieeConst::onIntfConfigVersion> intfConfigVersion_;
  Kel::Value<bool, &NotifieeConst::onBlocked> blocked_;
  Kel::Value<Direction, &NotifieeConst::onDirection> direction_;
  Kel::Value<HostSettings, &NotifieeConst::onSettings> settings_;
  Kel::NullablePointer<VlanQueries const, &NotifieeConst::onVlanQueries> vlanQueries_;
  V3groups v3group_;
};

/// The directory of hosts.
class KEL_EXPORT IgmpHostDir : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IgmpHostDir const> {
   public:
    virtual void onIgmpHost(Kel::Name const& /*name*/) {}
    virtual void onIgmpHostkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using IgmpHosts = Kel::Members<Kel::Name, IgmpHost, &NotifieeConst::onIgmpHost>;

  IgmpHosts const& igmpHost() const { return igmpHost_; }
  Kel::Ptr<IgmpHost const> igmpHost(Kel::Name const& name) const { return igmpHost_.get(name); }
  Kel::Ptr<IgmpHost> igmpHost(Kel::Name const& name) { return igmpHost_.get(name); }
  /// After hosts have come or gone, this or their number is another one.
  std::uint32_t igmpHostVersion() const { return igmpHostVersion_; }
  Kel::Ptr<IgmpHost> newIgmpHost(Kel::Name const& name) const { return Kel::make<IgmpHost>(name); }
  Kel::Ptr<IgmpHost> igmpHostIs(Kel::Name const& name) {
    ++igmpHostVersion_;
    return igmpHost_.is(*this, name);
  }
  void igmpHostDel(Kel::Name const& name) {
    ++igmpHostVersion_;
    igmpHost_.del(*this, name);
  }
  void igmpHostDelAll() {
    ++igmpHostVersion_;
    igmpHost_.delAll(*this);
  }
  void igmpHostNotify(Kel::Name const& name) { igmpHost_.notify(*this, name); }
  void igmpHostNotify() { notify<&NotifieeConst::onIgmpHostkelImmediate>(); }

 private:
  IgmpHosts igmpHost_;
  std::uint32_t igmpHostVersion_ = 0;
};

/// What a host has heard and sent.
struct HostCounters {
  std::uint64_t queriesHeard = 0;      ///< that it has heeded
  std::uint64_t reportsSentV1 = 0;     ///< messages
  std::uint64_t reportsSentV2 = 0;     ///< messages
  std::uint64_t reportsSentV3 = 0;     ///< messages, of many records each
  std::uint64_t leavesSent = 0;        ///< IGMPv2's
  std::uint64_t groupRecordsSent = 0;  ///< in IGMPv3 reports
};

/// How a host is doing. Its machine writes it; nobody is notified, because it changes with every
/// message.
class KEL_EXPORT IgmpHostStatus : public Kel::Entity {
 public:
  explicit IgmpHostStatus(Kel::Name name) : name_(std::move(name)) {}

  /// The host's.
  Kel::Name const& name() const { return name_; }

  /// The version it speaks now: the configured one, or that of an older querier (RFC 9776
  /// section 7.2.1).
  IgmpVersion compatibilityMode() const { return compatibilityMode_; }
  void compatibilityModeIs(IgmpVersion version) { compatibilityMode_ = version; }

  /// The querier that was heard last of the version that the host speaks, where that is older than
  /// the configured one; else 0.0.0.0, which may also be the address of a querier without one.
  Wirex::IpAddr olderQuerier() const { return olderQuerier_; }
  void olderQuerierIs(Wirex::IpAddr querier) { olderQuerier_ = querier; }

  /// When it last sent something. Nothing if it never did.
  std::optional<Horix::Time> const& lastSent() const { return lastSent_; }
  void lastSentIs(Horix::Time time) { lastSent_ = time; }

  HostCounters const& counters() const { return counters_; }
  HostCounters& counters() { return counters_; }

 private:
  Kel::Name name_;
  IgmpVersion compatibilityMode_ = IgmpVersion::v3;
  Wirex::IpAddr olderQuerier_;
  std::optional<Horix::Time> lastSent_;
  HostCounters counters_;
};

/// The status of the hosts of one owner, after whom it is named.
class KEL_EXPORT IgmpHostStatusDir : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<IgmpHostStatusDir const> {
   public:
    virtual void onIgmpHostStatus(Kel::Name const& /*host*/) {}
    virtual void onIgmpHostStatuskelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using IgmpHostStatuses =
      Kel::Members<Kel::Name, IgmpHostStatus, &NotifieeConst::onIgmpHostStatus>;

  explicit IgmpHostStatusDir(Kel::Name name) : name_(std::move(name)) {}

  Kel::Name const& name() const { return name_; }

  /// How each host is doing, by the host's name.
  IgmpHostStatuses const& igmpHostStatus() const { return igmpHostStatus_; }
  Kel::Ptr<IgmpHostStatus const> igmpHostStatus(Kel::Name const& host) const {
    return igmpHostStatus_.get(host);
  }
  Kel::Ptr<IgmpHostStatus> igmpHostStatus(Kel::Name const& host) {
    return igmpHostStatus_.get(host);
  }
  Kel::Ptr<IgmpHostStatus> newIgmpHostStatus(Kel::Name const& host) const {
    return Kel::make<IgmpHostStatus>(host);
  }
  Kel::Ptr<IgmpHostStatus> igmpHostStatusIs(Kel::Name const& host) {
    return igmpHostStatus_.is(*this, host);
  }
  void igmpHostStatusDel(Kel::Name const& host) { igmpHostStatus_.del(*this, host); }
  void igmpHostStatusDelAll() { igmpHostStatus_.delAll(*this); }
  void igmpHostStatusNotify(Kel::Name const& host) { igmpHostStatus_.notify(*this, host); }
  void igmpHostStatusNotify() { notify<&NotifieeConst::onIgmpHostStatuskelImmediate>(); }

 private:
  Kel::Name name_;
  IgmpHostStatuses igmpHostStatus_;
};

}  // namespace Igmp
