#pragma once

#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "agent/TraceRequest.h"
#include "agent/Usage.h"
#include "agent/replay/Replay.h"

/// The command line of igmpsnoopd.
namespace Agent {

struct LiveCommand {
  std::string configuration;
  std::string control = "/run/igmpsnoopd/control";
  std::string metrics;  ///< empty: none are served
  std::string user;     ///< empty: the configuration's
  std::string state;    ///< empty: nothing is kept
  bool busyPoll = false;
  std::vector<std::string> arguments;  ///< the whole command line, to start the program anew
  std::vector<TraceRequest> traces;
};

/// Where a host has, or has not, a group record.
struct RecordPlace {
  Bridging::VlanId vlan;
  Wirex::IntfId interface;
  Wirex::IpAddr group;
};

struct ReplayCommand {
  std::string configuration;
  std::vector<PortCapture> captures;
  std::vector<StationAddress> own;  ///< of the switch
  std::optional<Horix::Time> until;
  std::optional<std::string> write;
  std::optional<RecordPlace> explain;  ///< in place of the records
  std::vector<std::string> show;       ///< lists in place of the records
  std::optional<std::string> report;   ///< the file of the report page
  bool events = false;
  bool absoluteTimes = false;  ///< of the events
  bool json = false;
  std::vector<TraceRequest> traces;
};

struct CheckCommand {
  std::string configuration;
};

/// What are compared: files that `replay -j` has written, or "ctl:SOCKET".
struct DiffCommand {
  std::string a;
  std::string b;
  bool json = false;
};

struct GuessCommand {
  std::vector<PortCapture> captures;
};

using Command =
    std::variant<LiveCommand, ReplayCommand, CheckCommand, DiffCommand, GuessCommand, Information>;

/// Throws WrongUsage.
Command parseCommandLine(int argc, char const* const* argv);

}  // namespace Agent
