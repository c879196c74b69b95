#include "agent/replay/PortCapture.h"

#include <algorithm>
#include <string_view>

#include "agent/text/NaturalOrder.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// Says which ports there are, or of many ports which one may have been meant.
std::string remedy(std::string_view misspelt, std::vector<InterfaceConfig> const& interfaces) {
  constexpr std::size_t few = 8;
  if (interfaces.empty()) return "add an [[interface]] of that name";
  std::vector<std::string> names;
  names.reserve(interfaces.size());
  for (InterfaceConfig const& interface : interfaces)
    names.emplace_back(interface.intfId.stringValue().view());
  std::sort(names.begin(), names.end(), precedesNaturally);
  if (names.size() > few) {
    if (auto const meant = nearest(misspelt, names); !meant.empty())
      return "did you mean " + Agent::quoted(meant) + "?";
    names[few] = message(names.size() - few, " more");
    names.resize(few + 1);
  }
  return "it has " + enumerated(names, "and");
}

}  // namespace

void requireConfiguredPorts(std::vector<PortCapture> const& captures,
                            Configuration const& configuration,
                            std::string const& configurationName) {
  auto const& interfaces = configuration.interfaces;
  for (PortCapture const& capture : captures) {
    bool const configured =
        std::any_of(interfaces.begin(), interfaces.end(),
                    [&](auto const& interface) { return interface.intfId == capture.port; });
    if (configured) continue;
    std::string_view const name = capture.port.stringValue().view();
    refuse(configurationName, " has no interface ", Agent::quoted(name), " for capture ",
           capture.fileName, "; ", remedy(name, interfaces));
  }
}

}  // namespace Agent
