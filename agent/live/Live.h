#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "agent/CommandLine.h"
#include "agent/Switch.h"
#include "agent/config/ConfigurationState.h"
#include "agent/control/ControlServer.h"
#include "agent/control/MetricsServer.h"
#include "agent/forwarding/Forwarding.h"
#include "agent/live/AddressLog.h"
#include "agent/live/Handover.h"
#include "agent/live/KernelAddresses.h"
#include "agent/live/KernelInterfaces.h"
#include "agent/live/Privileges.h"
#include "agent/live/QuerierLog.h"
#include "agent/live/Restart.h"
#include "agent/live/RouterLog.h"
#include "agent/live/ServiceManager.h"
#include "agent/live/Signals.h"
#include "agent/state/StateKeeper.h"
#include "platform/horix/EventLoop.h"
#include "platform/interface/InheritedSockets.h"
#include "platform/interface/SocketEthDevPams.h"
#include "platform/interface/SocketHelpers.h"

namespace Agent {

/// Drives a switch with the kernel's interfaces in real time, and tells operator and service
/// manager how it is doing. SIGHUP has the configuration read again, SIGUSR2 starts the program
/// anew in its process, SIGTERM and SIGINT end it.
/// One at a time in a process.
class Live {
 public:
  /// Throws std::system_error; std::runtime_error if a socket cannot be listened on.
  /// @param handover what the program before this one in the same process has left, if there was
  /// one.
  Live(LiveCommand const& command, Configuration configuration,
       std::optional<Handover> const& handover);
  Live(Live const&) = delete;
  Live& operator=(Live const&) = delete;
  ~Live();

  /// The user may use them from then on, and remove them in the end.
  void socketsBelongTo(User const& user) const;

  /// Returns after the hosts have left their groups.
  void run();

 private:
  void handleSignal(int signal);
  void handleAddresses(AddressBook const& book);
  void handleInterface(Wirex::IntfId const& intf, InterfaceState const& state);
  void reload();
  void restart(Restart::Told told);
  void saveAndReplaceProgram(std::string const& path);
  void replaceProgram(std::string const& path);
  void serversAcceptIs(bool accept);
  void serveMetrics();
  void leave();
  void followRouters();
  void warnOfWhatIsMissing();
  std::string status() const;

  std::string const configurationName_;
  ConfigurationState configurationState_;
  Horix::EventLoop loop_;
  Signals signals_;
  unsigned terminations_ = 0;  // signals so far
  std::set<Wirex::IntfId> warnedOf_;
  std::shared_ptr<Interface::SocketHelpers> helpers_;
  std::shared_ptr<Interface::InheritedSockets> inherited_;
  Interface::SocketEthDevPams devices_;
  Switch switch_;
  std::unique_ptr<StateKeeper> state_;  // null if nothing is kept
  RouterLog routerLog_;
  QuerierLog querierLog_;
  ServiceManager serviceManager_;
  AddressLog addressLog_;
  KernelAddresses addresses_;
  Forwarding forwarding_;
  ControlServer control_;
  std::unique_ptr<MetricsServer> metrics_;       // null if none are served
  std::unique_ptr<MetricsServer> metricsByTcp_;  // on the configuration's address
  std::vector<std::string> const arguments_;
  Restart restart_;
  KernelInterfaces interfaces_;
};

}  // namespace Agent
