#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <sstream>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <variant>
#include <vector>

#include "agent/CommandLine.h"
#include "agent/Log.h"
#include "agent/OutOfMemory.h"
#include "agent/compare/Comparison.h"
#include "agent/config/ConfigurationReader.h"
#include "agent/config/MemoryBound.h"
#include "agent/control/Known.h"
#include "agent/guess/ConfigurationGuess.h"
#include "agent/live/Live.h"
#include "agent/live/Privileges.h"
#include "agent/output/Json.h"
#include "agent/output/Tables.h"
#include "agent/replay/CaptureName.h"
#include "agent/replay/EventOutput.h"
#include "agent/replay/ProgressLine.h"
#include "agent/replay/Replay.h"
#include "agent/replay/ReplayLists.h"
#include "agent/report/ReplayReport.h"
#include "agent/report/ReportFile.h"
#include "agent/text/Dates.h"
#include "agent/text/TimeText.h"
#include "agent/text/Wording.h"

namespace {

using namespace Agent;  // NOLINT(google-build-using-namespace): this is the agent

constexpr int done = 0;
constexpr int couldNot = 1;
constexpr int wrongUsage = 2;

/// A configuration with errors; each has its line, which names the file.
struct UnusableConfiguration {
  ConfigurationErrors errors;
};

Configuration load(std::string const& fileName) {
  auto result = readConfigurationFile(fileName);
  if (auto* const errors = std::get_if<ConfigurationErrors>(&result))
    throw UnusableConfiguration{std::move(*errors)};
  return std::get<Configuration>(std::move(result));
}

void print(std::string const& text) {
  errno = 0;
  std::fwrite(text.data(), 1, text.size(), stdout);
  if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
    refuse("cannot write to standard output: ", std::generic_category().message(errno),
           "; make room or keep its reader running");
  }
}

/// The requested traces go to standard error, with the replay's time. It begins before there is a
/// replay, because much is traced while the switch is being made.
class Tracing {
 public:
  explicit Tracing(std::vector<TraceRequest> const& requests) : requests_(requests) {
    enable(true);
    Kel::traceSinkIs([this](Kel::TraceMessage const& trace) {
      std::clog << timeText(replay_ ? replay_->result().now() : Horix::Time::zero()) << ' '
                << trace.handle << ' ' << trace.level << ": " << trace.text << '\n';
    });
  }
  Tracing(Tracing const&) = delete;
  Tracing& operator=(Tracing const&) = delete;
  ~Tracing() { end(); }

  /// While the replay runs: its end is that of the tracing.
  class Run {
   public:
    Run(Tracing& tracing, Replay const& replay) : tracing_(tracing) { tracing.replay_ = &replay; }
    Run(Run const&) = delete;
    Run& operator=(Run const&) = delete;
    ~Run() { tracing_.end(); }

   private:
    Tracing& tracing_;
  };

 private:
  void end() {
    enable(false);
    Kel::traceSinkIs({});
  }

  void enable(bool enabled) {
    for (TraceRequest const& request : requests_) {
      request.handle->enabledIs(enabled);
      for (int const level : request.levels) request.handle->levelEnabledIs(level, enabled);
    }
  }

  std::vector<TraceRequest> const& requests_;
  Replay const* replay_ = nullptr;
};

int run(LiveCommand const& command) {
  Configuration configuration = load(command.configuration);
  requirePrivileges();
  std::string const& name = command.user.empty() ? configuration.user : command.user;
  auto const user = isRoot() && !name.empty() ? std::optional(userNamed(name)) : std::nullopt;
  bool const setsBridge = configuration.forwarding.has_value();
  Live live(command, std::move(configuration), Handover::received());
  if (user) live.socketsBelongTo(*user);
  dropPrivileges(user, setsBridge);
  live.run();
  return done;
}

EventOutput::Form formOfEvents(ReplayCommand const& command) {
  using Form = EventOutput::Form;
  if (command.json) return Form::json;
  return command.absoluteTimes ? Form::absoluteTimes : Form::relativeTimes;
}

std::string stateText(ReplayCommand const& command, Replay const& replay) {
  if (!command.show.empty()) {
    Dates const dates = Dates::inUtc(replay.start());
    if (command.json) return listsJson(replay.result(), command.show, dates);
    return listsText(replay.result(), command.show,
                     command.absoluteTimes ? dates : Dates::sinceZero());
  }
  Snapshot const snapshot = snapshotOf(replay.result());
  if (command.json) return json(snapshot);
  std::ostringstream out;
  printSnapshot(out, snapshot);
  return out.str();
}

std::string explanationText(ReplayCommand const& command, Replay const& replay) {
  auto const& [vlan, interface, group] = *command.explain;
  Explanation explanation = explain(replay.result(), vlan, interface, group);
  if (explanation.sending)
    explanation.sending->ofGroup = replay.groupSendings()->explained(explanation.time);
  if (command.json) return json(explanation);
  std::ostringstream out;
  printExplanation(out, explanation);
  return out.str();
}

/// As igmpsnoopctl explain does.
void requireConfigured(RecordPlace const& place, Configuration const& configuration) {
  refuseUnknown({place.vlan, place.interface, place.group}, configuration);
}

/// Nobody looks on at what is no terminal; and on one that shows other lines as well it would tear
/// them apart.
bool showsProgress(ReplayCommand const& command) {
  bool const hasOtherLines =
      !command.traces.empty() || (command.events && isatty(STDOUT_FILENO) == 1);
  return isatty(STDERR_FILENO) == 1 && !hasOtherLines;
}

void runShowingProgress(Replay& replay, ReplayCommand const& command) {
  std::optional<ProgressLine> line;
  if (showsProgress(command)) {
    line.emplace(std::cerr);
    replay.onProgressIs([&](CaptureMerge const& packets) { line->show(packets); });
  }
  replay.run(command.until);
  replay.onProgressIs(nullptr);
}

std::vector<std::string> inputsOf(ReplayCommand const& command) {
  std::vector<std::string> inputs{command.configuration};
  for (PortCapture const& capture : command.captures) inputs.push_back(capture.fileName);
  return inputs;
}

/// Whether nothing has been printed, and all captures can be read once more.
bool canBeRepeated(ReplayCommand const& command) {
  return !command.events && command.traces.empty() &&
         std::ranges::all_of(command.captures, [](PortCapture const& capture) {
           return std::filesystem::is_regular_file(captureName(capture.fileName).fileName);
         });
}

void runReplay(Replay& replay, ReplayCommand const& command, Tracing& tracing,
               EventOutput& events) {
  Tracing::Run const traced(tracing, replay);
  for (StationAddress const& address : command.own) replay.ownAddressIs(address);
  if (command.write) replay.writeSent(*command.write);
  if (command.events)
    replay.onEventsAre([&](std::vector<ReplayEvent> const& some) { print(events.text(some)); });
  if (command.report) replay.watchHistory();
  if (auto const& place = command.explain)
    replay.watchSendings(place->vlan, place->interface, place->group);
  runShowingProgress(replay, command);
}

/// Whoever turns out to be the switch has been heard until then: once more, without.
std::unique_ptr<Replay> replayed(ReplayCommand const& command, Configuration const& configuration,
                                 Tracing& tracing, EventOutput& events) {
  auto replay = std::make_unique<Replay>(configuration, command.captures);
  runReplay(*replay, command, tracing, events);
  auto own = replay->ownFrames().stations().known();
  if (own.empty() || !canBeRepeated(command)) return replay;
  replay = nullptr;
  replay = std::make_unique<Replay>(configuration, command.captures);
  replay->ownStationsAre(std::move(own));
  runReplay(*replay, command, tracing, events);
  return replay;
}

int run(ReplayCommand const& command) {
  Configuration const configuration = load(command.configuration);
  requireConfiguredPorts(command.captures, configuration, command.configuration);
  if (command.explain) requireConfigured(*command.explain, configuration);
  EventOutput events(formOfEvents(command));
  Tracing tracing(command.traces);
  std::optional<ReportFile> report;
  if (command.report) report.emplace(*command.report, inputsOf(command));
  auto const replay = replayed(command, configuration, tracing, events);
  for (std::string const& remark : remarksOn(replay->ownFrames())) log(Severity::warning, remark);
  if (report) report->write(reportOf(replay->result(), command.configuration, replay->history()));

  std::string const text =
      command.explain ? explanationText(command, *replay) : stateText(command, *replay);
  print(command.events ? events.end(text) : text);
  return done;
}

int run(CheckCommand const& command) {
  Configuration const configuration = load(command.configuration);
  print(message(command.configuration, " is usable: ", counted(configuration.vlans.size(), "VLAN"),
                ", ", proxiedVlans(configuration), " proxied, ",
                counted(configuration.interfaces.size(), "interface"), "; ",
                words(memoryBound(configuration)), '\n'));
  return done;
}

int fail(std::exception const& error, int status) {
  log(Severity::error, error.what());
  return status;
}

/// As programs that compare do: 0 if there is no difference, 1 if there is, 2 if that is not known.
int run(DiffCommand const& command) {
  try {
    Comparison const comparison = compared(comparedStateOf(command.a), comparedStateOf(command.b));
    print(command.json ? comparisonJson(comparison)
                       : comparisonText(comparison, command.a, command.b));
    return comparison.differences.empty() ? 0 : 1;
  } catch (std::exception const& error) {
    return fail(error, 2);
  }
}

int run(GuessCommand const& command) {
  print(configurationGuessedFrom(command.captures));
  return done;
}

int run(Information const& information) {
  print(information.text);
  return done;
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader that went away is told by the write that fails
  endWhenMemoryRunsOut();
  try {
    return std::visit([](auto const& command) { return run(command); },
                      parseCommandLine(argc, argv));
  } catch (WrongUsage const& error) {
    return fail(error, wrongUsage);
  } catch (UnusableConfiguration const& configuration) {
    for (std::string const& error : configuration.errors)
      std::cerr << journalPrefix(Severity::error) << error << '\n';
    return couldNot;
  } catch (std::system_error const& error) {
    log(Severity::error, error.what(),
        "; the system refused this: see the limits and permissions that igmpsnoopd is started with "
        "(ulimit -a, systemctl show igmpsnoopd), and start it again");
    return couldNot;
  } catch (std::exception const& error) {
    return fail(error, couldNot);
  }
}
