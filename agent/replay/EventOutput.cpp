#include "agent/replay/EventOutput.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

#include "agent/output/ExplanationWords.h"
#include "agent/output/JsonValues.h"
#include "agent/text/TimeText.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// A crowd that leaves together is told in part.
constexpr std::size_t mostCauses = 3;

std::string text(EventCause const& cause) {
  std::string const why = cause.frame ? message("frame ", *cause.frame) : "timer";
  return message(cause.port, ' ', cause.reporter, " (", why, ')');
}

std::string text(std::vector<EventCause> const& causes) {
  std::vector<std::string> told;
  for (std::size_t i = 0; i < std::min(mostCauses, causes.size()); ++i)
    told.push_back(text(causes[i]));
  if (causes.size() > mostCauses) told.push_back(message(causes.size() - mostCauses, " more"));
  return enumerated(told, "and");
}

}  // namespace

std::string eventLine(ReplayEvent const& event, bool absoluteTime) {
  RecordChange const& change = event.record.change;
  std::string line = message(absoluteTime ? utcText(event.date) : timeText(event.record.time),
                             " vlan ", change.host.vlanId(), ' ', change.host.intfId(), ' ',
                             change.group, ' ', change.kind());
  if (change.after) line += message(": ", filterText(*change.after));
  if (change.before) line += message(" (was ", filterText(*change.before), ')');
  if (!event.causes.empty()) line += message("; by ", text(event.causes));
  return line;
}

std::string eventJson(ReplayEvent const& event) {
  Json object = recordChangeObject(event.record);
  object["date"] = utcText(event.date);
  Json& causes = object["cause"] = Json::array();
  for (EventCause const& cause : event.causes) {
    Json each;
    each["interface"] = message(cause.port);
    each["host"] = message(cause.reporter);
    if (cause.frame) each["frame"] = *cause.frame;
    causes.push_back(std::move(each));
  }
  return oneLine(object);
}

std::string EventOutput::text(std::vector<ReplayEvent> const& events) {
  std::string text;
  for (ReplayEvent const& event : events) {
    bool const first = std::exchange(empty_, false);
    if (form_ == Form::json)
      text += message(first ? "{\n  \"events\": [\n    " : ",\n    ", eventJson(event));
    else
      text += eventLine(event, form_ == Form::absoluteTimes) + '\n';
  }
  return text;
}

std::string EventOutput::end(std::string const& document) const {
  if (form_ != Form::json) return (empty_ ? "No record has changed.\n\n" : "\n") + document;
  // The document's own beginning is replaced by the events.
  return (empty_ ? "{\n  \"events\": []" : "\n  ]") + (",\n" + document.substr(2));
}

}  // namespace Agent
