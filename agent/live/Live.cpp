#include "agent/live/Live.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <stdexcept>
#include <sys/resource.h>
#include <utility>
#include <variant>

#include "agent/Log.h"
#include "agent/config/ConfigurationChange.h"
#include "agent/config/ConfigurationReader.h"
#include "agent/config/TcpAddress.h"
#include "agent/control/TcpSocket.h"
#include "agent/control/UnixSocket.h"
#include "agent/live/Heap.h"
#include "agent/live/Privileges.h"
#include "agent/text/Dates.h"

namespace Agent {

using Wirex::IntfId;

namespace {

constexpr unsigned descriptorsLeft = 32;  // by devices, to clients and files

/// Each device takes a descriptor.
void raiseDescriptorLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

/// What goes wrong with devices is always told; the rest is for who asked for it.
void traceToLog(std::vector<TraceRequest> const& requests) {
  Kel::traceSinkIs([](Kel::TraceMessage const& trace) {
    log(trace.level == 0 ? Severity::warning : Severity::debug, trace.handle, ' ', trace.level,
        ": ", trace.text);
  });
  Kel::TraceHandle& devices = Kel::traceHandle("Interface::EthDevPam");
  devices.enabledIs(true);
  devices.levelEnabledIs(0, true);
  for (TraceRequest const& request : requests) {
    request.handle->enabledIs(true);
    for (int const level : request.levels) request.handle->levelEnabledIs(level, true);
  }
}

/// Whoever runs goes on with what there is, whatever has become of the file.
ConfigurationOrErrors configurationOrErrors(std::string const& fileName) {
  try {
    return readConfigurationFile(fileName);
  } catch (UnreadableConfiguration const& error) {
    return ConfigurationErrors{error.what()};
  }
}

/// What is kept is known before any interface comes, so that hosts begin with it. Nothing is more
/// recent than what was handed over.
std::unique_ptr<StateKeeper> keeperOf(std::string const& file, Switch& snoopingSwitch,
                                      Horix::EventLoop const& loop,
                                      std::optional<Handover> const& handover) {
  std::unique_ptr<StateKeeper> keeper;
  if (!file.empty())
    keeper = std::make_unique<StateKeeper>(file, snoopingSwitch, loop.timerWheel());
  if (handover)
    resumeOrWarn(snoopingSwitch, "what the former program knew", handover->state);
  else if (keeper)
    keeper->resume();
  return keeper;
}

/// What comes before anything is opened or made.
std::shared_ptr<Interface::SocketHelpers> helpersOf(LiveCommand const& command,
                                                    Horix::EventLoop& loop) {
  raiseDescriptorLimit();
  freeMemoryInSmallSteps();
  traceToLog(command.traces);
  return std::make_shared<Interface::SocketHelpers>(loop, descriptorsLeft);
}

/// Before sockets are listened on.
std::string const& withSocketsOf(std::optional<Handover> const& handover, std::string const& path) {
  std::vector<Descriptor> sockets;
  if (handover)
    for (int const descriptor : handover->listening) sockets.emplace_back(descriptor);
  UnixSocket::inheritedAre(std::move(sockets));
  return path;
}

/// For the status of a service that goes on with the former configuration.
std::string refusalText(ConfigurationState const& state) {
  if (!state.refused) return "";
  return message("; configuration refused at ", spelledDate(dateText(*state.refused)),
                 ", the former one of ", spelledDate(dateText(state.inUseSince)),
                 " is in use: ", state.problem);
}

}  // namespace

Live::Live(LiveCommand const& command, Configuration configuration,
           std::optional<Handover> const& handover)
    : configurationName_(command.configuration),
      configurationState_(command.configuration),
      loop_(Kel::make<Horix::TimerWheel>(Kel::make<Horix::MonotonicClock>())),
      signals_(loop_, [this](int signal) { handleSignal(signal); }),
      helpers_(helpersOf(command, loop_)),
      inherited_(std::make_shared<Interface::InheritedSockets>(
          helpers_, handover ? handover->devices : Handover().devices)),
      devices_(loop_, inherited_),
      switch_(std::move(configuration), loop_),
      state_(keeperOf(command.state, switch_, loop_, handover)),
      routerLog_(loop_.timerWheel()),
      querierLog_(loop_.timerWheel()),
      serviceManager_(loop_.timerWheel()),
      addressLog_(switch_, loop_.timerWheel()),
      addresses_(loop_, [this](AddressBook const& book) { handleAddresses(book); }),
      forwarding_(loop_, switch_, handover.has_value()),
      control_(loop_, switch_, withSocketsOf(handover, command.control)),
      metrics_(command.metrics.empty()
                   ? nullptr
                   : std::make_unique<MetricsServer>(loop_, switch_, control_, command.metrics)),
      arguments_(command.arguments),
      restart_(loop_, arguments_, [this](std::string const& path) { saveAndReplaceProgram(path); }),
      // Last, because devices take as many descriptors as there are.
      interfaces_(loop_, [this](IntfId const& intf, InterfaceState const& state) {
        handleInterface(intf, state);
      }) {
  inherited_->closeRest();
  helpers_->await();
  loop_.busyPollsIs(command.busyPoll);
  UnixSocket::inheritedAre({});
  control_.onRestartIs([this](Restart::Told told) { restart(std::move(told)); });
  switch_.onOtherVersionIs(warnOf);
  switch_.onLimitIs(warnOfLimit);
  switch_.onElectionIs([this](auto const& querier) { querierLog_.elected(querier); });
  followRouters();
  warnOfWhatIsMissing();
  addressLog_.changed();
  switch_.forgetDeafPorts();
  switch_.endTakingOver();
  if (state_) state_->begin();
  control_.forwardingIs(forwarding_);
  control_.configurationStateIs(configurationState_);
  forwarding_.configure();
  serveMetrics();
}

Live::~Live() {
  Kel::traceSinkIs({});
}

void Live::socketsBelongTo(User const& user) const {
  control_.giveTo(user.id, user.group);
  if (metrics_) metrics_->giveTo(user.id, user.group);
}

void Live::run() {
  serviceManager_.ready(status());
  log(Severity::info, "running: ", status());
  loop_.run();
  leave();
}

void Live::handleSignal(int signal) {
  if (signal == SIGHUP) {
    if (terminations_ == 0) reload();
    return;
  }
  if (signal == SIGUSR2) {
    restart([](std::string const& /*problem*/) {});
    return;
  }
  ++terminations_;
  loop_.stop();
}

void Live::leave() {
  constexpr auto longest = std::chrono::milliseconds(100);  // for what the sockets do not take
  serviceManager_.stopping();
  log(Severity::info, "stopping: the hosts leave their groups");
  forwarding_.end();
  switch_.leave();
  loop_.endBatch();
  Horix::Time const end = loop_.now() + longest;
  while (terminations_ < 2 && loop_.now() < end) loop_.turn(end);
  // A bridge is given back in any case: by who goes, if it is not to take its time.
  while (terminations_ < 2 && forwarding_.isGivingBack()) loop_.turn();
  if (state_) state_->saveNow();
}

void Live::reload() {
  serviceManager_.reloading();
  auto result = configurationOrErrors(configurationName_);
  if (auto const* const errors = std::get_if<ConfigurationErrors>(&result)) {
    for (std::string const& error : *errors) log(Severity::error, error);
    log(Severity::error, configurationName_,
        " is unusable and changes nothing; correct it and reload again");
    configurationState_.wasRefused(errors->front());
  } else {
    auto& configuration = std::get<Configuration>(result);
    log(Severity::info, configurationName_,
        " read again: ", describeChange(switch_.configuration(), configuration));
    switch_.configurationIs(std::move(configuration));
    configurationState_.taken();
    followRouters();
    warnOfWhatIsMissing();
    forwarding_.configure();
    addressLog_.changed();
    serveMetrics();
  }
  serviceManager_.ready(status());
}

void Live::restart(Restart::Told told) {
  log(Severity::info, "restart: trying whether the program can run");
  restart_.begin(configurationName_, [this, told = std::move(told)](std::string const& problem) {
    if (!problem.empty()) log(Severity::error, "no restart: ", problem);
    // Who is being served gets an answer, and who comes now gets it from the new program.
    if (problem.empty()) serversAcceptIs(false);
    told(problem);
  });
}

/// With the file written too, a program that fails after all leaves no less than one that is
/// killed.
void Live::saveAndReplaceProgram(std::string const& path) {
  if (state_)
    state_->save([this, path] { replaceProgram(path); });
  else
    replaceProgram(path);
}

void Live::replaceProgram(std::string const& path) try {
  if (terminations_ > 0) return;
  serviceManager_.restarting();
  log(Severity::info, "restart: starting ", path, " anew");
  loop_.endBatch();
  Handover handover{sealedState(switch_), {control_.descriptor()}, devices_.passedOn()};
  if (metrics_) handover.listening.push_back(metrics_->descriptor());
  passPrivilegesOn();
  handover.passOnTo(path, arguments_);
} catch (std::exception const& error) {
  log(Severity::error, "no restart: ", error.what(), "; the running program goes on");
  keepPrivileges();
  serversAcceptIs(true);
  if (state_) state_->begin();
  serviceManager_.ready(status());
}

void Live::serversAcceptIs(bool accept) {
  control_.acceptsIs(accept);
  for (auto const* const server : {&metrics_, &metricsByTcp_})
    if (*server) (*server)->acceptsIs(accept);
}

/// Snooping does not depend on it: where the address cannot be had, the log says so.
void Live::serveMetrics() try {
  std::string const& address = switch_.configuration().metricsAddress;
  if (metricsByTcp_ && metricsByTcp_->path() == address) return;
  metricsByTcp_.reset();
  auto const read = tcpAddressIn(address);
  if (!read) return;
  metricsByTcp_ = std::make_unique<MetricsServer>(loop_, switch_, control_,
                                                  std::make_unique<TcpSocket>(*read, address),
                                                  MetricsServer::limitsOfStrangers());
  log(Severity::info, "metrics are served at http://", address, "/metrics");
} catch (std::runtime_error const& error) {
  log(Severity::error, error.what());
}

void Live::followRouters() {
  std::vector<Kel::Ptr<RouterLog::RouterPorts const>> vlans;
  for (VlanConfig const& vlan : switch_.configuration().vlans)
    vlans.emplace_back(switch_.routerPorts(vlan.vlanId));
  routerLog_.vlansAre(vlans);
}

void Live::handleAddresses(AddressBook const& book) {
  switch_.ownAddressesAre(
      [&book](Bridging::VlanId vlan, IntfId const& intf) { return book.addressFor(vlan, intf); });
  addressLog_.changed();
}

void Live::handleInterface(IntfId const& intf, InterfaceState const& state) {
  auto const& interfaces = switch_.configuration().interfaces;
  bool const configured =
      std::any_of(interfaces.begin(), interfaces.end(),
                  [&](InterfaceConfig const& interface) { return interface.intfId == intf; });
  InterfaceState const former = switch_.interfaceState(intf);
  switch_.interfaceStateIs(intf, state);
  if (!configured) return;
  if (state.present != former.present) addressLog_.changed();
  if (state.present != former.present)
    log(Severity::info, "interface ", intf, state.present ? " is there" : " is gone");
  if (!state.present) return;
  if (state.carrier != former.carrier)
    log(Severity::info, "interface ", intf, state.carrier ? " is up" : " is down");
  if (state.forwarding != (former.forwarding || !former.present))
    log(Severity::info, "interface ", intf,
        state.forwarding ? " forwards again" : " is kept from forwarding by its bridge");
}

void Live::warnOfWhatIsMissing() {
  if (switch_.configuration().vlans.empty())
    log(Severity::warning, configurationName_,
        " has no [[vlan]], so nothing is served; say there which interfaces and VLANs to serve, "
        "and "
        "reload");
  for (InterfaceConfig const& interface : switch_.configuration().interfaces) {
    if (switch_.interfaceState(interface.intfId).present) continue;
    if (!warnedOf_.insert(interface.intfId).second) continue;
    log(Severity::warning, "interface ", interface.intfId,
        " is configured but does not exist; it is served when it comes");
  }
}

std::string Live::status() const {
  Configuration const& configuration = switch_.configuration();
  auto const present = std::count_if(
      configuration.interfaces.begin(), configuration.interfaces.end(),
      [&](InterfaceConfig const& each) { return switch_.interfaceState(each.intfId).present; });
  return message(counted(configuration.vlans.size(), "VLAN"), ", ", proxiedVlans(configuration),
                 " proxied; ", counted(configuration.interfaces.size(), "interface"), ", ", present,
                 " present", refusalText(configurationState_));
}

}  // namespace Agent
