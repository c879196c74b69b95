#include "framework/kel/Trace.h"

#include <iostream>
#include <map>
#include <string>
#include <utility>

#include "framework/kel/Exception.h"

namespace Kel {

namespace {

/// Built on first use, because handles are looked up while the libraries' statics are built.
std::map<Name, TraceHandle>& registry() {
  static std::map<Name, TraceHandle> handles;
  return handles;
}

void writeLine(std::ostream& out, TraceMessage const& message) {
  out << message.handle << ' ' << message.level << ' ' << message.sourceFile << ':' << message.line
      << ' ' << message.function << ": " << message.text << '\n';
}

TraceSink& sink() {
  static TraceSink current;
  return current;
}

}  // namespace

std::ostream* TraceHandle::coverageStream_ = nullptr;
TraceHandle* TraceHandle::first_ = nullptr;

TraceHandle::TraceHandle(Name name) : next_(std::exchange(first_, this)), name_(std::move(name)) {
  updateStatements();
}

TraceHandle::~TraceHandle() {
  TraceHandle** place = &first_;
  while (*place != this) place = &(*place)->next_;
  *place = next_;
}

void TraceHandle::enabledIs(bool enabled) noexcept {
  enabled_ = enabled;
  updateStatements();
}

void TraceHandle::levelEnabledIs(int level, bool enabled) {
  if (!isLevel(level)) throw RangeException("TraceHandle::level < 0 or > 15 not allowed");
  std::uint32_t const flag = 1u << level;
  levelFlags_ = enabled ? levelFlags_ | flag : levelFlags_ & ~flag;
  updateStatements();
}

void TraceHandle::coverageStreamIs(std::ostream* stream) noexcept {
  coverageStream_ = stream;
  for (TraceHandle* handle = first_; handle; handle = handle->next_) handle->updateStatements();
}

void TraceHandle::updateStatements() noexcept {
  constexpr std::uint32_t allLevels = (1u << levels) - 1;
  hitStep_ = enabled_ ? 2 : 1;
  wantedLevels_ = coverageStream_ ? allLevels : enabled_ ? levelFlags_ : 0;
}

TraceHandle& traceHandle(Name const& name) {
  return registry().try_emplace(name, name).first->second;
}

std::vector<TraceHandle*> traceHandles() {
  std::vector<TraceHandle*> handles;
  for (auto& [name, handle] : registry()) handles.push_back(&handle);
  return handles;
}

void traceSinkIs(TraceSink newSink) {
  sink() = std::move(newSink);
}

void traceHelper(TraceHandle& facility, char const* object, std::ostringstream const& stream,
                 int level, bool levelEnabled, char const* sourceFile, int line,
                 char const* function) {
  std::string const text = stream.str();
  TraceMessage const message{facility.name(), object, text, level, sourceFile, line, function};
  if (std::ostream* const coverage = TraceHandle::coverageStream()) writeLine(*coverage, message);
  if (!levelEnabled) return;
  if (TraceSink const& current = sink())
    current(message);
  else
    writeLine(std::clog, message);
}

}  // namespace Kel
