#include "agent/report/PortNames.h"

#include "agent/report/Markup.h"
#include "agent/text/Wording.h"

namespace Agent {

std::string portsText(std::vector<std::string> const& names, std::size_t most) {
  if (names.empty()) return {};
  std::string text = names.front();
  for (std::size_t i = 1; i < names.size() && text.size() <= most; ++i) text += ", " + names[i];
  if (names.size() == 1 || text.size() <= most) return shortened(text, most);
  std::string const others = message(" and ", grouped(names.size() - 1), " more");
  return shortened(names.front(), most > others.size() ? most - others.size() : 1) + others;
}

PortColours::PortColours(std::vector<std::string> const& ports) {
  for (std::string const& port : ports) places_.emplace(port, places_.size());
}

std::string PortColours::of(std::string const& port) const {
  constexpr std::size_t colours = 8;
  auto const place = places_.find(port);
  return message('p', (place == places_.end() ? 0 : place->second) % colours);
}

}  // namespace Agent
