#pragma once

#include <string>
#include <vector>

#include "agent/replay/ReplayEvent.h"

namespace Agent {

/// Puts a replay's events into text or JSON while they happen, and keeps none of them.
class EventOutput {
 public:
  enum class Form { relativeTimes, absoluteTimes, json };

  explicit EventOutput(Form form) : form_(form) {}

  /// A line for each event.
  std::string text(std::vector<ReplayEvent> const& events);

  /// What comes after the last one. In JSON the rest of a document that begins with the events.
  /// @param document what the replay ends with.
  std::string end(std::string const& document) const;

 private:
  Form form_;
  bool empty_ = true;
};

/// An event on one line, without its end.
std::string eventLine(ReplayEvent const& event, bool absoluteTime);

/// An event as JSON on one line.
std::string eventJson(ReplayEvent const& event);

}  // namespace Agent
