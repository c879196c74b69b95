#include "agent/compare/ComparedState.h"

#include <cerrno>
#include <fstream>
#include <iostream>
#include <iterator>
#include <system_error>
#include <tuple>
#include <utility>

#include <nlohmann/json.hpp>

#include "agent/control/SocketName.h"
#include "agent/ctl/AnswerLines.h"
#include "agent/ctl/ControlOutput.h"
#include "agent/text/NaturalOrder.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Wirex::IpAddr;

constexpr char const* agentPrefix = "ctl:";

// ---- What is said

std::string textAt(Json const& object, char const* key) {
  return object.value(key, std::string());
}

IpAddr addressAt(Json const& object, char const* key) {
  return IpAddr::fromText(textAt(object, key)).value_or(IpAddr());
}

std::string filterWords(Json const& object) {
  std::string words = object.at("filter-mode").get<std::string>();
  char const* gap = " ";
  for (Json const& source : object.at("source"))
    words += std::exchange(gap, ", ") + source.get<std::string>();
  return words;
}

/// The version spoken changes with the queriers, and is not what the host is.
std::string hostWords(Json const& host) {
  std::string words = message("host of IGMPv", host.at("igmp-version").get<unsigned>());
  if (host.value("blocked", false)) words += ", blocked";
  if (auto const direction = textAt(host, "direction"); !direction.empty() && direction != "both")
    words += ", " + direction;
  return words;
}

std::string routerPortWords(Json const& port) {
  std::vector<std::string> reasons;
  if (port.value("static", false)) reasons.emplace_back("configured");
  if (port.contains("querier")) reasons.push_back("querier " + textAt(port, "querier"));
  if (port.contains("pim-neighbor"))
    reasons.push_back("PIM neighbor " + textAt(port, "pim-neighbor"));
  return reasons.empty() ? "router port" : enumerated(reasons, "and");
}

ComparedPlace placeIn(Json const& element, std::string const& list) {
  return {list, element.at("vlan").get<unsigned>(), element.at("interface").get<std::string>(),
          addressAt(element, "address"), addressAt(element, "host")};
}

void addHost(ComparedState& state, Json const& host) {
  ComparedPlace place = placeIn(host, "hosts");
  state.said[place] = hostWords(host);
  for (Json const& record : host.at("group")) {
    place.group = addressAt(record, "address");
    state.said[place] = filterWords(record);
  }
}

void addElement(ComparedState& state, std::string const& list, Json const& element) {
  if (list == "hosts")
    addHost(state, element);
  else
    state.said[placeIn(element, list)] =
        list == "groups" ? filterWords(element) : routerPortWords(element);
}

// ---- Where it is read

Json documentIn(std::istream& in, std::string const& name) {
  std::string const text(std::istreambuf_iterator<char>(in), {});
  if (in.bad()) refuse("cannot read ", name, ": ", std::generic_category().message(errno));
  return Json::parse(text, nullptr, /* allow_exceptions */ false);
}

Json documentOf(std::string const& fileName) {
  if (fileName == "-") return documentIn(std::cin, "standard input");
  std::ifstream file(fileName);
  if (!file)
    refuse("cannot open ", fileName, ": ", std::generic_category().message(errno),
           "; name what replay -j has written, or ctl:SOCKET for a running agent");
  return documentIn(file, fileName);
}

Json shownBy(std::string const& socket, std::string const& list) {
  Request request;
  request.command = "show";
  request.what = list;
  AnswerLines lines(socket, request);
  ShownLists shown;
  for (Json line; lines.next(line);) shown.add(std::move(line));
  return shown.takeDocument();
}

ComparedState stateOfAgent(std::string const& socket) {
  Json document;
  for (char const* const list : {"hosts", "groups", "mrouters"})
    document[list] = std::move(shownBy(socket, list).at(list));
  return comparedStateIn(document);
}

}  // namespace

bool operator<(ComparedPlace const& a, ComparedPlace const& b) {
  if (std::tie(a.list, a.vlan) != std::tie(b.list, b.vlan))
    return std::tie(a.list, a.vlan) < std::tie(b.list, b.vlan);
  if (a.interface != b.interface) return precedesNaturally(a.interface, b.interface);
  return std::tie(a.group, a.reporter) < std::tie(b.group, b.reporter);
}

ComparedState comparedStateIn(Json const& document) {
  ComparedState state;
  if (!document.is_object()) refuse("it is no JSON object");
  try {
    for (char const* const list : {"hosts", "groups", "mrouters"}) {
      if (!document.contains(list)) continue;
      state.lists.emplace_back(list);
      for (Json const& element : document.at(list)) addElement(state, list, element);
    }
  } catch (Json::exception const& error) {
    refuse("it has another form: ", error.what());
  }
  if (state.lists.empty()) refuse("it has none of hosts, groups and mrouters");
  return state;
}

ComparedState comparedStateOf(std::string const& given) {
  if (given.starts_with(agentPrefix))
    return stateOfAgent(socketPath(given.substr(std::string_view(agentPrefix).size())));
  Json const document = documentOf(given);
  try {
    return comparedStateIn(document);
  } catch (std::invalid_argument const& error) {
    refuse(given, " cannot be compared: ", error.what(),
           "; write it with igmpsnoopd replay -j or igmpsnoopctl show -j");
  }
}

}  // namespace Agent
