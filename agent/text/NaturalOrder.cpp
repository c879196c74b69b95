#include "agent/text/NaturalOrder.h"

#include <algorithm>
#include <compare>

namespace Agent {

namespace {

constexpr std::string_view digits = "0123456789";

/// Takes the longest run of digits, or one other character, off the front of a name.
std::string_view takePart(std::string_view& name) {
  std::size_t const run = std::min(name.find_first_not_of(digits), name.size());
  std::string_view const part = name.substr(0, std::max<std::size_t>(run, 1));
  name.remove_prefix(part.size());
  return part;
}

/// Numbers of any length: without leading zeros, the longer one is the larger one.
std::strong_ordering compareNumbers(std::string_view a, std::string_view b) {
  a.remove_prefix(std::min(a.find_first_not_of('0'), a.size()));
  b.remove_prefix(std::min(b.find_first_not_of('0'), b.size()));
  auto const bySize = a.size() <=> b.size();
  return bySize != 0 ? bySize : a <=> b;
}

bool isNumber(std::string_view part) {
  return digits.find(part.front()) != std::string_view::npos;
}

}  // namespace

bool precedesNaturally(std::string_view a, std::string_view b) {
  std::string_view restOfA = a;
  std::string_view restOfB = b;
  while (!restOfA.empty() && !restOfB.empty()) {
    std::string_view const partOfA = takePart(restOfA);
    std::string_view const partOfB = takePart(restOfB);
    bool const numbers = isNumber(partOfA) && isNumber(partOfB);
    auto const order = numbers ? compareNumbers(partOfA, partOfB) : partOfA <=> partOfB;
    if (order != 0) return order < 0;
  }
  if (restOfA.empty() != restOfB.empty()) return restOfA.empty();
  return a < b;
}

}  // namespace Agent
