#pragma once

#include <string>

#include "agent/Switch.h"

namespace Agent {

/// Whether an interface is in use, and else the one reason why not: of several the one that has to
/// go first.
struct InterfaceCondition {
  char const* name = "up";  ///< or "no-carrier" and the like
  std::string because;      ///< a clause with the remedy, empty if it is up
};

InterfaceCondition conditionOf(Switch const& snoopingSwitch, InterfaceConfig const& interface);

}  // namespace Agent
