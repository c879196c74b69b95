#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace Agent {

/// "swp1", "swp1, swp2" or "swp1 and 47 more".
/// @param most characters, if that can be.
std::string portsText(std::vector<std::string> const& names, std::size_t most);

/// The colours in which pictures draw ports: a CSS class each, over again after eight. Colour only
/// helps the eye along a line; what it says stands in words as well.
class PortColours {
 public:
  explicit PortColours(std::vector<std::string> const& ports);

  /// "p0" to "p7".
  std::string of(std::string const& port) const;

 private:
  std::map<std::string, std::size_t> places_;
};

}  // namespace Agent
