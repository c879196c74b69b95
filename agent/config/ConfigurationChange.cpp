#include "agent/config/ConfigurationChange.h"

#include <map>
#include <vector>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// The names of what changed, came and went among things of one kind.
class Differences {
 public:
  template <class Things, class KeyOf>
  Differences(Things const& before, Things const& after, KeyOf keyOf) {
    std::map<decltype(keyOf(before.front())), typename Things::value_type const*> former;
    for (auto const& thing : before) former.emplace(keyOf(thing), &thing);
    for (auto const& thing : after) {
      auto const known = former.find(keyOf(thing));
      if (known == former.end()) {
        added_.push_back(message(keyOf(thing)));
        continue;
      }
      if (!(*known->second == thing)) changed_.push_back(message(keyOf(thing)));
      former.erase(known);
    }
    for (auto const& [key, thing] : former) removed_.push_back(message(key));
  }

  void describe(char const* noun, std::vector<std::string>& parts) const {
    describe(noun, changed_, " changed", parts);
    describe(noun, added_, " added", parts);
    describe(noun, removed_, " removed", parts);
  }

 private:
  static void describe(char const* noun, std::vector<std::string> const& names, char const* what,
                       std::vector<std::string>& parts) {
    constexpr std::size_t few = 8;
    if (names.empty()) return;
    std::string const subject = names.size() > few ? message(names.size(), ' ', noun, 's')
                                : names.size() > 1 ? message(noun, "s ", enumerated(names, "and"))
                                                   : message(noun, ' ', names.front());
    parts.push_back(subject + what);
  }

  std::vector<std::string> changed_;
  std::vector<std::string> added_;
  std::vector<std::string> removed_;
};

}  // namespace

std::string describeChange(Configuration const& before, Configuration const& after) {
  std::vector<std::string> parts;
  Differences(before.vlans, after.vlans, [](VlanConfig const& vlan) {
    return vlan.vlanId;
  }).describe("VLAN", parts);
  Differences(before.interfaces, after.interfaces, [](InterfaceConfig const& interface) {
    return interface.intfId;
  }).describe("interface", parts);
  if (before.forwarding != after.forwarding)
    parts.emplace_back(!before.forwarding  ? "forwarding added"
                       : !after.forwarding ? "forwarding removed"
                                           : "forwarding changed");
  if (before.metricsAddress != after.metricsAddress)
    parts.push_back("metrics-address " +
                    (after.metricsAddress.empty() ? "removed" : "is " + after.metricsAddress));
  std::string text;
  for (std::string const& part : parts) text += (text.empty() ? "" : "; ") + part;
  return text.empty() ? "nothing changed" : text;
}

}  // namespace Agent
