#include "agent/config/NamePattern.h"

#include <algorithm>
#include <string>

#include "agent/config/NumberRanges.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// IFNAMSIZ of linux/if.h without the closing zero byte.
constexpr std::size_t maxNameSize = 15;

/// What Linux refuses in the name of an interface (dev_valid_name of its network core), and control
/// characters, which would garble every table the name is printed in.
bool isForbidden(char c) {
  return static_cast<unsigned char>(c) <= ' ' || c == '\x7f' || c == '/' || c == ':';
}

bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

[[noreturn]] void refuseName(std::string const& name, char const* whyAndRemedy) {
  refuse("interface name ", quoted(name), whyAndRemedy);
}

void appendToEach(std::vector<std::string>& names, std::string_view literal) {
  for (std::string& name : names) name += literal;
}

std::vector<std::string> combined(std::vector<std::string> const& names,
                                  std::vector<std::uint32_t> const& numbers) {
  std::vector<std::string> result;
  result.reserve(names.size() * numbers.size());
  for (std::string const& name : names) {
    for (std::uint32_t const number : numbers) result.push_back(name + std::to_string(number));
  }
  return result;
}

}  // namespace

std::vector<Wirex::IntfId> expandNamePattern(std::string_view pattern) {
  std::vector<std::string> names{""};
  for (std::string_view rest = pattern; !rest.empty();) {
    std::size_t const bracket = rest.find_first_of("[]");
    appendToEach(names, rest.substr(0, bracket));
    if (bracket == std::string_view::npos) break;
    std::size_t const closing = rest.find(']', bracket);
    if (closing == bracket || closing == std::string_view::npos) {
      refuse("interface name ", quoted(pattern),
             " has a bracket without its partner; write ranges as in \"swp[1-5]\"");
    }
    auto const numbers = expandNumberRanges(rest.substr(bracket + 1, closing - bracket - 1));
    if (names.size() * numbers.size() > maxExpansion) {
      refuse("interface name ", quoted(pattern), " stands for more than ", maxExpansion,
             " names; give smaller ranges");
    }
    names = combined(names, numbers);
    rest.remove_prefix(closing + 1);
  }

  std::vector<Wirex::IntfId> interfaces;
  interfaces.reserve(names.size());
  for (std::string const& name : names) interfaces.push_back(interfaceNamed(name));
  return interfaces;
}

Wirex::IntfId interfaceNamed(std::string const& name) {
  if (name.empty()) refuseName(name, " is empty; give the name of an interface");
  if (name.size() > maxNameSize) {
    refuseName(name, " is longer than the 15 bytes that Linux allows; give a shorter name");
  }
  if (name == "." || name == "..") refuseName(name, " is reserved by Linux; give another name");
  if (std::any_of(name.begin(), name.end(), isForbidden)) {
    refuseName(name,
               " holds a blank, '/', ':' or a control character, which Linux forbids; "
               "give a name without it");
  }
  // "Vlan1" and "0eth" would make the same host name as "Vlan10" and "eth".
  if (isDigit(name.front())) {
    refuseName(name,
               " begins with a digit, which makes host names ambiguous; "
               "rename the interface to begin with a letter");
  }
  return Wirex::IntfId(Kel::String8(name));
}

}  // namespace Agent
