#include "bench/agent/LoadedAgent.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <system_error>
#include <variant>

#include "agent/config/ConfigurationReader.h"
#include "agent/live/Heap.h"
#include "agent/text/Wording.h"
#include "bench/live/Reports.h"

namespace Bench {

namespace {

std::filesystem::path newDirectory() {
  std::string name = "/tmp/igmpsnoop-bench-XXXXXX";
  if (!mkdtemp(name.data())) throw std::system_error(errno, std::generic_category(), "mkdtemp");
  return name;
}

Agent::Configuration configurationIn(std::string const& text) {
  auto result = Agent::readConfiguration(text, "bench");
  if (auto const* const errors = std::get_if<Agent::ConfigurationErrors>(&result))
    throw std::invalid_argument(errors->front());
  return std::get<Agent::Configuration>(std::move(result));
}

Agent::InterfaceState up() {
  Agent::InterfaceState state;
  state.present = state.carrier = state.forwarding = true;
  state.macAddress = {2, 0, 0, 0, 0, 1};
  state.mtu = 1500;
  return state;
}

Agent::Descriptor connectTo(std::string const& path) {
  Agent::Descriptor client(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  if (connect(client.value(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    throw std::system_error(errno, std::generic_category(), "connect");
  return client;
}

}  // namespace

LoadedAgent::LoadedAgent(std::string const& configuration)
    : directory_(newDirectory()),
      switch_(configurationIn(configuration), loop_),
      control_(loop_, switch_, directory_ / "control") {
  Agent::freeMemoryInSmallSteps();
  for (Agent::InterfaceConfig const& interface : switch_.configuration().interfaces)
    switch_.interfaceStateIs(interface.intfId, up());
  loop_.endBatch();
}

LoadedAgent::~LoadedAgent() {
  std::error_code ignored;
  std::filesystem::remove_all(directory_, ignored);
}

void LoadedAgent::fill(unsigned port, unsigned reporters, unsigned groups) {
  Wirex::IntfId const intf(Agent::message("swp", port + 1).c_str());
  Listeners listeners;
  listeners.port = port;
  listeners.reporters = reporters;
  listeners.groups = groups;
  listeners.records = std::min(groups, 100u);
  for (Frame const& frame : reports(listeners, Saying::current)) {
    devices_.receive(intf, frame);
    loop_.endBatch();
  }
}

void LoadedAgent::configure(std::string const& configuration) {
  switch_.configurationIs(configurationIn(configuration));
}

std::size_t LoadedAgent::memberships() const {
  std::size_t count = 0;
  for (auto const& [vlan, status] : switch_.entities().snoopingStatus->contextStatus())
    for (auto const& [address, group] : status->group())
      for (auto const& [name, intf] : group->intf()) count += intf->membership().size();
  return count;
}

std::size_t LoadedAgent::ask(std::string const& request, std::size_t lines) {
  Agent::Descriptor const client = connectTo(control_.path());
  std::string const line = request + "\n";
  send(client.value(), line.data(), line.size(), MSG_NOSIGNAL);
  std::size_t bytes = 0;
  for (std::array<char, 1 << 16> text; lines > 0;) {
    timed([&] { turn(); });
    ssize_t const count = recv(client.value(), text.data(), text.size(), 0);
    if (count == 0 || (count < 0 && errno != EAGAIN)) break;
    if (count < 0) continue;
    bytes += static_cast<std::size_t>(count);
    auto const ended = static_cast<std::size_t>(std::count(text.data(), text.data() + count, '\n'));
    lines -= std::min(lines, ended);
  }
  return bytes;
}

/// Turns until several in a row had nothing to do, and no timer of a piece of work is left.
void LoadedAgent::settle() {
  constexpr auto nothing = std::chrono::microseconds(50);
  constexpr int quietTurns = 200;
  for (int quiet = 0; quiet < quietTurns;) {
    Horix::Time const pause = loop_.now() + std::chrono::microseconds(100);
    quiet = timed([&] { loop_.turn(pause); }) < nothing ? quiet + 1 : 0;
  }
}

Horix::Time LoadedAgent::processorTime() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

}  // namespace Bench
