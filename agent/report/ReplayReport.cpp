#include "agent/report/ReplayReport.h"

#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "agent/control/ShowAnswers.h"
#include "agent/ctl/ControlOutput.h"

namespace Agent {

namespace {

/// What `show LIST -j` prints.
Json listOf(Switch const& snoopingSwitch, std::string const& list) {
  Request request;
  request.command = "show";
  request.what = list;
  auto const answer = showAnswer(snoopingSwitch, request, Horix::Time::zero());
  ShownLists lists;
  for (bool more = true; more;) {
    std::string lines;
    more = answer->advance(lines) == Answer::Progress::more;
    for (std::string_view rest = lines; !rest.empty();) {
      std::size_t const end = rest.find('\n');
      Json line = Json::parse(rest.substr(0, end));
      if (!line.contains("end")) lists.add(std::move(line));
      rest.remove_prefix(end + 1);
    }
  }
  return lists.takeDocument();
}

}  // namespace

ReportData reportOf(Switch const& snoopingSwitch, std::string subject, History history) {
  ReportData data;
  data.subject = std::move(subject);
  data.isReplay = true;
  for (char const* const list : reportLists) addList(data, list, listOf(snoopingSwitch, list));
  data.history = std::move(history);
  return data;
}

}  // namespace Agent
