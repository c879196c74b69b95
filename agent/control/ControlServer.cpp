#include "agent/control/ControlServer.h"

#include <sstream>
#include <stdexcept>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "agent/TraceRequest.h"
#include "agent/control/ForwardingAnswer.h"
#include "agent/control/Known.h"
#include "agent/control/Metrics.h"
#include "agent/control/ShowAnswers.h"
#include "agent/control/StatisticsAnswer.h"
#include "agent/control/UnixSocket.h"
#include "agent/control/VersionAnswer.h"
#include "agent/forwarding/ForwardingWords.h"
#include "agent/output/Explanation.h"
#include "agent/output/JsonValues.h"
#include "agent/output/Tables.h"
#include "agent/text/Dates.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// A whole answer: one line, and the end.
std::string lastLines(Json const& line) {
  return oneLine(line) + "\n{\"end\":true}\n";
}
std::unique_ptr<Answer> lineAnswer(Json const& line) {
  return std::make_unique<TextAnswer>(lastLines(line));
}

/// Of lists in which there is nothing.
std::unique_ptr<Answer> emptyAnswer(std::vector<std::string> const& lists) {
  return std::make_unique<TextAnswer>(lastLines({{"lists", lists}}));
}

/// Forgets a few groups at a time, so that nothing else has to wait. Says nothing until all are
/// forgotten, and so goes on to the end although its client may have gone.
class Clearing final : public Answer {
 public:
  Clearing(Switch& snoopingSwitch, Selection const& of) : switch_(snoopingSwitch) {
    for (VlanConfig const& vlan : switch_.configuration().vlans) {
      if (!of.has(vlan.vlanId)) continue;
      for (auto const& [group, status] : switch_.learning(vlan.vlanId)->status()->group())
        if (of.has(group)) groups_.emplace_back(vlan.vlanId, group);
    }
  }

  Progress advance(std::string& out) override {
    constexpr int groupsAtOnce = 64;
    for (int i = 0; i < groupsAtOnce && !groups_.empty(); ++i) {
      auto const [vlan, group] = groups_.back();
      groups_.pop_back();
      if (auto* const learning = switch_.learning(vlan)) learning->forgetGroup(group);
    }
    if (!groups_.empty()) return Progress::more;
    out += lastLines({{"done", true}});
    return Progress::done;
  }

 private:
  Switch& switch_;
  std::vector<std::pair<Bridging::VlanId, Wirex::IpAddr>> groups_;
};

/// Another answer's pieces of text, each in a line of JSON.
class Framed final : public Answer {
 public:
  explicit Framed(std::unique_ptr<Answer> answer) : answer_(std::move(answer)) {}

  Progress advance(std::string& out) override {
    std::string text;
    Progress const progress = answer_->advance(text);
    if (!text.empty()) out += oneLine({{"text", std::move(text)}}) + '\n';
    if (progress == Progress::done) out += oneLine({{"end", true}}) + '\n';
    return progress;
  }

 private:
  std::unique_ptr<Answer> answer_;
};

/// The levels of the handle of this name, of all if none is named.
std::unique_ptr<Answer> traceHandlesAnswer(std::string const& name) {
  std::string lines = oneLine({{"lists", {"trace"}}}) + '\n';
  auto const handles = name.empty() ? Kel::traceHandles() : std::vector{&traceHandleNamed(name)};
  for (Kel::TraceHandle const* const handle : handles)
    lines += oneLine({{"trace",
                       {{"handle", message(handle->name())}, {"levels", levelsText(*handle)}}}}) +
             '\n';
  return std::make_unique<TextAnswer>(lines + "{\"end\":true}\n");
}

/// Waits until it is decided whether the restart happens. The client may go before.
class Restarting final : public Answer {
 public:
  explicit Restarting(ControlServer::Restart const& restart) : restart_(restart) {}

  Progress advance(std::string& out) override {
    if (!decision_) begin();
    if (!decision_->problem) return Progress::waiting;
    std::string const& problem = *decision_->problem;
    out += problem.empty() ? lastLines({{"done", true}}) : oneLine({{"error", problem}}) + '\n';
    return Progress::done;
  }

 private:
  struct Decision {
    std::optional<std::string> problem;
    std::function<void()> made;
  };

  void begin() {
    decision_ = std::make_shared<Decision>();
    decision_->made = [this] { wake(); };
    restart_([decision = std::weak_ptr(decision_)](std::string const& problem) {
      auto const mine = decision.lock();
      if (!mine) return;
      mine->problem = problem;
      mine->made();
    });
  }

  ControlServer::Restart restart_;
  std::shared_ptr<Decision> decision_;
};

}  // namespace

ControlServer::ControlServer(Horix::EventLoop& loop, Switch& snoopingSwitch, std::string path,
                             Limits const& limits)
    : SocketServer(loop, std::make_unique<UnixSocket>(std::move(path)), limits),
      switch_(snoopingSwitch),
      start_(snoopingSwitch.now()),
      feeds_(snoopingSwitch, *loop.timerWheel(), start_, [this] { countCutOff(); }) {}

// Monitors go before the feeds that they are in.
ControlServer::~ControlServer() {
  removeClients();
}

bool ControlServer::isComplete(std::string_view input, bool ended) const {
  return input.find('\n') != std::string_view::npos || (ended && !input.empty());
}

std::unique_ptr<Answer> ControlServer::answerToSilence(std::string_view /*input*/) {
  return nullptr;
}

std::string ControlServer::refusal(std::string_view reason) const {
  return oneLine({{"error", reason}}) + '\n';
}

std::unique_ptr<Answer> ControlServer::answerTo(std::string_view request) {
  try {
    return answerTo(requestIn(request.substr(0, request.find('\n'))));
  } catch (std::invalid_argument const& error) {
    return std::make_unique<TextAnswer>(refusal(error.what()));
  }
}

std::unique_ptr<Answer> ControlServer::answerTo(Request const& request) {
  // What was heard in the same turn before is not published yet.
  loop().endBatch();
  refuseUnknown(request.of, switch_.configuration());
  if (request.command == "show") {
    if (request.what == "forwarding")
      return forwarding_ ? forwardingAnswer(switch_, *forwarding_, request, start_)
                         : emptyAnswer({"forwarding", "vlans", "entries"});
    if (request.what == "version") return versionAnswer(switch_.now() - start_, configuration_);
    Epoch const epoch(start_, Dates::knownAt(switch_.now()));
    if (request.what == "statistics")
      return statisticsAnswer(switch_, request, epoch, configuration_);
    return showAnswer(switch_, request, epoch, forwarding_);
  }
  if (request.command == "explain") return explanation(request);
  if (request.command == "monitor") return feeds_.monitor(monitorScope(request.what, request.of));
  if (request.command == "clear") return clearing(request);
  if (request.command == "trace") return tracing(request);
  if (request.command == "restart") return restarting();
  if (request.command == "metrics")
    return std::make_unique<Framed>(
        metricsAnswer(switch_, *this, MetricsFormat::text, "", forwarding_, configuration_));
  refuse("there is no command ", Agent::quoted(request.command));
}

std::unique_ptr<Answer> ControlServer::explanation(Request const& request) const {
  Selection const& of = request.of;
  if (!of.vlan || !of.interface || !of.group) refuse("explain takes vlan, interface and group");
  Explanation explained = explain(switch_, *of.vlan, *of.interface, *of.group);
  explained.dates = Dates::knownAt(Horix::Time::zero());
  explained.time -= start_;
  std::string const why =
      forwarding_ ? whyForwarded(*forwarding_, *of.vlan, *of.interface, *of.group) : "";
  if (!request.text) {
    Json object = explanationObject(explained);
    if (!why.empty()) object["forwarding"] = why;
    return lineAnswer({{"explanation", std::move(object)}});
  }
  std::ostringstream text;
  printExplanation(text, explained);
  if (!why.empty()) text << '\n' << why << '\n';
  return lineAnswer({{"text", text.str()}});
}

std::unique_ptr<Answer> ControlServer::clearing(Request const& request) {
  if (request.what != "groups")
    refuse("there is nothing called ", Agent::quoted(request.what), " to clear");
  return std::make_unique<Clearing>(switch_, request.of);
}

std::unique_ptr<Answer> ControlServer::restarting() const {
  if (!onRestart_) refuse("this agent cannot be started anew");
  return std::make_unique<Restarting>(onRestart_);
}

std::unique_ptr<Answer> ControlServer::tracing(Request const& request) const {
  if (request.levels.empty()) return traceHandlesAnswer(request.handle);
  TraceRequest const trace = traceRequestIn(request.handle, request.levels);
  for (int level = 0; level < Kel::TraceHandle::levels; ++level)
    trace.handle->levelEnabledIs(level, false);
  for (int const level : trace.levels) trace.handle->levelEnabledIs(level, true);
  trace.handle->enabledIs(!trace.levels.empty());
  return lineAnswer({{"done", true}});
}

}  // namespace Agent
