#include "agent/CommandLine.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include <CLI/CLI.hpp>

#include "agent/config/NamePattern.h"
#include "agent/control/SocketName.h"
#include "agent/replay/CaptureName.h"
#include "agent/replay/ReplayLists.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// "NAME=VALUE", both of them not empty. Throws std::invalid_argument.
std::pair<std::string, std::string> assignmentIn(std::string const& text, char const* form) {
  std::size_t const equals = text.find('=');
  if (equals == std::string::npos || equals == 0 || equals + 1 == text.size())
    refuse(Agent::quoted(text), " is not of the form ", form);
  return {text.substr(0, equals), text.substr(equals + 1)};
}

Horix::Time secondsIn(std::string const& text) {
  constexpr double longest = 1e9;  // some thirty years
  double seconds = 0;
  char const* const end = text.data() + text.size();
  auto const [stop, error] = std::from_chars(text.data(), end, seconds, std::chars_format::fixed);
  if (error != std::errc{} || stop != end || !(seconds >= 0 && seconds <= longest))
    refuse("--until ", Agent::quoted(text),
           " is no number of seconds from 0 to 1000000000, as in 12.5");
  return Horix::Time(std::llround(seconds * 1e9));
}

TraceRequest traceRequestIn(std::string const& text) {
  auto const [handle, levels] = assignmentIn(text, "HANDLE=LEVELS, as in HANDLE=0,4-9");
  return Agent::traceRequestIn(handle, levels);
}

PortCapture portCaptureIn(std::string const& text) {
  auto const [port, fileName] = assignmentIn(text, "PORT=CAPTURE, as in swp1=swp1.pcap");
  return {Wirex::IntfId(Kel::String8(port)), fileName};
}

/// A capture without a port is named for it: by the selected interface, or by its file.
PortCapture namedCaptureIn(std::string const& text) {
  if (text.find('=') != std::string::npos) return portCaptureIn(text);
  auto const [fileName, interface] = captureName(text);
  std::string const stem = std::filesystem::path(fileName).filename().string();
  std::string const port = interface.empty() ? stem.substr(0, stem.find('.')) : interface;
  if (port.empty() || text == "-")
    refuse(Agent::quoted(text), " names no port; put PORT= before it");
  try {
    return {interfaceNamed(port), text};
  } catch (std::invalid_argument const& wrongName) {
    std::string_view const why = wrongName.what();
    refuse(Agent::quoted(text), " names no port: ", why.substr(0, why.find(';')),
           "; put PORT= before it, as in swp1=", onOneLine(text));
  }
}

void addCapture(std::vector<PortCapture>& captures, PortCapture capture) {
  auto const isInput = [](PortCapture const& each) { return each.fileName == "-"; };
  if (isInput(capture) && std::any_of(captures.begin(), captures.end(), isInput))
    refuse("standard input is one capture alone, so one port alone can have it");
  captures.push_back(std::move(capture));
}

StationAddress stationAddressIn(std::string const& text) {
  if (auto const address = stationAddress(text)) return *address;
  refuse("--own ", Agent::quoted(text),
         " is neither a MAC nor an IPv4 address, as in 02:00:00:00:00:01 or 192.0.2.1");
}

RecordPlace recordPlaceIn(std::string const& text) {
  // An interface's name may have strokes of its own.
  std::size_t const first = text.find('/');
  std::size_t const last = text.rfind('/');
  if (first != last && last - first > 1) {
    auto const vlan = vlanIn(text.substr(0, first));
    auto const group = Wirex::IpAddr::fromText(text.substr(last + 1));
    if (vlan && group && group->isMulticast())
      return {*vlan, Wirex::IntfId(Kel::String8(text.substr(first + 1, last - first - 1))), *group};
  }
  refuse("--explain ", Agent::quoted(text),
         " is not of the form VLAN/INTERFACE/GROUP, as in 10/swp1/239.1.1.1");
}

/// Takes each value of an option with `parse`, whose std::invalid_argument is wrong usage.
template <class Parse>
auto each(Parse parse) {
  return [parse](std::vector<std::string> const& texts) {
    for (std::string const& text : texts) parse(text);
    return true;
  };
}

/// The parser and what it fills.
class CommandLine {
 public:
  CommandLine() {
    app_.require_subcommand(1);
    app_.set_version_flag("--version", "igmpsnoopd " IGMPSNOOPD_VERSION, "Print the version");
    addLive();
    addReplay();
    addCheck();
    addDiff();
    addGuess();
  }

  Command parse(int argc, char const* const* argv) {
    if (auto information = Agent::parse(app_, argc, argv)) return std::move(*information);
    liveCommand_.arguments.assign(argv, argv + argc);
    if (live_->parsed()) return liveCommand_;
    if (check_->parsed()) return checkCommand_;
    if (diff_->parsed()) return diffCommand_;
    if (guess_->parsed()) return guessCommand_;
    return replayCommand_;
  }

 private:
  void addLive() {
    live_ = addCommand("live", "Run on real interfaces, in the foreground, until SIGTERM",
                       liveCommand_.configuration);
    exampleIs(*live_, "igmpsnoopd live --config switch.toml");
    auto& command = liveCommand_;
    live_
        ->add_option("--control", each([&](auto& text) { command.control = socketPath(text); }),
                     "The socket on which igmpsnoopctl asks; a name alone is one in "
                     "/run/igmpsnoopd")
        ->type_name("NAME|PATH")
        ->default_str("control");
    live_->add_option("--metrics", command.metrics, "A socket on which metrics are served")
        ->type_name("PATH");
    live_
        ->add_option("--user", command.user,
                     "Started as root, run on as this user, not the configuration's")
        ->type_name("NAME");
    live_
        ->add_option("--state", command.state,
                     "Keep what was learned in this file, and take it up again at the start")
        ->type_name("FILE");
    live_->add_flag("--busy-poll", command.busyPoll,
                    "Never sleep: takes a processor whole, for the shortest latency");
    addTrace(*live_, command.traces);
  }

  void addReplay() {
    replay_ =
        addCommand("replay", "Feed captures to the ports of a switch and print what it reports",
                   replayCommand_.configuration);
    exampleIs(*replay_, "igmpsnoopd replay --config switch.toml swp1=swp1.pcap swp2=swp2.pcap");
    auto& command = replayCommand_;
    replay_
        ->add_option("PORT=CAPTURE",
                     each([&](auto& text) { addCapture(command.captures, portCaptureIn(text)); }),
                     "Captures of Ethernet frames, and the ports on which they were taken")
        ->required()
        ->expected(-1)  // or more
        ->take_all()
        ->type_name("");
    replay_
        ->add_option("--until", each([&](auto& text) { command.until = secondsIn(text); }),
                     "End so long after the first packet, not at the last one")
        ->type_name("SECONDS");
    replay_
        ->add_option("--own",
                     each([&](auto& text) { command.own.push_back(stationAddressIn(text)); }),
                     "Leave out what comes from this address: the switch itself has sent it")
        ->take_all()
        ->type_name("MAC|IPV4");
    replay_
        ->add_option("--write", command.write,
                     "Store what the hosts sent in this directory, as PORT.pcap")
        ->type_name("DIR");
    replay_
        ->add_option("--report", command.report,
                     "Write a page of who feeds which record, when, and what was ignored")
        ->type_name("FILE.html");
    auto* const show =
        replay_
            ->add_option("--show", each([&](auto& text) { command.show = listNamesIn(text); }),
                         "Print lists of igmpsnoopctl show in place of the records")
            ->type_name("LIST,...");
    auto* const events = replay_->add_flag(
        "--events", command.events, "Print every record change as it happens, and who caused it");
    replay_
        ->add_option(
            "--time", each([&](auto& text) {
              if (text != "relative" && text != "absolute")
                refuse("--time ", Agent::quoted(text), " is neither relative nor absolute");
              command.absoluteTimes = text == "absolute";
            }),
            "Have events and lists tell the time since the first packet, or that of day (UTC)")
        ->type_name("relative|absolute");
    replay_
        ->add_option("--explain", each([&](auto& text) { command.explain = recordPlaceIn(text); }),
                     "Say why the host on this port reports what it reports for this group")
        ->type_name("VLAN/INTERFACE/GROUP")
        ->excludes(events)
        ->excludes(show);
    replay_->add_flag("-j,--json", command.json, "Print JSON");
    addTrace(*replay_, command.traces);
  }

  static void addTrace(CLI::App& command, std::vector<TraceRequest>& traces) {
    command
        .add_option("--trace", each([&](auto& text) { traces.push_back(traceRequestIn(text)); }),
                    "Write trace messages of these levels to standard error")
        ->take_all()
        ->type_name("HANDLE=LEVELS");
  }

  void addCheck() {
    check_ =
        addCommand("check", "Say whether a configuration is usable", checkCommand_.configuration);
    exampleIs(*check_, "igmpsnoopd check --config switch.toml");
  }

  void addDiff() {
    diff_ =
        app_.add_subcommand("diff", "Say what two replays, or a replay and an agent, differ in");
    exampleIs(*diff_, "igmpsnoopd diff before.json after.json");
    char const* const states =
        "What replay -j or igmpsnoopctl show -j has written, - for standard input, or ctl:SOCKET "
        "for the agent that listens there; a name alone is a socket in /run/igmpsnoopd";
    diff_->add_option("A", diffCommand_.a, states)->required()->type_name("");
    diff_->add_option("B", diffCommand_.b, states)->required()->type_name("");
    diff_->add_flag("-j,--json", diffCommand_.json, "Print JSON");
  }

  void addGuess() {
    guess_ = app_.add_subcommand("guess", "Write the configuration that captures suggest");
    exampleIs(*guess_, "igmpsnoopd guess swp1=swp1.pcap swp2=swp2.pcap");
    guess_
        ->add_option("PORT=CAPTURE", each([&](auto& text) {
                       addCapture(guessCommand_.captures, namedCaptureIn(text));
                     }),
                     "Captures of Ethernet frames, and the ports on which they were taken; without "
                     "PORT= the file's name or the selected interface is the port's")
        ->required()
        ->expected(-1)  // or more
        ->take_all()
        ->type_name("");
  }

  CLI::App* addCommand(char const* name, char const* description, std::string& configuration) {
    CLI::App* const command = app_.add_subcommand(name, description);
    command->add_option("--config", configuration, "The configuration (TOML)")
        ->required()
        ->type_name("FILE");
    return command;
  }

  CLI::App app_{"IGMP snooping proxy for Ethernet switches", "igmpsnoopd"};
  CLI::App* live_ = nullptr;
  CLI::App* replay_ = nullptr;
  CLI::App* check_ = nullptr;
  CLI::App* diff_ = nullptr;
  CLI::App* guess_ = nullptr;
  LiveCommand liveCommand_;
  ReplayCommand replayCommand_;
  CheckCommand checkCommand_;
  DiffCommand diffCommand_;
  GuessCommand guessCommand_;
};

}  // namespace

Command parseCommandLine(int argc, char const* const* argv) {
  return CommandLine().parse(argc, argv);
}

}  // namespace Agent
