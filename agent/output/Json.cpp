#include "agent/output/Json.h"

#include <nlohmann/json.hpp>

#include "agent/output/JsonValues.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

template <class T>
Json list(std::vector<T> const& values, Json (*object)(T const&)) {
  Json list = Json::array();
  for (T const& value : values) list.push_back(object(value));
  return list;
}

Json hostObject(HostRecords const& host) {
  Json object = hostAttributes(host);
  object["group"] = list(host.groups, groupObject);
  return object;
}

Json ignoredObject(std::vector<IgnoredInput> const& ignored) {
  Json object = Json::object();
  for (IgnoredInput const& input : ignored)
    for (auto const& [cause, count] : input.counts) object[input.interface][message(cause)] = count;
  return object;
}

}  // namespace

std::string json(Snapshot const& snapshot) {
  Json document;
  document["time"] = seconds(snapshot.time);
  document["hosts"] = list(snapshot.hosts, hostObject);
  document["ignored"] = ignoredObject(snapshot.ignored);
  return document.dump(2) + '\n';
}

std::string json(Explanation const& explanation) {
  return explanationObject(explanation).dump(2) + '\n';
}

}  // namespace Agent
