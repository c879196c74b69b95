#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "tests/proxy/model/AdapterModel.h"

/// A naive second proxy, in plain containers, to which the real one is compared while everything
/// that it watches changes at random.
namespace Bridging::IgmpSnooping::Proxy::Random {

using Model::HostKey;
using Model::Keyed;

// What can be replaced by another one of its kind has a number of its own.

struct TopoPort {
  int serial = 0;
  bool blocked = false;
  int direction = 0;
};

struct Protocol {
  int version = 3;
};

struct Querier {
  int serial = 0;
  std::shared_ptr<Protocol> protocol;
};

/// A private VLAN's; the default value is that of a normal VLAN.
struct Role {
  int type = 0;
  int primary = 1;

  friend bool operator==(Role const&, Role const&) = default;
};

/// What the kernel says of an interface; the default value says that it has none.
struct Device {
  std::string name;
  std::uint32_t index = 0;

  friend bool operator==(Device const&, Device const&) = default;
};

struct VlanTopology {
  int serial = 0;
  Keyed<int, std::shared_ptr<TopoPort>> ports;
};

/// What the proxy watches, by VLAN or port. Where the order of a real collection matters, which is
/// at the start of the proxy, it is kept.
struct Inputs {
  Keyed<int, bool> contexts;  // whether proxying is enabled
  std::map<int, std::shared_ptr<Querier>> queriers;
  Keyed<int, Role> roles;
  std::map<int, std::shared_ptr<VlanTopology>> topologies;
  std::map<int, std::shared_ptr<Model::Status>> statuses;
  std::map<int, Device> devices;
  std::map<int, bool> desired;
  std::map<HostKey, bool> tagged;

  Device device(int port) const {
    auto const entry = devices.find(port);
    return entry == devices.end() ? Device() : entry->second;
  }
};

}  // namespace Bridging::IgmpSnooping::Proxy::Random
