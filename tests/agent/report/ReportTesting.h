#pragma once

#include <sstream>
#include <string>
#include <utility>

#include "agent/report/ReplayReport.h"
#include "agent/report/ReportPage.h"
#include "tests/agent/SwitchTesting.h"

namespace Agent {

inline ReportData reportOf(TestSwitch const& test, History history = {}) {
  return reportOf(test.snooping, "switch.toml", std::move(history));
}

inline std::string pageOf(ReportData const& data) {
  std::ostringstream page;
  printReport(page, data);
  return page.str();
}

}  // namespace Agent
