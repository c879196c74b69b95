#include "agent/report/ReportData.h"

#include <algorithm>
#include <chrono>

#include <nlohmann/json.hpp>

#include "agent/output/Counters.h"
#include "agent/report/FilterWords.h"
#include "agent/text/NaturalOrder.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Wirex::IpAddr;

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

std::optional<Horix::Time> timeAt(Json const& object, char const* key) {
  auto const found = object.find(key);
  if (found == object.end() || !found->is_number()) return std::nullopt;
  return std::chrono::round<std::chrono::microseconds>(
      std::chrono::duration<double>(found->get<double>()));
}

SourceFilter filterIn(Json const& object) {
  SourceFilter filter;
  if (textAt(object, "filter-mode") == "exclude") filter.mode = Gmp::Igmp::IgmpFilterMode::exclude;
  for (Json const& source : object.at("source"))
    filter.sources.push_back(IpAddr::fromText(source.get<std::string>()).value_or(IpAddr()));
  return filter;
}

ReportedVlan vlanIn(Json const& object) {
  ReportedVlan vlan;
  vlan.id = numberAt(object, "vlan");
  vlan.standing = textAt(object, "standing");
  if (object.contains("primary-vlan")) vlan.primary = numberAt(object, "primary-vlan");
  vlan.sendsQueries = object.value("send-query", false);
  vlan.otherQuerier = textAt(object, "other-querier");
  return vlan;
}

ReportedInterface interfaceIn(Json const& object) {
  ReportedInterface interface {
    textAt(object, "name"), inWords(textAt(object, "state")), textAt(object, "because"),
        textAt(object, "direction"), numberAt(object, "mtu"), {}
  };
  for (Json const& vlan : object.at("vlan"))
    interface.vlans += message(interface.vlans.empty() ? "" : ", ", numberAt(vlan, "id"),
                               vlan.value("tagged", false) ? " tagged" : "");
  return interface;
}

void addInterface(ReportData& data, Json const& object) {
  data.interfaces.push_back(interfaceIn(object));
  for (Json const& membership : object.at("vlan"))
    for (ReportedVlan& vlan : data.vlans)
      if (vlan.id == numberAt(membership, "id")) vlan.ports.push_back(textAt(object, "name"));
}

ReportedMembership membershipIn(Json const& object) {
  return {numberAt(object, "vlan"),
          addressAt(object, "address"),
          textAt(object, "interface"),
          addressAt(object, "host"),
          filterIn(object),
          textAt(object, "since"),
          timeAt(object, "expire").value_or(Horix::Time::zero())};
}

HostRecords hostIn(Json const& object) {
  HostRecords host;
  host.name = textAt(object, "name");
  host.vlan = numberAt(object, "vlan");
  host.interface = textAt(object, "interface");
  host.igmpVersion = static_cast<Igmp::IgmpVersion>(object.value("igmp-version", 3));
  host.blocked = object.value("blocked", false);
  host.sourceAddress = addressAt(object, "source-address");
  for (Json const& group : object.at("group"))
    host.groups.push_back({addressAt(group, "address"), filterIn(group)});
  return host;
}

ReportedRouterPort routerPortIn(Json const& object) {
  return {numberAt(object, "vlan"),          textAt(object, "interface"),
          textAt(object, "since"),           object.value("static", false),
          addressAt(object, "querier"),      timeAt(object, "querier-expire"),
          addressAt(object, "pim-neighbor"), timeAt(object, "pim-expire")};
}

ReportedEntry entryIn(Json const& object) {
  return {numberAt(object, "vlan"), addressAt(object, "address"), textAt(object, "interface"),
          textAt(object, "state"), filterIn(object)};
}

// ---- Counters

std::string cell(Json const& object, char const* key) {
  auto const found = object.find(key);
  if (found == object.end() || found->is_null()) return {};
  return found->is_string() ? found->get<std::string>() : found->dump();
}

template <class Counters, std::size_t size>
ReportedCounters table(char const* title, std::vector<std::string> of,
                       std::array<Counter<Counters>, size> const& counters) {
  std::size_t const textColumns = of.size();
  for (auto const& counter : counters) of.emplace_back(counter.column);
  return {title, std::move(of), textColumns, {}};
}

/// @param part of an element that holds its counters; null if it does itself.
template <class Counters, std::size_t size>
void addRows(ReportedCounters& table, Json const& elements, std::vector<char const*> const& of,
             char const* part, std::array<Counter<Counters>, size> const& counters) {
  for (Json const& element : elements) {
    std::vector<std::string> row;
    row.reserve(of.size() + size);
    for (char const* const key : of) row.push_back(cell(element, key));
    Json const& values = part ? element.at(part) : element;
    for (auto const& counter : counters) row.push_back(cell(values, counter.key));
    table.rows.push_back(std::move(row));
  }
}

void addStatistics(ReportData& data, Json const& document) {
  auto received = table("Heard", {"VLAN", "INTERFACE"}, messagesReceived);
  addRows(received, document.at("interfaces"), {"vlan", "name"}, "received", messagesReceived);
  std::erase_if(received.rows, [](auto const& row) { return row[0].empty(); });
  auto sent = table("Reported by hosts", {"VLAN", "INTERFACE"}, messagesSent);
  addRows(sent, document.at("hosts"), {"vlan", "name"}, "sent", messagesSent);
  auto queries = table("Queries sent", {"VLAN"}, queriesSent);
  addRows(queries, document.at("vlans"), {"vlan"}, "sent", queriesSent);
  auto devices = table("Devices", {"INTERFACE"}, deviceFrames);
  addRows(devices, document.at("devices"), {"name"}, nullptr, deviceFrames);
  data.counters = {std::move(received), std::move(sent), std::move(queries), std::move(devices)};
  for (Json const& interface : document.at("interfaces"))
    for (auto const& [cause, count] : interface.at("ignored").items())
      data.ignored.push_back(
          {cell(interface, "vlan"), textAt(interface, "name"), cause, count.get<std::uint64_t>()});
}

// ---- Outlook

std::string reasonOf(ReportedRouterPort const& port) {
  if (port.pimNeighbor != IpAddr()) return message("PIM ", port.pimNeighbor);
  return port.querier != IpAddr() ? message("querier ", port.querier) : "configured";
}

/// Nothing if it never ends.
std::optional<Horix::Time> endOf(ReportedRouterPort const& port) {
  bool const byPim = port.pimNeighbor != IpAddr();
  if (port.configured || (byPim && !port.pimExpiresIn)) return std::nullopt;
  return std::max(byPim ? *port.pimExpiresIn : Horix::Time::zero(),
                  port.querierExpiresIn.value_or(Horix::Time::zero()));
}

}  // namespace

void addList(ReportData& data, std::string const& list, Json const& document) {
  data.time = timeAt(document, "time").value_or(data.time);
  if (document.contains("date")) data.date = textAt(document, "date");
  if (list == "statistics") {
    addStatistics(data, document);
    return;
  }
  if (list == forwardingList) {
    for (Json const& each : document.at("entries")) data.entries.push_back(entryIn(each));
    return;
  }
  for (Json const& each : document.at(list))
    if (list == "vlans")
      data.vlans.push_back(vlanIn(each));
    else if (list == "interfaces")
      addInterface(data, each);
    else if (list == "groups")
      data.memberships.push_back(membershipIn(each));
    else if (list == "hosts")
      data.hosts.push_back(hostIn(each));
    else
      data.routerPorts.push_back(routerPortIn(each));
  for (ReportedVlan& vlan : data.vlans)
    std::sort(vlan.ports.begin(), vlan.ports.end(), precedesNaturally);
}

History outlook(ReportData const& data) {
  constexpr std::size_t mostOfFilter = 80;
  using Kind = HistoryRow::Kind;
  History history;
  history.isAhead = true;
  history.end = std::chrono::seconds(60);
  auto const add = [&](Kind kind, auto const& of, IpAddr group, IpAddr reporter,
                       std::optional<Horix::Time> to, std::string text) {
    if (to) history.end = std::max(history.end, *to);
    history.rows.push_back({kind,
                            of.vlan,
                            group,
                            of.interface,
                            reporter,
                            {{Horix::Time::zero(), to, std::move(text)}}});
  };
  for (ReportedRouterPort const& port : data.routerPorts)
    add(Kind::router, port, {}, {}, endOf(port), reasonOf(port));
  for (ReportedMembership const& each : data.memberships)
    add(Kind::membership, each, each.group, each.reporter, each.expiresIn,
        wordsFor(each.filter, mostOfFilter));
  std::sort(history.rows.begin(), history.rows.end(),
            [](HistoryRow const& a, HistoryRow const& b) { return precedes(a, b); });
  return history;
}

}  // namespace Agent
