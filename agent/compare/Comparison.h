#pragma once

#include <optional>
#include <string>
#include <vector>

#include "agent/compare/ComparedState.h"

namespace Agent {

/// What two states say otherwise.
struct Difference {
  ComparedPlace place;
  std::optional<std::string> a;  ///< nothing where A does not have it
  std::optional<std::string> b;
};

struct Comparison {
  std::vector<std::string> lists;  ///< those that both states have, which alone are compared
  std::vector<Difference> differences;
};

/// Throws std::invalid_argument if the states have no list in common.
Comparison compared(ComparedState const& a, ComparedState const& b);

/// Tables of at most 100 columns, or one sentence.
/// @param a,b what the states are called.
std::string comparisonText(Comparison const& comparison, std::string const& a,
                           std::string const& b);

/// The same as one JSON document that ends in a newline.
std::string comparisonJson(Comparison const& comparison);

}  // namespace Agent
