#include "agent/report/ReplayReport.h"

#include <utility>

#include <nlohmann/json.hpp>

#include "agent/replay/ReplayLists.h"

namespace Agent {

ReportData reportOf(Switch const& snoopingSwitch, std::string subject, History history) {
  ReportData data;
  data.subject = std::move(subject);
  data.isReplay = true;
  for (char const* const list : reportLists) addList(data, list, listOf(snoopingSwitch, list));
  data.history = std::move(history);
  return data;
}

}  // namespace Agent
