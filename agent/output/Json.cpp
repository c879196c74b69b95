#include "agent/output/Json.h"

#include <chrono>

#include <nlohmann/json.hpp>

#include "agent/config/Wording.h"

namespace Agent {

namespace {

using Json = nlohmann::ordered_json;  // keys stay in the order in which they are written

double seconds(Horix::Time time) {
  return std::chrono::duration<double>(time).count();
}

Json sources(SourceFilter const& filter) {
  Json list = Json::array();
  for (Wirex::IpAddr const source : filter.sources) list.push_back(message(source));
  return list;
}

void addFilter(Json& object, SourceFilter const& filter) {
  object["filter-mode"] = message(filter.mode);
  object["source"] = sources(filter);
}

Json hostObject(HostRecords const& host) {
  Json object;
  object["name"] = host.name;
  object["vlan"] = host.vlan;
  object["interface"] = host.interface;
  object["igmp-version"] = static_cast<unsigned>(host.igmpVersion);
  object["blocked"] = host.blocked;
  object["direction"] = message(host.direction);
  Json& groups = object["group"] = Json::array();
  for (GroupRecord const& group : host.groups) {
    Json record;
    record["address"] = message(group.address);
    addFilter(record, group.filter);
    groups.push_back(std::move(record));
  }
  return object;
}

Json eventObject(RecordEvent const& event) {
  RecordChange const& change = event.change;
  Json object;
  object["time"] = seconds(event.time);
  object["name"] = message(change.host);
  object["vlan"] = change.host.vlanId().value();
  object["interface"] = message(change.host.intfId());
  object["address"] = message(change.group);
  object["change"] = change.kind();
  if (change.before) addFilter(object["old"], *change.before);
  if (change.after) addFilter(object["new"], *change.after);
  return object;
}

Json ignoredObject(std::vector<IgnoredInput> const& ignored) {
  Json object = Json::object();
  for (IgnoredInput const& input : ignored)
    for (auto const& [cause, count] : input.counts) object[input.interface][message(cause)] = count;
  return object;
}

template <class T>
Json list(std::vector<T> const& values, Json (*object)(T const&)) {
  Json list = Json::array();
  for (T const& value : values) list.push_back(object(value));
  return list;
}

}  // namespace

std::string json(Snapshot const& snapshot, std::vector<RecordEvent> const* events) {
  Json document;
  document["time"] = seconds(snapshot.time);
  if (events) document["events"] = list(*events, eventObject);
  document["hosts"] = list(snapshot.hosts, hostObject);
  document["ignored"] = ignoredObject(snapshot.ignored);
  return document.dump(2) + '\n';
}

}  // namespace Agent
