#include "agent/replay/ReplayLists.h"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <utility>

#include <nlohmann/json.hpp>

#include "agent/control/ShowAnswers.h"
#include "agent/ctl/ControlOutput.h"
#include "agent/report/ReportData.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

Request requestOf(std::string const& list) {
  Request request;
  request.command = "show";
  request.what = list;
  return request;
}

std::string heading(std::string const& list) {
  return list == "mrouters" ? "Multicast router ports"
                            : message(static_cast<char>(list[0] - 'a' + 'A'), list.substr(1));
}

}  // namespace

Json listOf(Switch const& snoopingSwitch, std::string const& list, Dates const& dates) {
  auto const answer =
      showAnswer(snoopingSwitch, requestOf(list), Epoch(Horix::Time::zero(), dates));
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

std::string listsText(Switch const& snoopingSwitch, std::vector<std::string> const& lists,
                      Dates const& dates) {
  std::ostringstream out;
  for (std::string const& list : lists) {
    if (&list != &lists.front()) out << '\n';
    if (lists.size() > 1) out << heading(list) << "\n\n";
    printShown(out, requestOf(list), listOf(snoopingSwitch, list, dates));
  }
  return out.str();
}

std::string listsJson(Switch const& snoopingSwitch, std::vector<std::string> const& lists,
                      Dates const& dates) {
  if (lists.size() == 1) return listOf(snoopingSwitch, lists.front(), dates).dump(2) + '\n';
  Json document;
  for (std::string const& list : lists) {
    Json shown = listOf(snoopingSwitch, list, dates);
    for (char const* const common : {"time", "date"}) {
      document[common] = shown.at(common);
      shown.erase(common);
    }
    document[list] = list == "statistics" ? std::move(shown) : std::move(shown.at(list));
  }
  return document.dump(2) + '\n';
}

std::vector<std::string> listNamesIn(std::string const& text) {
  std::vector<std::string> const known(reportLists.begin(), reportLists.end());
  std::vector<std::string> names;
  std::istringstream words(text + ',');
  for (std::string word; std::getline(words, word, ',');) {
    if (std::find(known.begin(), known.end(), word) == known.end())
      refuse(Agent::quoted(word), " is no list; there are ", enumerated(known, "and"));
    if (std::find(names.begin(), names.end(), word) == names.end()) names.push_back(word);
  }
  return names;
}

}  // namespace Agent
