#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "framework/types/IntfId.h"
#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"

namespace Agent {

/// Of what to show: what is absent does not narrow it down.
struct Selection {
  std::optional<Bridging::VlanId> vlan;
  std::optional<Wirex::IntfId> interface;
  std::optional<Wirex::IpAddr> group;

  bool has(Bridging::VlanId each) const { return !vlan || *vlan == each; }
  bool has(Wirex::IntfId const& each) const { return !interface || *interface == each; }
  bool has(Wirex::IpAddr each) const { return !group || *group == each; }

  friend bool operator==(Selection const&, Selection const&) = default;
};

/// What a client of the control socket asks for.
struct Request {
  std::string command;  ///< "show", "explain", "monitor", "clear", "trace", "restart" or "metrics"
  std::string what;     ///< of "show" and "clear"
  Selection of;
  bool text = false;   ///< explain in words
  std::string handle;  ///< of "trace"
  std::string levels;
};

/// The line of JSON that a request is, and back.
std::string requestLine(Request const& request);

/// Throws std::invalid_argument.
Request requestIn(std::string_view line);

}  // namespace Agent
