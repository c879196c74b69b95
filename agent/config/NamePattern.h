#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "framework/types/IntfId.h"

namespace Agent {

/// The interfaces that a name with number ranges in square brackets stands for, the rightmost
/// range counting fastest: "swp[1-5]", "eth[1,3-5].10". Throws std::invalid_argument, with a text
/// of the form "what is wrong; what to do", when the pattern is malformed, stands for more than
/// `maxExpansion` names, or makes a name that no interface of ours can have.
std::vector<Wirex::IntfId> expandNamePattern(std::string_view pattern);

/// The interface of this name. Throws as above where no interface of ours can have it.
Wirex::IntfId interfaceNamed(std::string const& name);

}  // namespace Agent
