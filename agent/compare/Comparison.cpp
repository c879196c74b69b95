#include "agent/compare/Comparison.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include <nlohmann/json.hpp>

#include "agent/text/TextTable.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Wirex::IpAddr;

bool has(ComparedState const& state, std::string const& list) {
  return std::find(state.lists.begin(), state.lists.end(), list) != state.lists.end();
}

char const* heading(std::string const& list) {
  if (list == "hosts") return "Records: what the hosts on the ports report";
  return list == "groups" ? "Memberships: who listens to what" : "Multicast router ports";
}

std::string addressCell(IpAddr address) {
  return address == IpAddr() ? "-" : message(address);
}

/// Only memberships have reporters, and router ports no groups either.
std::vector<std::string> cellsOf(Difference const& difference) {
  ComparedPlace const& place = difference.place;
  std::vector<std::string> cells{std::to_string(place.vlan), place.interface};
  if (place.list != "mrouters") cells.push_back(addressCell(place.group));
  if (place.list == "groups") cells.push_back(addressCell(place.reporter));
  cells.push_back(difference.a.value_or("-"));
  cells.push_back(difference.b.value_or("-"));
  return cells;
}

TextTable tableOf(std::string const& list) {
  std::vector<TextTable::Column> columns{{"VLAN", TextTable::Align::right}, {"INTERFACE"}};
  if (list != "mrouters") columns.push_back({"GROUP"});
  if (list == "groups") columns.push_back({"REPORTER"});
  columns.push_back({"A", TextTable::Align::left, 36});
  columns.push_back({"B"});
  return TextTable(std::move(columns));
}

void printList(std::ostream& out, Comparison const& comparison, std::string const& list) {
  TextTable table = tableOf(list);
  bool empty = true;
  for (Difference const& difference : comparison.differences) {
    if (difference.place.list != list) continue;
    table.row(cellsOf(difference));
    empty = false;
  }
  if (empty) return;
  out << '\n' << heading(list) << "\n\n";
  table.print(out);
}

}  // namespace

Comparison compared(ComparedState const& a, ComparedState const& b) {
  Comparison comparison;
  for (std::string const& list : a.lists)
    if (has(b, list)) comparison.lists.push_back(list);
  if (comparison.lists.empty())
    refuse("A has ", enumerated(a.lists, "and"), " and B ", enumerated(b.lists, "and"),
           ", so there is nothing to compare; have both show the same");
  for (auto const& [place, words] : a.said) {
    auto const other = b.said.find(place);
    if (!has(b, place.list) || (other != b.said.end() && other->second == words)) continue;
    comparison.differences.push_back(
        {place, words, other == b.said.end() ? std::nullopt : std::optional(other->second)});
  }
  for (auto const& [place, words] : b.said)
    if (has(a, place.list) && !a.said.contains(place))
      comparison.differences.push_back({place, std::nullopt, words});
  std::sort(comparison.differences.begin(), comparison.differences.end(),
            [](Difference const& x, Difference const& y) { return x.place < y.place; });
  return comparison;
}

std::string comparisonText(Comparison const& comparison, std::string const& a,
                           std::string const& b) {
  if (comparison.differences.empty())
    return message("No difference in ", enumerated(comparison.lists, "and"), ".\n");
  std::ostringstream out;
  out << "A: " << onOneLine(a) << "\nB: " << onOneLine(b) << '\n';
  for (std::string const& list : comparison.lists) printList(out, comparison, list);
  return out.str();
}

std::string comparisonJson(Comparison const& comparison) {
  Json document;
  document["compared"] = comparison.lists;
  Json& list = document["differences"] = Json::array();
  for (auto const& [place, a, b] : comparison.differences) {
    Json each{{"list", place.list}, {"vlan", place.vlan}, {"interface", place.interface}};
    if (place.group != IpAddr()) each["address"] = message(place.group);
    if (place.list == "groups") each["host"] = message(place.reporter);
    each["a"] = a ? Json(*a) : Json();
    each["b"] = b ? Json(*b) : Json();
    list.push_back(std::move(each));
  }
  return document.dump(2) + '\n';
}

}  // namespace Agent
