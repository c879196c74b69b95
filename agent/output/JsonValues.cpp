#include "agent/output/JsonValues.h"

#include <chrono>

#include <nlohmann/json.hpp>

#include "agent/output/ExplanationWords.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

template <class T>
Json addressList(std::vector<T> const& addresses) {
  Json list = Json::array();
  for (T const& address : addresses) list.push_back(message(address));
  return list;
}

Json filterObject(SourceFilter const& filter) {
  Json object;
  addFilter(object, filter);
  return object;
}

/// An absent filter is null.
Json filterOrNull(std::optional<SourceFilter> const& filter) {
  return filter ? filterObject(*filter) : Json();
}

/// Adds when something was, if it is known of which day that is.
void addDate(Json& object, char const* key, Dates const& dates, Horix::Time ago) {
  if (dates.known()) object[key] = dates.text(-ago);
}

Json portObject(ExplainedPort const& port, Dates const& dates) {
  Json object;
  object["interface"] = port.interface;
  object["own"] = port.own;
  addFilter(object, port.wants);
  if (port.reportersWant) object["reporters-want"] = filterObject(*port.reportersWant);
  Json& reporters = object["host"] = Json::array();
  for (ExplainedReporter const& reporter : port.reporters) {
    Json each;
    each["address"] = message(reporter.address);
    addFilter(each, reporter.filter);
    addDate(each, "since", dates, reporter.knownFor);
    each["expire"] = seconds(reporter.expiresIn);
    reporters.push_back(std::move(each));
  }
  if (port.furtherReporters > 0) object["further-host-count"] = port.furtherReporters;
  return object;
}

Json sourceObject(ExplainedSource const& source, Explanation const& explanation) {
  Json object;
  object["address"] = message(source.address);
  object["listed"] = source.place != ExplainedSource::Place::unlisted;
  object["included-by"] = source.includedBy;
  object["excluded-by"] = source.excludedBy;
  object["because"] = fateOf(source, explanation);
  return object;
}

Json groupSendingsObject(ExplainedGroupSendings const& sendings, Explanation const& explanation) {
  Json object;
  if (auto const& counts = sendings.counts) {
    object["records-v3"] = counts->recordsV3;
    object["reports-v2"] = counts->reportsV2;
    object["reports-v1"] = counts->reportsV1;
    object["leaves"] = counts->leaves;
  }
  if (sendings.latest.empty()) return object;
  object["latest"] = sendings.latest;
  object["since-sent"] = seconds(sendings.sinceLatest);
  addDate(object, "last-sent", explanation.dates, sendings.sinceLatest);
  return object;
}

Json sendingObject(Explanation const& explanation) {
  ExplainedSending const& sending = *explanation.sending;
  Json object;
  object["igmp-version"] = static_cast<unsigned>(sending.spokenVersion);
  object["configured-igmp-version"] = static_cast<unsigned>(sending.configuredVersion);
  if (sending.spokenVersion != sending.configuredVersion)
    object["older-querier"] = message(sending.olderQuerier);
  object["since-sent"] = sending.sinceSent ? Json(seconds(*sending.sinceSent)) : Json();
  if (sending.sinceSent) addDate(object, "last-sent", explanation.dates, *sending.sinceSent);
  if (sending.ofGroup) object["of-group"] = groupSendingsObject(*sending.ofGroup, explanation);
  object["reports-unasked"] = sending.reportsUnasked;
  object["mrouter"] = sending.routerPort.has_value();
  if (sending.routerPort)
    addDate(object, "mrouter-since", explanation.dates, sending.routerPortFor);
  Json& obstacles = object["obstacle"] = Json::array();
  for (Obstacle const obstacle : sending.obstacles) obstacles.push_back(name(obstacle));
  object["because"] = sendingOf(explanation);
  return object;
}

}  // namespace

double seconds(Horix::Time time) {
  return std::chrono::duration<double>(time).count();
}

void addFilter(Json& object, SourceFilter const& filter) {
  object["filter-mode"] = message(filter.mode);
  object["source"] = addressList(filter.sources);
}

Json hostAttributes(HostRecords const& host) {
  Json object;
  object["name"] = host.name;
  object["vlan"] = host.vlan;
  object["interface"] = host.interface;
  object["igmp-version"] = static_cast<unsigned>(host.igmpVersion);
  if (host.spokenVersion != host.igmpVersion)
    object["spoken-igmp-version"] = static_cast<unsigned>(host.spokenVersion);
  object["blocked"] = host.blocked;
  object["direction"] = message(host.direction);
  object["source-address"] = message(host.sourceAddress);
  return object;
}

Json groupObject(GroupRecord const& group) {
  Json object;
  object["address"] = message(group.address);
  addFilter(object, group.filter);
  return object;
}

Json recordChangeObject(RecordEvent const& event) {
  RecordChange const& change = event.change;
  Json object;
  object["time"] = seconds(event.time);
  object["name"] = message(change.host);
  object["vlan"] = change.host.vlanId().value();
  object["interface"] = message(change.host.intfId());
  object["address"] = message(change.group);
  object["change"] = change.kind();
  if (change.before) object["old"] = filterObject(*change.before);
  if (change.after) object["new"] = filterObject(*change.after);
  return object;
}

Json explanationObject(Explanation const& explanation) {
  Json object;
  object["time"] = seconds(explanation.time);
  addDate(object, "date", explanation.dates, Horix::Time::zero());
  object["vlan"] = explanation.vlan.value();
  object["interface"] = explanation.interface;
  object["group"] = message(explanation.group);
  object["standing"] = name(explanation.standing);
  object["learned-in-vlan"] = explanation.learnedIn.value();
  object["verdict"] = verdictOf(explanation);
  object["record"] = filterOrNull(explanation.record);
  object["merged"] = filterOrNull(explanation.merged);
  object["rule"] = name(explanation.rule);
  object["because"] = mergeOf(explanation);
  Json& ports = object["port"] = Json::array();
  for (ExplainedPort const& port : explanation.ports)
    ports.push_back(portObject(port, explanation.dates));
  Json& sources = object["source"] = Json::array();
  for (ExplainedSource const& source : explanation.sources)
    sources.push_back(sourceObject(source, explanation));
  Json& ignored = object["ignored"] = Json::array();
  for (ExplainedRefusal const& refusal : explanation.ignored) {
    Json& each = ignored.emplace_back(Json{{"interface", refusal.interface},
                                           {"host", message(refusal.reporter)},
                                           {"cause", message(refusal.reason)},
                                           {"count", refusal.times},
                                           {"since-latest", seconds(refusal.sinceLatest)}});
    addDate(each, "latest", explanation.dates, refusal.sinceLatest);
  }
  if (explanation.sending) object["sending"] = sendingObject(explanation);
  return object;
}

std::string oneLine(Json const& value) {
  return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}

}  // namespace Agent
