#include "agent/control/Known.h"

#include <algorithm>
#include <string>
#include <vector>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr std::size_t mostNamed = 16;

/// The first of them, and how many more there are.
std::string severalOf(std::vector<std::string> words) {
  std::size_t const all = words.size();
  if (all > mostNamed) {
    words.resize(mostNamed);
    words.push_back(message(all - mostNamed, " more"));
  }
  return enumerated(words, "and");
}

/// "10, 20-29 and 100".
std::string vlansIn(Configuration const& configuration) {
  std::vector<std::string> ranges;
  for (VlanConfig const* first = configuration.vlanFrom(0); first;) {
    VlanConfig const* last = first;
    VlanConfig const* next = configuration.vlanFrom(first->vlanId.value() + 1u);
    while (next && next->vlanId.value() == last->vlanId.value() + 1) {
      last = next;
      next = configuration.vlanFrom(next->vlanId.value() + 1u);
    }
    ranges.push_back(first == last ? message(first->vlanId)
                                   : message(first->vlanId, '-', last->vlanId));
    first = next;
  }
  return severalOf(std::move(ranges));
}

void refuseVlan(Bridging::VlanId vlan, Configuration const& configuration) {
  if (configuration.vlans.empty()) refuse("VLAN ", vlan, " is not configured; there are no VLANs");
  refuse("VLAN ", vlan, " is not configured; there ",
         configuration.vlans.size() == 1 ? "is " : "are ", vlansIn(configuration));
}

void refuseInterface(Wirex::IntfId const& interface, Configuration const& configuration) {
  std::vector<std::string> names;
  names.reserve(configuration.interfaces.size());
  for (InterfaceConfig const& each : configuration.interfaces)
    names.push_back(message(each.intfId));
  std::string const name = message(interface);
  std::string const what = message("interface ", Agent::quoted(name), " is not configured; ");
  if (names.empty()) refuse(what, "there are no interfaces");
  if (std::string const meant = nearest(name, names); !meant.empty() && names.size() > mostNamed)
    refuse(what, "did you mean ", meant, "?");
  refuse(what, "there ", names.size() == 1 ? "is " : "are ", severalOf(std::move(names)));
}

}  // namespace

void refuseUnknown(Selection const& selection, Configuration const& configuration) {
  if (selection.vlan) {
    VlanConfig const* const vlan = configuration.vlanFrom(selection.vlan->value());
    if (!vlan || vlan->vlanId != *selection.vlan) refuseVlan(*selection.vlan, configuration);
  }
  if (selection.interface &&
      std::none_of(configuration.interfaces.begin(), configuration.interfaces.end(),
                   [&](auto const& each) { return each.intfId == *selection.interface; }))
    refuseInterface(*selection.interface, configuration);
  if (selection.group && !selection.group->isMulticast())
    refuse(*selection.group, " is no multicast address; groups are 224.0.0.0 to 239.255.255.255");
}

}  // namespace Agent
