#include "agent/report/ReportTables.h"

#include <chrono>
#include <map>
#include <ostream>
#include <tuple>
#include <utility>

#include "agent/report/FilterWords.h"
#include "agent/report/Markup.h"
#include "agent/report/PortNames.h"
#include "agent/text/Dates.h"
#include "agent/text/TimeText.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr std::size_t mostChanges = 5000;
constexpr std::size_t anyLength = 400;  // of what stands in a cell, in characters

std::string secondsText(std::optional<Horix::Time> const& time) {
  if (!time) return "never";
  return message(std::chrono::round<std::chrono::seconds>(*time).count(), " s");
}

std::string addressText(Wirex::IpAddr address) {
  return address == Wirex::IpAddr() ? "" : message(address);
}

void printVlans(std::ostream& out, ReportData const& data) {
  PageTable table("VLANs", {{"VLAN", true}, {"Proxied"}, {"Querier"}, {"Ports"}});
  for (ReportedVlan const& vlan : data.vlans)
    table.row({std::to_string(vlan.id), vlan.isProxied() ? "yes" : vlan.standing,
               !vlan.otherQuerier.empty() ? vlan.otherQuerier
               : vlan.sendsQueries        ? "this switch"
                                          : "none",
               portsText(vlan.ports, anyLength)});
  table.print(out);
}

void printInterfaces(std::ostream& out, ReportData const& data) {
  PageTable table("Interfaces",
                  {{"Interface"}, {"State"}, {"Direction"}, {"MTU", true}, {"VLANs"}});
  for (ReportedInterface const& each : data.interfaces)
    table.row({each.name, each.because.empty() ? each.state : each.state + ": " + each.because,
               each.direction, std::to_string(each.mtu), shortened(each.vlans, anyLength)});
  table.print(out);
}

void printRouterPorts(std::ostream& out, ReportData const& data) {
  PageTable table("Multicast router ports", {{"VLAN", true},
                                             {"Interface"},
                                             {"Configured"},
                                             {"Querier"},
                                             {"Expires", true},
                                             {"PIM neighbor"},
                                             {"Expires", true}});
  table.dateColumnIs(2, data.date);
  for (ReportedRouterPort const& port : data.routerPorts)
    table.row(
        {std::to_string(port.vlan), port.interface, port.configured ? "yes" : "no",
         addressText(port.querier), port.querierExpiresIn ? secondsText(port.querierExpiresIn) : "",
         addressText(port.pimNeighbor),
         port.pimNeighbor == Wirex::IpAddr() ? "" : secondsText(port.pimExpiresIn)},
        port.since);
  table.print(out);
}

void printMemberships(std::ostream& out, ReportData const& data) {
  PageTable table("Memberships: who listens to what",
                  {{"VLAN", true},
                   {"Group"},
                   {"Interface"},
                   {"Reporter"},
                   {"Expires", true},
                   {"Mode"},
                   {"Wants"}},
                  "igmpsnoopctl show groups, or replay --show groups, has all");
  table.dateColumnIs(4, data.date);
  for (ReportedMembership const& each : data.memberships)
    table.row(
        {std::to_string(each.vlan), message(each.group), each.interface, message(each.reporter),
         secondsText(each.expiresIn), message(each.filter.mode), wordsFor(each.filter, anyLength)},
        each.since);
  table.print(out);
}

void printEntries(std::ostream& out, ReportData const& data) {
  PageTable table("Forwarding: what the bridge is to have, beside what the kernel has",
                  {{"VLAN", true}, {"Group"}, {"Interface"}, {"State"}, {"Mode"}, {"Lets through"}},
                  "igmpsnoopctl show forwarding has all");
  for (ReportedEntry const& each : data.entries)
    table.row({std::to_string(each.vlan), message(each.group), each.interface, each.state,
               message(each.filter.mode), wordsFor(each.filter, anyLength)});
  table.print(out);
}

/// Hosts that report the same of a group share a row.
void printRecords(std::ostream& out, ReportData const& data) {
  PageTable table("Records: what the hosts on the ports report",
                  {{"VLAN", true}, {"Group"}, {"Mode"}, {"Asks for"}, {"Hosts on"}},
                  "igmpsnoopctl show hosts, or replay, has all");
  using Row = std::tuple<unsigned, Wirex::IpAddr, std::string, std::string>;
  std::map<Row, std::vector<std::string>> rows;
  for (HostRecords const& host : data.hosts)
    for (GroupRecord const& record : host.groups)
      rows[{host.vlan, record.address, message(record.filter.mode),
            wordsFor(record.filter, anyLength)}]
          .push_back(host.interface);
  for (auto const& [row, ports] : rows) {
    auto const& [vlan, group, mode, words] = row;
    table.row({std::to_string(vlan), message(group), mode, words, portsText(ports, 200)});
  }
  table.print(out);
}

void printCounters(std::ostream& out, ReportedCounters const& counters) {
  std::vector<PageTable::Column> columns;
  for (std::size_t i = 0; i < counters.columns.size(); ++i)
    columns.push_back({counters.columns[i], i >= counters.textColumns});
  PageTable table(counters.title, std::move(columns));
  for (auto const& row : counters.rows) table.row(row);
  table.print(out);
}

char const* nameOf(HistoryRow::Kind kind) {
  switch (kind) {
    case HistoryRow::Kind::querier:
      return "querier";
    case HistoryRow::Kind::router:
      return "router port";
    case HistoryRow::Kind::membership:
      return "membership";
    case HistoryRow::Kind::record:
      return "record";
  }
  return "";
}

}  // namespace

PageTable::PageTable(std::string caption, std::vector<Column> columns, std::string all,
                     std::size_t atMost)
    : caption_(std::move(caption)),
      columns_(std::move(columns)),
      all_(std::move(all)),
      atMost_(atMost) {}

void PageTable::dateColumnIs(std::size_t place, std::string const& now) {
  now_ = now;
  datePlace_ = place;
  if (!now.empty()) columns_.insert(columns_.begin() + std::ptrdiff_t(place), {"Since"});
}

void PageTable::row(std::vector<std::string> cells, std::string const& since) {
  if (++count_ > atMost_) return;
  if (!now_.empty())
    cells.insert(cells.begin() + std::ptrdiff_t(datePlace_), shortDate(since, now_));
  rows_ += "<tr>";
  for (std::size_t i = 0; i < cells.size(); ++i)
    rows_.append(columns_[i].isNumber ? "<td class=n>" : "<td>").append(escaped(cells[i]));
  rows_ += '\n';
}

void PageTable::print(std::ostream& out) const {
  if (count_ == 0) return;
  char const* const opened = count_ > tooManyForPaper ? " class=vast"
                             : count_ > many          ? ""
                                                      : " open";
  out << "<details" << opened << "><summary>" << escaped(caption_) << " <span class=\"faint\">("
      << grouped(count_) << ")</span></summary>\n";
  if (count_ > atMost_)
    out << "<p>The first " << grouped(atMost_) << " rows; " << grouped(count_ - atMost_)
        << " more are left out" << (all_.empty() ? "" : ": " + escaped(all_)) << ".</p>\n";
  beginScrolled(out, caption_);
  out << "<table><caption>" << escaped(caption_) << "</caption><thead><tr>";
  for (Column const& column : columns_)
    out << "<th scope=\"col\"" << (column.isNumber ? " class=n" : "") << '>'
        << escaped(column.header) << "</th>";
  out << "</tr></thead><tbody>\n" << rows_ << "</tbody></table></div></details>\n";
}

void printTables(std::ostream& out, ReportData const& data) {
  printVlans(out, data);
  printRouterPorts(out, data);
  printMemberships(out, data);
  printRecords(out, data);
  printEntries(out, data);
  printInterfaces(out, data);
  for (ReportedCounters const& counters : data.counters) printCounters(out, counters);
}

void printIgnored(std::ostream& out, ReportData const& data) {
  if (data.ignored.empty()) {
    out << "<p>Nothing was ignored.</p>\n";
    return;
  }
  PageTable table("What was heard and not used, by port and cause",
                  {{"VLAN", true}, {"Interface"}, {"Cause"}, {"Times", true}});
  for (ReportedRefusals const& each : data.ignored)
    table.row(
        {each.vlan.empty() ? "none" : each.vlan, each.interface, each.cause, grouped(each.count)});
  table.print(out);
}

void printChanges(std::ostream& out, History const& history) {
  PageTable table(history.isAhead ? "Until when each holds" : "What held from when to when",
                  {{"VLAN", true},
                   {"What"},
                   {"Group"},
                   {"Interface"},
                   {"Reporter"},
                   {"From", true},
                   {"To", true},
                   {"Was"}},
                  "replay --events prints every change of a record", mostChanges);
  for (HistoryRow const& row : history.rows)
    for (Span const& span : row.spans)
      table.row({std::to_string(row.vlan), nameOf(row.kind), addressText(row.group), row.interface,
                 row.kind == HistoryRow::Kind::membership ? message(row.reporter) : "",
                 timeText(span.from), span.to ? timeText(*span.to) : "", span.text});
  table.print(out);
}

}  // namespace Agent
