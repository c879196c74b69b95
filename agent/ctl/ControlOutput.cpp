#include "agent/ctl/ControlOutput.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <ostream>
#include <tuple>
#include <utility>

#include <nlohmann/json.hpp>

#include "agent/output/Counters.h"
#include "agent/output/Snapshot.h"
#include "agent/output/Tables.h"
#include "agent/text/Dates.h"
#include "agent/text/NaturalOrder.h"
#include "agent/text/TextTable.h"
#include "agent/text/TimeText.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Align = TextTable::Align;
using Wirex::IpAddr;

constexpr char const* nothing = "-";

std::string textAt(Json const& object, char const* key) {
  auto const found = object.find(key);
  return found == object.end() || !found->is_string() ? std::string() : found->get<std::string>();
}

IpAddr addressAt(Json const& object, char const* key) {
  return IpAddr::fromText(textAt(object, key)).value_or(IpAddr());
}

unsigned numberAt(Json const& object, char const* key) {
  auto const found = object.find(key);
  return found == object.end() || !found->is_number_unsigned() ? 0 : found->get<unsigned>();
}

Horix::Time timeAt(Json const& object) {
  constexpr double longest = 1e9;  // what an agent says may be anything
  return std::chrono::round<std::chrono::microseconds>(
      std::chrono::duration<double>(std::clamp(object.value("time", 0.0), 0.0, longest)));
}

// ---- Sorting

struct SortKey {
  unsigned vlan;
  IpAddr address;
  std::string interface;
  IpAddr host;

  explicit SortKey(Json const& element)
      : vlan(numberAt(element, "vlan")),
        address(addressAt(element, "address")),
        interface(textAt(element, element.contains("interface") ? "interface" : "name")),
        host(addressAt(element, "host")) {}

  friend bool operator<(SortKey const& a, SortKey const& b) {
    if (std::tie(a.vlan, a.address) != std::tie(b.vlan, b.address))
      return std::tie(a.vlan, a.address) < std::tie(b.vlan, b.address);
    if (a.interface != b.interface) return precedesNaturally(a.interface, b.interface);
    return a.host < b.host;
  }
};

Json sorted(std::vector<Json> elements) {
  std::vector<std::pair<SortKey, std::size_t>> keys;
  keys.reserve(elements.size());
  for (std::size_t i = 0; i < elements.size(); ++i) keys.emplace_back(SortKey(elements[i]), i);
  std::sort(keys.begin(), keys.end(),
            [](auto const& a, auto const& b) { return a.first < b.first; });
  Json list = Json::array();
  for (auto const& [key, place] : keys) list.push_back(std::move(elements[place]));
  return list;
}

Json sorted(Json& list) {
  return sorted(list.get<std::vector<Json>>());
}

// ---- Cells

std::string yesOrNo(bool value) {
  return value ? "yes" : "no";
}

/// A number, a text, or a dash for what is absent.
std::string cell(Json const& object, char const* key) {
  auto const found = object.find(key);
  if (found == object.end() || found->is_null()) return nothing;
  return found->is_string() ? found->get<std::string>() : found->dump();
}

std::string secondsCell(Json const& object, char const* key) {
  auto const found = object.find(key);
  if (found == object.end()) return nothing;
  if (found->is_null()) return "never";
  return message(std::lround(found->get<double>()), " s");
}

/// With one decimal.
std::string milliseconds(double seconds) {
  auto const tenths = std::lround(seconds * 1e4);
  return message(tenths / 10, '.', tenths % 10);
}

std::string listCell(Json const& list) {
  std::string text;
  for (Json const& each : list) {
    if (!text.empty()) text += ", ";
    text += each.is_string() ? each.get<std::string>() : each.dump();
  }
  return text.empty() ? nothing : text;
}

SourceFilter filterIn(Json const& object) {
  SourceFilter filter;
  if (textAt(object, "filter-mode") == "exclude") filter.mode = Gmp::Igmp::IgmpFilterMode::exclude;
  for (Json const& source : object.at("source"))
    filter.sources.push_back(IpAddr::fromText(source.get<std::string>()).value_or(IpAddr()));
  return filter;
}

TextTable::Column number(char const* header) {
  return {header, Align::right, 10};
}

/// One column for each counter, under one for what they are of.
template <class Counters>
TextTable columns(Counters const& counters, std::vector<TextTable::Column> first) {
  for (auto const& counter : counters) first.push_back(number(counter.column));
  first.push_back({""});  // takes what is left of the line
  return TextTable(std::move(first));
}

template <class Counters>
void addCounts(TextTable& table, std::vector<std::string> cells, Json const& counts,
               Counters const& counters) {
  for (auto const& counter : counters) cells.push_back(cell(counts, counter.key));
  cells.emplace_back();
  table.row(std::move(cells));
}

// ---- Lists

/// "primary of 20 and 30", "isolated in 10", or nothing.
std::string privateRole(Json const& vlan) {
  if (vlan.contains("secondary-vlan"))
    return message("primary of ", listCell(vlan.at("secondary-vlan")));
  return vlan.contains("primary-vlan")
             ? message(textAt(vlan, "private-type"), " in ", cell(vlan, "primary-vlan"))
             : nothing;
}

void printVlans(std::ostream& out, Json const& vlans) {
  bool const somePrivate = std::any_of(
      vlans.begin(), vlans.end(), [](auto const& vlan) { return vlan.contains("private-type"); });
  std::vector<TextTable::Column> columns{{"VLAN", Align::right},
                                         {"PROXIED", Align::left, 24},
                                         {"QUERIER", Align::left, 15},
                                         number("PORTS"),
                                         number("GROUPS"),
                                         number("MEMBERS"),
                                         {"MROUTERS"}};
  if (somePrivate) columns.insert(columns.begin() + 1, {"PRIVATE", Align::left, 17});
  TextTable table(std::move(columns));
  for (Json const& vlan : vlans) {
    std::string const querier = textAt(vlan, "querier");
    std::vector<std::string> row{
        cell(vlan, "vlan"),
        vlan.value("proxy", false) ? "yes" : textAt(vlan, "standing"),
        vlan.contains("other-querier") ? textAt(vlan, "other-querier") : querier,
        cell(vlan, "interface-count"),
        cell(vlan, "entries-count"),
        cell(vlan, "host-count"),
        listCell(vlan.at("bridge-mrouter-interface"))};
    if (somePrivate) row.insert(row.begin() + 1, privateRole(vlan));
    table.row(std::move(row));
  }
  table.print(out);
}

/// Why interfaces are not up, those with the same reason together.
void printReasons(std::ostream& out, Json const& interfaces) {
  std::vector<std::pair<std::string, std::vector<std::string>>> reasons;
  for (Json const& interface : interfaces) {
    if (!interface.contains("because")) continue;
    std::string reason =
        message(inWords(cell(interface, "state")), ": ", cell(interface, "because"));
    auto const known = std::find_if(reasons.begin(), reasons.end(),
                                    [&](auto const& each) { return each.first == reason; });
    auto& names = known == reasons.end()
                      ? reasons.emplace_back(std::move(reason), std::vector<std::string>()).second
                      : known->second;
    names.push_back(cell(interface, "name"));
  }
  if (!reasons.empty()) out << '\n';
  for (auto const& [reason, names] : reasons)
    printParagraph(out, message(enumerated(names, "and"), ": ", reason, '.'));
}

void printInterfaces(std::ostream& out, Json const& interfaces) {
  TextTable table({{"INTERFACE"}, {"STATE"}, {"DIRECTION"}, number("MTU"), {"VLANS"}});
  for (Json const& interface : interfaces) {
    std::string vlans;
    for (Json const& vlan : interface.at("vlan"))
      vlans += message(vlans.empty() ? "" : ", ", cell(vlan, "id"),
                       vlan.value("tagged", false) ? " tagged" : "");
    table.row({cell(interface, "name"), inWords(cell(interface, "state")),
               cell(interface, "direction"), cell(interface, "mtu"),
               vlans.empty() ? nothing : vlans});
  }
  table.print(out);
  printReasons(out, interfaces);
}

/// Where groups go, if a bridge forwards them.
void printDestinations(std::ostream& out, Json const& groups) {
  std::map<std::pair<unsigned, IpAddr>, Json const*> destinations;
  for (Json const& membership : groups)
    if (membership.contains("forwarded-to"))
      destinations.emplace(
          std::pair(numberAt(membership, "vlan"), addressAt(membership, "address")), &membership);
  if (destinations.empty()) return;
  out << "\nStreams go to\n\n";
  TextTable table({{"VLAN", Align::right}, {"GROUP"}, {"INTERFACES"}});
  for (auto const& [key, membership] : destinations)
    table.row({cell(*membership, "vlan"), cell(*membership, "address"),
               membership->value("flooded", false) ? "everywhere"
                                                   : listCell(membership->at("forwarded-to"))});
  table.print(out);
}

void printForwarding(std::ostream& out, Json const& document) {
  if (document.at("forwarding").empty()) {
    out << "No bridge is configured: [forwarding] names one.\n";
    return;
  }
  Json const& bridge = document.at("forwarding").front();
  out << "Bridge " << textAt(bridge, "bridge");
  if (!bridge.value("active", false)) {
    out << " is left alone: " << textAt(bridge, "obstacle") << '\n';
    return;
  }
  auto const entries = numberAt(bridge, "entries-count");
  out << message(" has ", entries, entries == 1 ? " entry" : " entries",
                 ", each of a group and a port; groups that nobody has joined go to ",
                 textAt(bridge, "unregistered") == "flood" ? "all ports" : "router ports", ".\n");
  if (numberAt(bridge, "flooded-groups-count") > 0)
    out << cell(bridge, "flooded-groups-count")
        << " groups are flooded, because the kernel refused entries; the log says why.\n";
  for (Json const& vlan : document.at("vlans"))
    if (!vlan.value("by-entries", false))
      out << "VLAN " << cell(vlan, "vlan")
          << " is still flooded, because not all listeners are known.\n";
  if (document.at("entries").empty()) return;
  out << '\n';
  TextTable table({{"VLAN", Align::right},
                   {"GROUP"},
                   {"INTERFACE"},
                   {"STATE", Align::left, 10},
                   {"MODE"},
                   {"SOURCES"}});
  for (Json const& entry : document.at("entries"))
    table.row({cell(entry, "vlan"), cell(entry, "address"), cell(entry, "interface"),
               cell(entry, "state"), cell(entry, "filter-mode"), listCell(entry.at("source"))});
  table.print(out);
}

/// A table with a column of its elements' SINCE, which is left out where no time of day is known.
class TableWithSince {
 public:
  /// @param place of the column.
  TableWithSince(Json const& document, std::vector<TextTable::Column> columns, std::ptrdiff_t place)
      : date_(textAt(document, "date")),
        place_(place),
        table_(with<TextTable::Column>(std::move(columns), {"SINCE"})) {}

  void row(Json const& element, std::vector<std::string> cells) {
    table_.row(with(std::move(cells), shortDate(cell(element, "since"), date_)));
  }
  void print(std::ostream& out) const { table_.print(out); }

 private:
  template <class Each>
  std::vector<Each> with(std::vector<Each> all, Each each) const {
    if (!date_.empty()) all.insert(all.begin() + place_, std::move(each));
    return all;
  }

  std::string date_;
  std::ptrdiff_t place_;
  TextTable table_;
};

void printGroups(std::ostream& out, Json const& document) {
  Json const& groups = document.at("groups");
  TableWithSince table(document,
                       {{"VLAN", Align::right},
                        {"GROUP"},
                        {"INTERFACE"},
                        {"REPORTER"},
                        {"EXPIRES", Align::right},
                        {"MODE"},
                        {"SOURCES"}},
                       4);
  for (Json const& membership : groups)
    table.row(membership,
              {cell(membership, "vlan"), cell(membership, "address"), cell(membership, "interface"),
               cell(membership, "host"), secondsCell(membership, "expire"),
               cell(membership, "filter-mode"), listCell(membership.at("source"))});
  table.print(out);
  printDestinations(out, groups);
}

void printHosts(std::ostream& out, Json const& document) {
  Snapshot snapshot;
  snapshot.time = timeAt(document);
  for (Json const& host : document.at("hosts")) {
    HostRecords& each = snapshot.hosts.emplace_back();
    each.name = textAt(host, "name");
    each.vlan = numberAt(host, "vlan");
    each.interface = textAt(host, "interface");
    unsigned const configured = host.value("igmp-version", 3u);
    each.igmpVersion = static_cast<Igmp::IgmpVersion>(configured);
    each.spokenVersion =
        static_cast<Igmp::IgmpVersion>(host.value("spoken-igmp-version", configured));
    each.blocked = host.value("blocked", false);
    using Bridging::AllowedTrafficDirection;
    for (auto const direction : {AllowedTrafficDirection::ingress, AllowedTrafficDirection::egress,
                                 AllowedTrafficDirection::none})
      if (textAt(host, "direction") == message(direction)) each.direction = direction;
    for (Json const& group : host.at("group"))
      each.groups.push_back({addressAt(group, "address"), filterIn(group)});
  }
  printSnapshot(out, snapshot);
}

void printRouterPorts(std::ostream& out, Json const& document) {
  TableWithSince table(document,
                       {{"VLAN", Align::right},
                        {"INTERFACE"},
                        {"STATIC"},
                        {"QUERIER"},
                        {"EXPIRES", Align::right},
                        {"PIM NEIGHBOR"},
                        {"EXPIRES", Align::right}},
                       2);
  for (Json const& port : document.at("mrouters"))
    table.row(port,
              {cell(port, "vlan"), cell(port, "interface"), yesOrNo(port.value("static", false)),
               cell(port, "querier"), secondsCell(port, "querier-expire"),
               cell(port, "pim-neighbor"), secondsCell(port, "pim-expire")});
  table.print(out);
}

void printIgnored(std::ostream& out, Json const& interfaces) {
  TextTable table({{"VLAN", Align::right}, {"INTERFACE"}, number("IGNORED"), {"CAUSE"}});
  bool empty = true;
  for (Json const& interface : interfaces)
    for (auto const& [cause, count] : interface.at("ignored").items()) {
      table.row({cell(interface, "vlan"), cell(interface, "name"), count.dump(), cause});
      empty = false;
    }
  if (empty) return;
  out << "\nIgnored\n\n";
  table.print(out);
}

void printStatistics(std::ostream& out, Json const& document) {
  out << "Received\n\n";
  TextTable received =
      columns(messagesReceived, {{"VLAN", Align::right}, {"INTERFACE", Align::left, 15}});
  for (Json const& interface : document.at("interfaces"))
    if (interface.contains("vlan"))
      addCounts(received, {cell(interface, "vlan"), cell(interface, "name")},
                interface.at("received"), messagesReceived);
  received.print(out);
  printIgnored(out, document.at("interfaces"));

  out << "\nReported by hosts\n\n";
  TextTable sent = columns(messagesSent, {{"VLAN", Align::right}, {"INTERFACE"}});
  for (Json const& host : document.at("hosts"))
    addCounts(sent, {cell(host, "vlan"), cell(host, "name")}, host.at("sent"), messagesSent);
  sent.print(out);

  out << "\nQueries sent\n\n";
  TextTable queries = columns(queriesSent, {{"VLAN", Align::right}});
  for (Json const& vlan : document.at("vlans"))
    addCounts(queries, {cell(vlan, "vlan")}, vlan.at("sent"), queriesSent);
  queries.print(out);

  out << "\nDevices\n\n";
  TextTable devices = columns(deviceFrames, {{"INTERFACE"}});
  for (Json const& device : document.at("devices"))
    addCounts(devices, {cell(device, "name")}, device, deviceFrames);
  devices.print(out);

  out << "\nAgent\n\n";
  TextTable agent(
      {number("TURNS"), number("LONGEST MS"), number("LOG LOST"), number("REFUSED"), {""}});
  for (Json const& each : document.at("agent"))
    agent.row({cell(each, "turn-count"), milliseconds(each.at("longest-turn").get<double>()),
               cell(each, "lost-log-line-count"), cell(each, "refused-configuration-count"), ""});
  agent.print(out);
}

void printVersion(std::ostream& out, Json const& version) {
  out << "igmpsnoopd " << cell(version, "version") << "\nRunning for "
      << secondsCell(version, "uptime") << ", since " << spelledDate(cell(version, "started"))
      << "; it is " << spelledDate(cell(version, "date")) << " now.\n";
  auto const configuration = version.find("configuration");
  if (configuration == version.end()) return;
  out << "Configuration " << cell(*configuration, "file") << ", in use since "
      << spelledDate(cell(*configuration, "in-use-since")) << ".\n";
  if (configuration->contains("refused"))
    out << "Read again at " << spelledDate(cell(*configuration, "refused"))
        << " and refused: " << cell(*configuration, "problem") << '\n';
}

/// "include 192.0.2.1, 192.0.2.2", "exclude -".
std::string filterText(Json const& filter) {
  return message(cell(filter, "filter-mode"), ' ', listCell(filter.at("source")));
}

}  // namespace

void ShownLists::add(Json line) {
  if (line.contains("lists")) {
    for (Json const& name : line.at("lists")) lists_.emplace_back(name.get<std::string>(), 0);
    line.erase("lists");
    header_ = std::move(line);
    return;
  }
  bool const isMore = line.contains("more");
  Json named = isMore ? std::move(line.at("more")) : std::move(line);
  for (auto& [name, element] : named.items())
    for (auto& [listName, list] : lists_) {
      if (listName != name) continue;
      if (!isMore) {
        list.push_back(std::move(element));
        break;
      }
      if (list.empty()) refuse("the answer goes on with something that it has not begun");
      for (auto& [key, values] : element.items())
        for (Json& value : values) list.back().at(key).push_back(std::move(value));
    }
}

Json ShownLists::takeDocument() {
  Json document = std::move(header_);
  for (auto& [name, list] : lists_) {
    for (Json& element : list)
      if (auto const group = element.find("group"); group != element.end()) *group = sorted(*group);
    document[name] = sorted(std::move(list));
  }
  return document;
}

void printShown(std::ostream& out, Request const& request, Json const& document) {
  std::string const& what = request.what;
  if (what == "version") {
    for (Json const& version : document.at("version")) printVersion(out, version);
    return;
  }
  if (what == "statistics") {
    printStatistics(out, document);
    return;
  }
  if (what == "forwarding") {
    printForwarding(out, document);
    return;
  }
  Json const& list = document.at(what);
  if (what == "hosts" && (!list.empty() || request.of == Selection())) {
    printHosts(out, document);
  } else if (list.empty()) {
    out << "There are no " << (what == "groups" ? "memberships" : what) << " to show.\n";
  } else if (what == "vlans") {
    printVlans(out, list);
  } else if (what == "interfaces") {
    printInterfaces(out, list);
  } else if (what == "groups") {
    printGroups(out, document);
  } else {
    printRouterPorts(out, document);
  }
}

void printTraceHandles(std::ostream& out, Json const& document) {
  TextTable table({{"HANDLE", Align::left, 40}, {"LEVELS"}});
  for (Json const& each : document.at("trace"))
    table.row({cell(each, "handle"), cell(each, "levels")});
  table.print(out);
}

std::string redrawn(std::string_view text) {
  std::string drawn = "\x1b[H";  // to the first place
  for (char const each : text) {
    if (each == '\n') drawn += "\x1b[K";  // nothing is left of the line
    drawn += each;
  }
  return drawn + "\x1b[J";  // nor of those below
}

Json monitorObject(Json const& line) {
  Json object;
  for (auto const& [event, value] : line.items()) {
    if (!value.is_object()) return {};
    object["event"] = event;
    object.update(value);
  }
  return object;
}

std::string monitorText(Json const& line) {
  Json const event = monitorObject(line);
  if (event.is_null()) return {};
  std::string text =
      message(event.contains("date") ? timeOfDay(textAt(event, "date")) : timeText(timeAt(event)),
              " vlan ", cell(event, "vlan"), ' ', cell(event, "interface"), ' ',
              cell(event, "address"), ' ', cell(event, "event"), ' ');
  if (event.contains("host")) text += message("of ", cell(event, "host"), ' ');
  text += cell(event, "change");
  if (event.contains("new")) text += message(": ", filterText(event.at("new")));
  if (event.contains("old")) text += message(" (was ", filterText(event.at("old")), ')');
  return text;
}

}  // namespace Agent
