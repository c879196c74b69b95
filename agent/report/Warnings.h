#pragma once

#include <string>
#include <vector>

#include "agent/report/ReportData.h"

namespace Agent {

struct Warning {
  std::string what;    ///< a sentence
  std::string remedy;  ///< what to do, or what it costs
};

/// What an operator should know before anything else, worst first.
std::vector<Warning> warningsOf(ReportData const& data);

}  // namespace Agent
