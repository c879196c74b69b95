#include "agent/TraceRequest.h"

#include "agent/config/NumberRanges.h"
#include "agent/text/Wording.h"

namespace Agent {

Kel::TraceHandle& traceHandleNamed(std::string const& name) {
  std::vector<std::string> names;
  for (Kel::TraceHandle* const handle : Kel::traceHandles()) {
    if (handle->name().stringValue().view() == name) return *handle;
    names.emplace_back(handle->name().stringValue().view());
  }
  refuse("there is no trace handle ", Agent::quoted(name), ", but ", enumerated(names, "and"));
}

TraceRequest traceRequestIn(std::string const& handle, std::string const& levels) {
  TraceRequest request{&traceHandleNamed(handle), {}};
  if (levels == "none") return request;
  for (std::uint32_t const level : expandNumberRanges(levels)) {
    if (level >= Kel::TraceHandle::levels)
      refuse("trace level ", level, " is above ", Kel::TraceHandle::levels - 1);
    request.levels.push_back(static_cast<int>(level));
  }
  return request;
}

std::string levelsText(Kel::TraceHandle const& handle) {
  std::string text;
  for (int first = 0; first < Kel::TraceHandle::levels; ++first) {
    if (!handle.levelEnabled(first)) continue;
    int last = first;
    while (last + 1 < Kel::TraceHandle::levels && handle.levelEnabled(last + 1)) ++last;
    text += message(text.empty() ? "" : ",", first);
    if (last > first) text += message('-', last);
    first = last;
  }
  return text.empty() ? "none" : text;
}

}  // namespace Agent
