#pragma once

#include <algorithm>
#include <cstdint>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/horix/TimerWheel.h"
#include "platform/interface/CaptureEthDevPams.h"
#include "proxy/ProxySm.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {

using Direction = AllowedTrafficDirection;
using Igmp::IgmpVersion;
using Lines = std::vector<std::string>;
using Wirex::IntfId;
using Wirex::IpAddr;

constexpr char const* controlTraces = "IgmpSnooping::Proxy::ProxySm";

template <class T>
std::string textOf(T const& value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

/// The keys of a collection as texts, in the keys' own order.
template <class Collection>
Lines keysOf(Collection const& collection) {
  using Key = std::remove_cvref_t<decltype(collection.keyAt(0))>;
  std::set<Key> sorted;
  for (Key const& key : collection.keys()) sorted.insert(key);
  Lines texts;
  for (Key const& key : sorted) texts.push_back(textOf(key));
  return texts;
}

inline std::string joined(Lines const& words) {
  std::string line;
  for (auto const& word : words) line += (line.empty() ? "" : " ") + word;
  return line;
}

/// A switch as the agent presents it to the proxy, and, once it is started, the proxy on it. Its
/// devices neither send nor receive. VLANs are named by their number, ports by their name.
struct ProxiedSwitch {
  using TopoVlan = Topology::Library::Vlan::TopoVlan;
  using TopoPort = Topology::Library::Vlan::Port;
  using ProtocolConfig = Gmp::Igmp::QuerierConfig;

  // ---- what the agent does

  void start() {
    proxy = proxySmFactory(config, topology, privateVlans, desired, queriers, hosts, kernel,
                           bridging, status, timerWheel);
  }
  void stop() { proxy = nullptr; }

  /// The VLAN's topology; a VLAN that has one also has its snooping status.
  Kel::Ptr<TopoVlan> topo(std::uint16_t vlan) {
    status->contextStatusIs(VlanId(vlan));
    return topology->topoVlanIs(VlanId(vlan));
  }
  Kel::Ptr<TopoPort> joins(std::uint16_t vlan, char const* port) {
    return topo(vlan)->portIs(IntfId(port));
  }
  void leaves(std::uint16_t vlan, char const* port) { topo(vlan)->portDel(IntfId(port)); }
  Kel::Ptr<TopoPort> port(std::uint16_t vlan, char const* port) {
    return topo(vlan)->port(IntfId(port));
  }

  void kernelHas(char const* port, char const* device) {
    kernel->intfStatusAndDeviceNameIs(IntfId(port), {device, 0});
  }
  void kernelHas(char const* port) { kernelHas(port, port); }
  void kernelLoses(char const* port) { kernel->intfStatusAndDeviceNameDel(IntfId(port)); }

  void desires(char const* port) { desired->intfDesiredIs(IntfId(port), true); }
  void desiresNot(char const* port) { desired->intfDesiredDel(IntfId(port)); }

  void proxies(std::uint16_t vlan, bool enabled = true) {
    topo(vlan);
    config->contextConfigIs(VlanId(vlan))->proxyEnabledIs(enabled);
  }
  void forgets(std::uint16_t vlan) { config->contextConfigDel(VlanId(vlan)); }

  /// A VLAN's querier, which nobody has replaced since.
  Kel::Ptr<ProtocolConfig> querierIs(std::uint16_t vlan, IgmpVersion version = IgmpVersion::v3) {
    topo(vlan);
    auto protocol = Kel::make<ProtocolConfig>();
    protocol->querierVersionIs(version);
    queriers->querierConfigIs(nameOf(vlan), protocol);
    return protocol;
  }
  Kel::Ptr<Igmp::QuerierConfig> querier(std::uint16_t vlan) const {
    return queriers->querierConfig(nameOf(vlan));
  }
  void querierDel(std::uint16_t vlan) { queriers->querierConfigDel(nameOf(vlan)); }

  void isolates(std::uint16_t secondary, std::uint16_t primary) {
    topo(secondary);
    privateVlans->secondaryVlanIs(VlanId(secondary), {VlanType::isolated, VlanId(primary)});
  }
  void isolatesNot(std::uint16_t secondary) { privateVlans->secondaryVlanDel(VlanId(secondary)); }

  /// A VLAN that is proxied as soon as the proxy runs, and its ports, served at once.
  void serves(std::uint16_t vlan, std::initializer_list<char const*> ports) {
    for (char const* const name : ports) {
      kernelHas(name);
      joins(vlan, name);
    }
    proxies(vlan);
    querierIs(vlan);
  }

  // ---- what the proxy makes of it

  static Kel::Name nameOf(std::uint16_t vlan) { return Kel::format("%d", vlan); }
  static PortKey key(std::uint16_t vlan, char const* port) {
    return PortKey(VlanId(vlan), IntfId(port));
  }

  Kel::Ptr<ProxyVlanSm> vlanSm(std::uint16_t vlan) const {
    return proxy ? proxy->vlanSm(VlanId(vlan)) : nullptr;
  }
  Kel::Ptr<ProxyPortSm> portSm(std::uint16_t vlan, char const* port) const {
    auto const owner = vlanSm(vlan);
    return owner ? owner->portSm(IntfId(port)) : nullptr;
  }
  Kel::Ptr<AdapterVlanConfig> adapterConfig(std::uint16_t vlan) const {
    return proxy ? proxy->adapterConfig(VlanId(vlan)) : nullptr;
  }
  Kel::Ptr<Igmp::IgmpHost> host(std::uint16_t vlan, char const* port) const {
    return hosts->igmpHost(key(vlan, port).hostName());
  }
  bool hasDevice(char const* port) const {
    return proxy && proxy->pamManager()->ethDevPamCol()->intfPam(IntfId(port));
  }

  Lines hostNames() const { return keysOf(hosts->igmpHost()); }
  Lines proxiedVlans() const { return proxy ? keysOf(proxy->vlanSm()) : Lines{}; }
  Lines adapters() const { return proxy ? keysOf(proxy->adapterConfig()) : Lines{}; }
  Lines servedPorts(std::uint16_t vlan) const {
    auto const owner = vlanSm(vlan);
    return owner ? keysOf(owner->portSm()) : Lines{};
  }
  Lines watchedPorts(std::uint16_t vlan) const {
    auto const owner = vlanSm(vlan);
    return owner ? keysOf(owner->proxyTopoPort()) : Lines{};
  }
  Lines hostKeys(std::uint16_t vlan) const {
    auto const adapter = adapterConfig(vlan);
    return adapter ? keysOf(adapter->hostKey()) : Lines{};
  }
  Lines vlansOfPort(char const* port) const {
    auto const info = proxy ? proxy->portVlanMap()->portInfo(IntfId(port)) : nullptr;
    return info ? keysOf(info->vlan()) : Lines{};
  }
  Lines mappedPorts() const { return proxy ? keysOf(proxy->portVlanMap()->portInfo()) : Lines{}; }
  Lines devicesOpen() const {
    return proxy ? keysOf(proxy->pamManager()->ethDevPamCol()->intfPam()) : Lines{};
  }

  /// What a host reports for its groups: "239.1.1.1 include 192.0.2.1 192.0.2.2".
  static Lines recordsOf(Igmp::IgmpHost const& host) {
    Lines records;
    for (auto const& address : host.v3group().keys()) {
      auto const record = host.v3group(address);
      bool const includes = record->filterMode() == Wirex::IgmpV3GroupRecordType::modeIsInclude;
      Lines words{textOf(address), includes ? "include" : "exclude"};
      if (record->source())
        for (auto const& source : keysOf(record->source()->sourceIp())) words.push_back(source);
      records.push_back(joined(words));
    }
    std::sort(records.begin(), records.end());
    return records;
  }

  /// All that the proxy keeps and writes, a line for each thing.
  Lines picture() const {
    Lines lines;
    for (auto const& name : hostNames()) {
      auto const& host = *hosts->igmpHost(Kel::Name(name.c_str()));
      lines.push_back(
          joined({"host", name, "vlan", textOf(host.vlanId()), "port", textOf(host.intfId()),
                  "version", textOf(host.igmpVersion()), "device", textOf(host.deviceName()),
                  "blocked", textOf(host.blocked()), "direction", textOf(host.direction()), "pam",
                  textOf(static_cast<bool>(host.pam())), "configured", textOf(host.configVersion()),
                  textOf(host.intfConfigVersion())}));
      for (auto const& record : recordsOf(host)) lines.push_back("record " + name + ' ' + record);
    }
    if (!proxy) return lines;
    for (auto const [vlan, machine] : proxy->vlanSm()) {
      auto const adapter = machine->adapterConfig();
      lines.push_back(
          joined({"vlan", textOf(vlan), "adapter", adapter ? textOf(adapter->vlanId()) : "none",
                  "ports", joined(keysOf(machine->portSm())), "watched",
                  joined(keysOf(machine->proxyTopoPort()))}));
    }
    for (auto const [vlan, adapter] : proxy->adapterConfig())
      lines.push_back(
          joined({"adapter", textOf(vlan), "hosts", joined(keysOf(adapter->hostKey()))}));
    lines.push_back("machines of adapters " + joined(keysOf(proxy->adapterSm())));
    for (auto const& port : mappedPorts())
      lines.push_back("port " + port + " vlans " + joined(vlansOfPort(port.c_str())));
    lines.push_back("devices " + joined(devicesOpen()));
    std::sort(lines.begin(), lines.end());
    return lines;
  }

  // The devices outlive the proxy that receives through them.
  Interface::CaptureEthDevPams devices;
  Kel::Ptr<IgmpProtocolConfig> config = Kel::make<IgmpProtocolConfig>();
  Kel::Ptr<Topology::Library::Vlan::LibVlanState> topology =
      Kel::make<Topology::Library::Vlan::LibVlanState>();
  Kel::Ptr<PrivateVlanLib::LibState> privateVlans = Kel::make<PrivateVlanLib::LibState>();
  Kel::Ptr<Interface::PamDesiredIntfDir> desired =
      Kel::make<Interface::PamDesiredIntfDir>("switch");
  Kel::Ptr<Igmp::QuerierConfigDir> queriers = Kel::make<Igmp::QuerierConfigDir>();
  Kel::Ptr<Igmp::IgmpHostDir> hosts = Kel::make<Igmp::IgmpHostDir>();
  Kel::Ptr<Interface::DeviceIntfStatusDir> kernel = Kel::make<Interface::DeviceIntfStatusDir>();
  Kel::Ptr<Bridging::Config> bridging = Kel::make<Bridging::Config>();
  Kel::Ptr<IgmpProtocolStatus> status = Kel::make<IgmpProtocolStatus>();
  Kel::Ptr<Horix::VirtualClock> clock = Kel::make<Horix::VirtualClock>();
  Kel::Ptr<Horix::TimerWheel> timerWheel = Kel::make<Horix::TimerWheel>(clock);
  Kel::Ptr<ProxySm> proxy;
};

/// Tests of the proxy on a switch.
class ProxiedSwitchTest : public ::testing::Test, protected ProxiedSwitch {};

}  // namespace Bridging::IgmpSnooping::Proxy::Testing
