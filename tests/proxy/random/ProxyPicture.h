#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "tests/proxy/random/Inputs.h"

namespace Bridging::IgmpSnooping::Proxy::Random {

using KeysPicture = std::map<HostKey, bool>;

/// The adapter configuration that a VLAN machine holds.
struct HeldConfigPicture {
  int vlan = 0;
  bool isCurrent = false;  // the one that the proxy has for that VLAN now
  KeysPicture hostKeys;

  friend bool operator==(HeldConfigPicture const&, HeldConfigPicture const&) = default;
};

struct MachinePicture {
  int querier = 0;
  int topology = 0;
  std::optional<HeldConfigPicture> config;
  std::map<int, int> watched;  // topology ports, by number
  std::set<int> served;        // ports that have a machine

  friend bool operator==(MachinePicture const&, MachinePicture const&) = default;
};

struct HostPicture {
  bool isConfigured = false;  // with port and VLAN, enabled, and all that is always the same
  std::uint32_t configVersions = 0;
  bool sends = false;  // has packet access that leads to the port's device
  int version = 0;
  std::string deviceName;
  bool blocked = false;
  int direction = 0;
  Model::HostPicture records;

  friend bool operator==(HostPicture const&, HostPicture const&) = default;
};

/// What the proxy has made of its inputs.
struct ProxyPicture {
  std::set<int> contexts;  // VLANs whose entry is watched
  std::map<int, MachinePicture> machines;
  std::map<int, KeysPicture> adapterConfigs;
  std::set<int> adapters;  // VLANs whose adapter works on the configuration and the status
  std::map<HostKey, HostPicture> hosts;
  std::map<int, std::set<int>> vlansOfPorts;
  std::set<HostKey> packetAccess;
  std::map<int, bool> wantedDevices;
  std::map<int, Device> openDevices;
  std::set<int> multiplexers;  // of ports, bound to the device that is open
  std::map<int, int> defaultVlans;
  std::set<HostKey> taggedOnEgress;

  friend bool operator==(ProxyPicture const&, ProxyPicture const&) = default;
};

/// The parts in which the two differ, in words; empty where they are equal.
std::string difference(ProxyPicture const& proxy, ProxyPicture const& model);

}  // namespace Bridging::IgmpSnooping::Proxy::Random
