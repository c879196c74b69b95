#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>

/// What an adapter has counted and what its hosts report, in plain values: the adapter and the
/// model are both put into this form and then compared. Groups, ports, reporters and sources go
/// by small numbers.
namespace Bridging::IgmpSnooping::Proxy::Model {

using Counts = std::map<int, std::uint16_t>;  // by source

struct HostKey {
  int vlan = 0;
  int port = 0;

  friend bool operator<(HostKey const& a, HostKey const& b) {
    return std::tie(a.vlan, a.port) < std::tie(b.vlan, b.port);
  }
  friend bool operator==(HostKey const&, HostKey const&) = default;
};

struct PortPicture {
  bool starG = false;
  bool includeMode = false;
  std::uint16_t changes = 0;
  Counts include;
  Counts exclude;
  std::set<int> reporters;

  friend bool operator==(PortPicture const&, PortPicture const&) = default;
};

struct GroupPicture {
  std::uint16_t starGCount = 0;
  Counts include;
  Counts exclude;
  bool hostChanged = false;
  std::map<int, PortPicture> ports;

  friend bool operator==(GroupPicture const&, GroupPicture const&) = default;
};

struct RecordPicture {
  int type = 0;
  std::optional<Counts> sources;  // the value beside each source; nothing where the list is missing

  friend bool operator==(RecordPicture const&, RecordPicture const&) = default;
};

using HostPicture = std::map<int, RecordPicture>;  // by group

struct VlanPicture {
  std::map<int, GroupPicture> groups;
  std::map<HostKey, HostPicture> hosts;

  friend bool operator==(VlanPicture const&, VlanPicture const&) = default;
};

/// The parts in which the two differ, in words; empty where they are equal.
std::string difference(VlanPicture const& adapter, VlanPicture const& model);

}  // namespace Bridging::IgmpSnooping::Proxy::Model
