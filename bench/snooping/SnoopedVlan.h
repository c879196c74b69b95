#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/snooping/VlanLearning.h"
#include "proxy/ProxyAdapterSm.h"

namespace Bench {

/// Source addresses as they stand in a group record.
class Sources {
 public:
  explicit Sources(std::size_t count) : Sources(count, 0) {}

  /// One source that is not among the others.
  static Sources beyond(Sources const& others) { return Sources(1, others.bytes_.size() / 4); }

  Igmp::SourceList list() const { return Igmp::SourceList(Igmp::Bytes(bytes_)); }

 private:
  Sources(std::size_t count, std::size_t first) {
    bytes_.reserve(4 * count);
    for (std::size_t i = first; i < first + count; ++i)
      for (std::size_t const octet : {std::size_t{198}, std::size_t{51}, 100 + i / 256, i % 256})
        bytes_.push_back(static_cast<std::uint8_t>(octet));
  }

  std::vector<std::uint8_t> bytes_;
};

/// A VLAN that learns from reports, with a host on every port.
class SnoopedVlan {
 public:
  static constexpr std::uint32_t firstGroup = 0xef020000;

  explicit SnoopedVlan(std::size_t ports) {
    using Bridging::IgmpSnooping::Proxy::PortKey;
    for (std::size_t i = 0; i < ports; ++i) {
      ports_.emplace_back(("swp" + std::to_string(i)).c_str());
      PortKey const key(vlanId, ports_.back());
      hosts_->igmpHostIs(key.hostName());
      config_->hostKeyIs(key, true);
    }
    adapter_ = Bridging::IgmpSnooping::Proxy::adapterSmFactory(vlanId, config_, hosts_, status_);
  }

  void report(std::size_t port, Wirex::IpAddr reporter, Wirex::IpAddr group,
              Wirex::IgmpV3GroupRecordType type, Sources const& sources) {
    record(port, reporter, group, type, sources);
    publish();
  }

  /// One record of a report, and the end of a report.
  void record(std::size_t port, Wirex::IpAddr reporter, Wirex::IpAddr group,
              Wirex::IgmpV3GroupRecordType type, Sources const& sources) {
    learning_.record(ports_[port], reporter, {type, group, sources.list()});
  }
  void publish() { batch_.publish(); }

  void forgetPort(std::size_t port) {
    learning_.forgetPort(ports_[port]);
    batch_.publish();
  }

  /// One reporter that wants every source in each of `count` groups, over all ports in turn.
  void fillGroups(std::uint32_t count) {
    for (std::uint32_t i = 0; i < count; ++i)
      report(i % ports_.size(), Wirex::IpAddr(10, 0, 0, 1), Wirex::IpAddr(firstGroup + i),
             Wirex::IgmpV3GroupRecordType::modeIsExclude, Sources(0));
  }

 private:
  static constexpr Bridging::VlanId vlanId{10};

  Kel::Ptr<Bridging::IgmpSnooping::IgmpContextStatus> status_ =
      Kel::make<Bridging::IgmpSnooping::IgmpContextStatus>(vlanId);
  Kel::Ptr<Bridging::IgmpSnooping::Proxy::AdapterVlanConfig> config_ =
      Kel::make<Bridging::IgmpSnooping::Proxy::AdapterVlanConfig>(vlanId);
  Kel::Ptr<Igmp::IgmpHostDir> hosts_ = Kel::make<Igmp::IgmpHostDir>();
  Kel::Ptr<Bridging::IgmpSnooping::Proxy::AdapterSm> adapter_;
  std::vector<Wirex::IntfId> ports_;
  Bridging::IgmpSnooping::ReportBatch batch_;
  Kel::Ptr<Horix::TimerWheel> timerWheel_ =
      Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>());
  Bridging::IgmpSnooping::VlanLearning learning_{status_, {}, timerWheel_, batch_};
};

}  // namespace Bench
