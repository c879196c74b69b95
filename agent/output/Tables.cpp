#include "agent/output/Tables.h"

#include <algorithm>
#include <ostream>
#include <string>

#include "agent/config/Wording.h"
#include "agent/output/TextTable.h"
#include "agent/output/TimeText.h"

namespace Agent {

namespace {

using Align = TextTable::Align;

constexpr char const* nothing = "-";

std::string sourcesText(SourceFilter const& filter) {
  if (filter.sources.empty()) return nothing;
  std::string text;
  for (Wirex::IpAddr const source : filter.sources) {
    if (!text.empty()) text += ", ";
    text += message(source);
  }
  return text;
}

/// Each host's own columns are filled in its first row only.
void addHost(TextTable& table, HostRecords const& host) {
  std::vector<std::string> row{std::to_string(host.vlan),
                               host.interface,
                               message(host.igmpVersion),
                               host.blocked ? "yes" : "no",
                               message(host.direction),
                               nothing,
                               "",
                               ""};
  auto const groupCell = row.end() - 3;
  if (host.groups.empty()) table.row(row);
  for (GroupRecord const& group : host.groups) {
    groupCell[0] = message(group.address);
    groupCell[1] = message(group.filter.mode);
    groupCell[2] = sourcesText(group.filter);
    table.row(row);
    std::fill(row.begin(), groupCell, "");
  }
}

void printHosts(std::ostream& out, std::vector<HostRecords> const& hosts) {
  if (hosts.empty()) {
    out << "There are no hosts: no VLAN with interfaces is proxied, which takes proxy = true and a "
           "querier.\n";
    return;
  }
  TextTable table({{"VLAN", Align::right},
                   {"INTERFACE"},
                   {"IGMP", Align::right},
                   {"BLOCKED"},
                   {"DIRECTION"},
                   {"GROUP"},
                   {"MODE"},
                   {"SOURCES"}});
  for (HostRecords const& host : hosts) addHost(table, host);
  table.print(out);
  if (std::all_of(hosts.begin(), hosts.end(), [](auto const& host) { return host.groups.empty(); }))
    out << "\nNo host has anything to report: nobody listens to a group.\n";
}

void addEvent(TextTable& table, RecordEvent const& event) {
  RecordChange const& change = event.change;
  SourceFilter const& shown = change.after ? *change.after : *change.before;
  table.row({timeText(event.time), message(change.host.vlanId()), message(change.host.intfId()),
             message(change.group), change.kind(), message(shown.mode), sourcesText(shown)});
  if (change.before && change.after)
    table.row({"", "", "", "", "was", message(change.before->mode), sourcesText(*change.before)});
}

void printIgnored(std::ostream& out, std::vector<IgnoredInput> const& ignored) {
  TextTable table({{"INTERFACE"}, {"IGNORED", Align::right}, {"CAUSE"}});
  for (IgnoredInput const& input : ignored) {
    std::string interface = input.interface;
    for (auto const& [cause, count] : input.counts) {
      table.row({interface, std::to_string(count), message(cause)});
      interface.clear();
    }
  }
  table.print(out);
}

}  // namespace

void printSnapshot(std::ostream& out, Snapshot const& snapshot) {
  out << "Records at " << timeText(snapshot.time) << " s\n\n";
  printHosts(out, snapshot.hosts);
  if (snapshot.ignored.empty()) return;
  out << '\n';
  printIgnored(out, snapshot.ignored);
}

void printEvents(std::ostream& out, std::vector<RecordEvent> const& events) {
  if (events.empty()) {
    out << "No record has changed.\n";
    return;
  }
  TextTable table({{"TIME", Align::right},
                   {"VLAN", Align::right},
                   {"INTERFACE"},
                   {"GROUP"},
                   {"CHANGE"},
                   {"MODE"},
                   {"SOURCES"}});
  for (RecordEvent const& event : events) addEvent(table, event);
  table.print(out);
}

}  // namespace Agent
