#include "agent/ctl/ControlCommandLine.h"

#include <charconv>
#include <cmath>
#include <system_error>
#include <utility>

#include <CLI/CLI.hpp>

#include "agent/control/SocketName.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

Bridging::VlanId selectedVlan(std::string const& text) {
  using Bridging::VlanId;
  auto const vlan = vlanIn(text);
  if (!vlan)
    refuse("--vlan ", Agent::quoted(text), " is no number from ", VlanId::min, " to ", VlanId::max);
  return *vlan;
}

Wirex::IpAddr selectedGroup(std::string const& text) {
  auto const group = Wirex::IpAddr::fromText(text);
  if (!group || !group->isMulticast())
    refuse("--group ", Agent::quoted(text), " is no IPv4 multicast address");
  return *group;
}

std::chrono::milliseconds intervalIn(std::string const& text) {
  double seconds = 0;
  char const* const end = text.data() + text.size();
  auto const [stop, error] = std::from_chars(text.data(), end, seconds, std::chars_format::fixed);
  if (error != std::errc{} || stop != end || !(seconds >= 0.1 && seconds <= 86400))
    refuse("--watch ", Agent::quoted(text), " is no number of seconds from 0.1 to 86400");
  return std::chrono::milliseconds(std::llround(seconds * 1000));
}

/// The parser and what it fills.
class ControlCommandLine {
 public:
  ControlCommandLine() {
    app_.require_subcommand(1);
    app_.fallthrough();
    app_.set_version_flag("--version", "igmpsnoopctl " IGMPSNOOPD_VERSION, "Print the version");
    app_.add_option(
            "--socket",
            [this](std::vector<std::string> const& texts) {
              command_.socket = socketPath(texts.front());
              return true;
            },
            "The agent's control socket; a name alone is one in /run/igmpsnoopd")
        ->default_str("control")
        ->type_name("NAME|PATH");
    addShow();
    addExplain();
    addMonitor();
    addReport();
    addClear();
    addTrace();
    addRestart();
    addMetrics();
  }

  std::variant<ControlCommand, Information> parse(int argc, char const* const* argv) {
    if (auto information = Agent::parse(app_, argc, argv)) return std::move(*information);
    return std::move(command_);
  }

 private:
  enum Option : unsigned { vlan = 1, interface = 2, group = 4 };

  void addShow() {
    CLI::App* const show = add(app_, "show", "Show what the agent knows");
    show->require_subcommand(1);
    exampleIs(*show, "igmpsnoopctl show groups --vlan 10");
    CLI::App* const version = show->add_subcommand(
        "version", "Which program runs since when, and with which configuration");
    addJson(*version);
    addWatch(*version);
    version->callback([this] {
      command_.request.command = "show";
      command_.request.what = "version";
    });
    addShown(*show, "vlans", "The VLANs, and whether they are proxied");
    addShown(*show, "interfaces", "The interfaces and their state");
    addShown(*show, "groups", "Who listens to what");
    addShown(*show, "hosts", "What the host on each port reports");
    addShown(*show, "mrouters", "The multicast router ports, and why they are");
    addShown(*show, "forwarding", "What the bridge is to have, beside what the kernel has");
    addShown(*show, "statistics", "What was heard, ignored and sent");
  }

  void addShown(CLI::App& show, char const* what, char const* description) {
    CLI::App* const shown = show.add_subcommand(what, description);
    addOptions(*shown, vlan | interface | group, false);
    addJson(*shown);
    addWatch(*shown);
    shown->callback([this, what] {
      command_.request.command = "show";
      command_.request.what = what;
    });
  }

  void addExplain() {
    CLI::App* const explain =
        add(app_, "explain", "Say why the host on a port reports what it reports for a group");
    addOptions(*explain, vlan | interface | group, true);
    exampleIs(*explain, "igmpsnoopctl explain --vlan 10 --interface swp1 --group 239.1.1.1");
    addJson(*explain);
    addWatch(*explain);
  }

  void addMonitor() {
    CLI::App* const monitor =
        add(app_, "monitor", "Print changes of memberships and records as they happen");
    addOptions(*monitor, vlan | interface | group, false);
    monitor->add_option("--kind", command_.request.what, "Only changes of this kind")
        ->check(CLI::IsMember({"membership", "record"}))
        ->type_name("membership|record");
    addJson(*monitor);
    exampleIs(*monitor, "igmpsnoopctl monitor --vlan 10 --kind membership");
  }

  void addReport() {
    CLI::App* const report =
        add(app_, "report", "Write a page of who feeds which record, and what was ignored");
    exampleIs(*report, "igmpsnoopctl report switch.html");
    report->add_option("FILE.html", command_.reportFile, "The page")->required()->type_name("");
  }

  void addClear() {
    CLI::App* const clear = add(app_, "clear", "Forget what was learned");
    clear->require_subcommand(1);
    exampleIs(*clear, "igmpsnoopctl clear groups --vlan 10");
    CLI::App* const groups = clear->add_subcommand("groups", "Forget memberships");
    addOptions(*groups, vlan | group, false);
    groups->callback([this] { command_.request.what = "groups"; });
  }

  void addTrace() {
    CLI::App* const trace =
        add(app_, "trace", "Switch the levels of a trace handle, or list handles and levels");
    trace->add_option("HANDLE", command_.request.handle, "The handle; all if none is named")
        ->type_name("");
    trace
        ->add_option("LEVELS", command_.request.levels,
                     "The levels that are on from now on, as in 0,4-9, or none")
        ->type_name("");
    addJson(*trace);
    exampleIs(*trace, "igmpsnoopctl trace IgmpSnoopingProxyAdapter 0,4-9");
  }

  void addRestart() {
    add(app_, "restart", "Have the agent start its program anew, with what it knows");
  }

  void addMetrics() {
    add(app_, "metrics", "Print counters and gauges in Prometheus's text format");
  }

  CLI::App* add(CLI::App& parent, char const* name, char const* description) {
    CLI::App* const command = parent.add_subcommand(name, description);
    command->callback([this, name] {
      if (command_.request.command.empty()) command_.request.command = name;
    });
    return command;
  }

  void addJson(CLI::App& command) { command.add_flag("-j,--json", command_.json, "Print JSON"); }

  void addWatch(CLI::App& command) {
    addOption(command, "--watch", "SECONDS", false, [this](auto& text) {
      command_.interval = intervalIn(text);
    }).description("Ask again after so many seconds, and so on");
  }

  void addOptions(CLI::App& command, unsigned options, bool required) {
    Selection& of = command_.request.of;
    if (options & vlan)
      addOption(command, "--vlan", "NUMBER", required, [&of](auto& text) {
        of.vlan = selectedVlan(text);
      }).description(required ? "The VLAN" : "Only what is of this VLAN");
    if (options & interface)
      addOption(command, "--interface", "NAME", required, [&of](auto& text) {
        of.interface = Wirex::IntfId(Kel::String8(text));
      }).description(required ? "The interface" : "Only what is of this interface");
    if (options & group)
      addOption(command, "--group", "ADDRESS", required, [&of](auto& text) {
        of.group = selectedGroup(text);
      }).description(required ? "The group" : "Only what is of this group");
  }

  /// @param parse whose std::invalid_argument is wrong usage.
  template <class Parse>
  static CLI::Option& addOption(CLI::App& command, char const* name, char const* type,
                                bool required, Parse parse) {
    return *command
                .add_option(name,
                            [parse](std::vector<std::string> const& texts) {
                              parse(texts.front());
                              return true;
                            })
                ->required(required)
                ->type_name(type);
  }

  CLI::App app_{"Ask a running igmpsnoopd", "igmpsnoopctl"};
  ControlCommand command_;
};

}  // namespace

std::variant<ControlCommand, Information> parseControlCommandLine(int argc,
                                                                  char const* const* argv) {
  return ControlCommandLine().parse(argc, argv);
}

}  // namespace Agent
