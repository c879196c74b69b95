#pragma once

#include <string>
#include <string_view>

#include "agent/Switch.h"
#include "platform/interface/CaptureEthDevPams.h"
#include "tests/agent/config/ConfigurationTesting.h"
#include "tests/platform/igmp/FrameBuilder.h"

namespace Agent {

inline InterfaceState operationalInterface() {
  InterfaceState state;
  state.present = state.carrier = state.forwarding = true;
  state.macAddress = {2, 0, 0, 0, 0, 1};
  state.mtu = 1500;
  return state;
}

/// A switch whose ports hear what a test says, at the time that it says. Its interfaces are all
/// there.
struct TestSwitch {
  explicit TestSwitch(std::string_view configuration,
                      Kel::Ptr<Horix::Clock> const& clock = Kel::make<Horix::VirtualClock>())
      : loop(Kel::make<Horix::TimerWheel>(clock)), snooping(configurationIn(configuration), loop) {
    for (InterfaceConfig const& interface : snooping.configuration().interfaces)
      snooping.interfaceStateIs(interface.intfId, operationalInterface());
    loop.endBatch();
  }

  void hear(char const* port, IgmpTest::FrameBuilder const& frame) {
    hearOnly(port, frame);
    loop.endBatch();
  }

  /// Without ending the batch.
  void hearOnly(char const* port, IgmpTest::FrameBuilder const& frame) {
    devices.receive(Wirex::IntfId(port), frame.bytes());
  }

  void advance(Horix::Time time) { loop.advanceTo(loop.now() + time); }

  Horix::EventLoop loop;
  Interface::CaptureEthDevPams devices;
  Switch snooping;
};

/// VLAN 10 with untagged interfaces.
inline std::string vlan10(std::string const& interfaces, std::string const& more = "") {
  return "[[interface]]\nname = \"" + interfaces + "\"\n[[vlan]]\nid = 10\n" +
         "querier = { igmp-version = 3 }\ninterfaces = [\"" + interfaces + "\"]\n" + more;
}

/// A configuration in which ports may learn as much as they hear.
inline std::string withoutLimits(std::string const& configuration) {
  return "[defaults]\nmax-groups = 0\nmax-interface-groups = 0\nmax-interface-memberships = 0\n"
         "max-group-sources = 0\nmax-interface-sources = 0\n" +
         configuration;
}

}  // namespace Agent
