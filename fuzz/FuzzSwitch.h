#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <variant>

#include "agent/Switch.h"
#include "agent/config/ConfigurationReader.h"
#include "fuzz/FuzzInput.h"
#include "platform/interface/CaptureEthDevPams.h"

namespace Fuzz {

inline Agent::Configuration configurationIn(std::string_view text) {
  auto result = Agent::readConfiguration(text, "fuzz.toml");
  auto* const configuration = std::get_if<Agent::Configuration>(&result);
  require(configuration != nullptr, "the fuzzer's own configuration is usable");
  return std::move(*configuration);
}

inline Agent::InterfaceState operationalInterface() {
  Agent::InterfaceState state;
  state.present = state.carrier = state.forwarding = true;
  state.macAddress = {2, 0, 0, 0, 0, 1};
  state.mtu = 1500;
  return state;
}

/// What a switch is told of its interfaces when it begins.
enum class Interfaces : std::uint8_t { working, unknown };

/// A switch under a virtual clock whose ports hear what the fuzzer says.
struct FuzzSwitch {
  explicit FuzzSwitch(Agent::Configuration const& configuration,
                      Interfaces interfaces = Interfaces::working)
      : loop(Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>())),
        agent(configuration, loop) {
    if (interfaces == Interfaces::working) interfacesWork();
  }

  void interfacesWork() {
    for (Agent::InterfaceConfig const& interface : agent.configuration().interfaces)
      agent.interfaceStateIs(interface.intfId, operationalInterface());
    loop.endBatch();
  }

  Horix::EventLoop loop;
  Interface::CaptureEthDevPams devices;
  Agent::Switch agent;
};

}  // namespace Fuzz
