#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "proxy/ProxyPam.h"
#include "tests/TraceCapture.h"
#include "tests/platform/interface/RecordedPams.h"
#include "tests/platform/wirex/Wiring.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {

using InterfaceTest::RecordedPams;
using Wirex::IntfId;

/// What packet access traces when it enters its operations.
namespace PamTraces {

inline std::string const scope = "Bridging::IgmpSnooping::Proxy::";

inline std::string managerInitialized() {
  return "8 void " + scope + "ProxyPamManager::handleInitialized()";
}
inline std::string managerCleanup() {
  return "8 void " + scope + "ProxyPamManager::handleCleanup()";
}
inline std::string pamTrace(std::string const& key) {
  return "8 Wirex::VlanPam::Ptr " + scope + "ProxyPamManager::portVlanPamIs(const " + scope +
         "PortKey&) " + key;
}
inline std::string creatingPam() {
  return "5 Creating VlanPam ";
}
inline std::string rxPkt(std::string const& vlanAndIntf) {
  return "8 virtual void " + scope +
         "ProxyPamManager::doRxPkt(Bridging::VlanId, Wirex::IntfId, const Ptr&) " + vlanAndIntf;
}
inline std::string everyPort() {
  return "8 void " + scope + "ProxyIntfFilter::handlePort()";
}
inline std::string port(std::string const& intf) {
  return "8 void " + scope + "ProxyIntfFilter::handlePort(Wirex::IntfId)(" + intf + ")";
}
inline std::string desired(std::string const& intf) {
  return "7 Desired Intf " + intf;
}
inline std::string notDesired(std::string const& intf) {
  return "7 Not a Desired Intf " + intf;
}
inline std::string everyDevice() {
  return "8 void " + scope + "EthDevPamSm::handleEthDevPam()";
}
inline std::string device(std::string const& intf) {
  return "8 void " + scope + "EthDevPamSm::handleEthDevPam(Wirex::IntfId)(" + intf + ")";
}

}  // namespace PamTraces

/// The functions that wrote these lines.
inline std::vector<std::string> functionsOf(TraceCapture const& trace) {
  std::vector<std::string> functions;
  for (auto const& line : trace.lines()) functions.push_back(line.function);
  return functions;
}

/// What the rest of the system gives to the proxy's packet access, and devices to be opened.
struct PamInputs {
  void desire(char const* intf, bool desired = true) {
    pamDir->intfDesiredIs(IntfId(intf), desired);
  }
  void undesire(char const* intf) { pamDir->intfDesiredDel(IntfId(intf)); }
  void host(char const* intf) { portVlanMap->portInfoIs(IntfId(intf)); }
  void unhost(char const* intf) { portVlanMap->portInfoDel(IntfId(intf)); }
  void kernelHas(char const* intf) { kernel->intfStatusAndDeviceNameIs(IntfId(intf), {intf, 1}); }
  void kernelLoses(char const* intf) { kernel->intfStatusAndDeviceNameDel(IntfId(intf)); }

  /// Everything that it takes for the interface's device to be opened.
  void isUsed(char const* intf) {
    kernelHas(intf);
    desire(intf);
    host(intf);
  }

  void vlanHas(std::uint16_t vlan, char const* intf, bool tagged) {
    bridging->vlanConfigIs(VlanId(vlan))->intfConfigIs(IntfId(intf))->taggedIs(tagged);
  }

  WirexTest::PacketBuffers buffers{2048};  // the manager makes them larger
  RecordedPams devices;
  Kel::Ptr<Bridging::Config> bridging = Kel::make<Bridging::Config>();
  Kel::Ptr<Interface::PamDesiredIntfDir> pamDir = Kel::make<Interface::PamDesiredIntfDir>("system");
  Kel::Ptr<PortVlanMapping> portVlanMap = Kel::make<PortVlanMapping>();
  Kel::Ptr<Interface::DeviceIntfStatusDir> kernel = Kel::make<Interface::DeviceIntfStatusDir>();
};

}  // namespace Bridging::IgmpSnooping::Proxy::Testing
