#include "agent/output/Tables.h"

#include <algorithm>
#include <ostream>
#include <string>
#include <utility>

#include "agent/output/ExplanationWords.h"
#include "agent/text/TextTable.h"
#include "agent/text/TimeText.h"
#include "agent/text/Wording.h"

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
std::string versionText(HostRecords const& host) {
  if (host.spokenVersion == host.igmpVersion) return message(host.igmpVersion);
  return message(host.spokenVersion, ", not ", host.igmpVersion);
}

void addHost(TextTable& table, HostRecords const& host) {
  std::vector<std::string> row{std::to_string(host.vlan),
                               host.interface,
                               versionText(host),
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

std::string expiryText(Horix::Time time) {
  return message(std::chrono::round<std::chrono::seconds>(time).count(), " s");
}

/// The listeners' table, which has a column more where times of day are known.
class ListenersTable {
 public:
  explicit ListenersTable(Explanation const& explanation)
      : explanation_(explanation), table_(columns(explanation.dates.known())) {}

  /// What counts for the port, and under it what its reporters want.
  void add(ExplainedPort const& port) {
    row(port.interface + (port.own ? " (own)" : ""), "all together", "", "", port.wants);
    for (ExplainedReporter const& reporter : port.reporters)
      row("", message(reporter.address), dateOf(reporter.knownFor, explanation_),
          expiryText(reporter.expiresIn), reporter.filter);
    if (port.furtherReporters > 0)
      addRow({"", message("and ", port.furtherReporters, " more"), "", "", "", ""});
  }
  void print(std::ostream& out) const { table_.print(out); }

 private:
  static std::vector<TextTable::Column> columns(bool withDates) {
    std::vector<TextTable::Column> columns{
        {"PORT"}, {"REPORTER"}, {"EXPIRES", Align::right}, {"MODE"}, {"SOURCES"}};
    if (withDates) columns.insert(columns.begin() + datePlace, {"SINCE"});
    return columns;
  }
  void row(std::string port, std::string reporter, std::string since, std::string expires,
           SourceFilter const& filter) {
    addRow({std::move(port), std::move(reporter), std::move(since), std::move(expires),
            message(filter.mode), sourcesText(filter)});
  }
  void addRow(std::vector<std::string> cells) {
    if (!explanation_.dates.known()) cells.erase(cells.begin() + datePlace);
    table_.row(std::move(cells));
  }

  static constexpr int datePlace = 2;

  Explanation const& explanation_;
  TextTable table_;
};

void printListeners(std::ostream& out, Explanation const& explanation) {
  ListenersTable table(explanation);
  for (ExplainedPort const& port : explanation.ports) table.add(port);
  table.print(out);
  for (ExplainedPort const& port : explanation.ports)
    if (std::string const remark = remarkOn(port); !remark.empty())
      printParagraph(out, message(port.interface, ": ", remark, '.'), 2);
}

/// Sources with the same fate share a sentence.
void printSources(std::ostream& out, Explanation const& explanation) {
  std::vector<std::pair<std::string, std::vector<std::string>>> byFate;
  for (ExplainedSource const& source : explanation.sources) {
    std::string fate = fateOf(source, explanation);
    auto const known = std::find_if(byFate.begin(), byFate.end(),
                                    [&](auto const& entry) { return entry.first == fate; });
    auto& sources = known == byFate.end()
                        ? byFate.emplace_back(std::move(fate), std::vector<std::string>()).second
                        : known->second;
    sources.push_back(message(source.address));
  }
  for (auto const& [fate, sources] : byFate)
    printParagraph(
        out, message(enumerated(sources, "and"), sources.size() == 1 ? " is " : " are ", fate, '.'),
        2);
}

void printHosts(std::ostream& out, std::vector<HostRecords> const& hosts) {
  if (hosts.empty()) {
    out << "There are no hosts: each takes an interface that exists, in a VLAN with proxy = true "
           "and a querier.\n";
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
    out << "\nThere are no records to show.\n";
}

}  // namespace

void printSnapshot(std::ostream& out, Snapshot const& snapshot) {
  out << "Records at " << timeText(snapshot.time) << " s\n\n";
  printHosts(out, snapshot.hosts);
  if (snapshot.ignored.empty()) return;
  out << '\n';
  printIgnored(out, snapshot.ignored);
}

void printExplanation(std::ostream& out, Explanation const& explanation) {
  printParagraph(out, verdictOf(explanation));
  if (!explanation.ports.empty()) {
    out << "\nWho listens";
    if (explanation.learnedIn != explanation.vlan)
      out << " (in the primary VLAN " << explanation.learnedIn << " and its secondary VLANs)";
    out << "\n\n";
    printListeners(out, explanation);
  }
  if (auto const sentences = ignoredOf(explanation); !sentences.empty()) {
    out << "\nWhat was ignored\n\n";
    for (std::string const& sentence : sentences) printParagraph(out, sentence, 2);
  }
  if (explanation.standing != Standing::hasHost) return;
  if (!explanation.ports.empty()) {
    out << "\nHow that merges\n\n";
    printParagraph(out, mergeOf(explanation), 2);
    printSources(out, explanation);
  }
  out << "\nWhether it is sent\n\n";
  for (std::string const& sentence : sendingOf(explanation)) printParagraph(out, sentence, 2);
}

}  // namespace Agent
