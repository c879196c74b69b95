#include <array>
#include <utility>

#include "platform/igmp/IgmpHostDirSm.h"
#include "platform/interface/EthDevPamManager.h"
#include "platform/interface/MultiplexerBinding.h"
#include "platform/snooping/DefaultVlanSm.h"
#include "platform/wirex/PktManager.h"
#include "platform/wirex/PortVlanPamManager.h"
#include "platform/wirex/VlanPam.h"

/// What the proxy calls of libigmpplatform, in a library of that name that knows no packets: no
/// device is ever opened, and hosts send nothing. Its classes are those of the installed headers,
/// by which the proxy was compiled; a real replacement fills in their functions, and may have
/// headers of its own where it compiles the proxy by them.

namespace Igmp {

class IgmpHostDirSm::KelIgmpHostDir : public Kel::PtrInterface {};
class HostSm : public Kel::PtrInterface {};

IgmpHostDirSm::IgmpHostDirSm(Kel::Ptr<Kel::ActivityConfig> activity,
                             Kel::Ptr<IgmpHostDir> igmpHostDir,
                             Kel::Ptr<IgmpHostStatusDir> igmpHostStatusDir,
                             Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : activity_(std::move(activity)),
      igmpHostDir_(std::move(igmpHostDir)),
      igmpHostStatusDir_(std::move(igmpHostStatusDir)),
      timerWheel_(std::move(timerWheel)) {}
IgmpHostDirSm::~IgmpHostDirSm() = default;
void IgmpHostDirSm::hasNotificationActiveIs(bool /*active*/) {}
void IgmpHostDirSm::kelDoZombieReactors(bool /*zombie*/) {}

}  // namespace Igmp

namespace Wirex {

PktManager& PktManager::instance() noexcept {
  static PktManager manager;
  return manager;
}

class Multiplexer::KelDevicePam : public Kel::PtrInterface {};

Multiplexer::~Multiplexer() = default;
void Multiplexer::vlanIs(Bridging::VlanId vlan, Priority priority) {
  vlan_.is(*this, vlan, priority);
}
void Multiplexer::kelDoZombieReactors(bool /*zombie*/) {}

VlanPam::VlanPam(Kel::Name name, Kel::Ptr<Multiplexer> multiplexer)
    : name_(std::move(name)), multiplexer_(std::move(multiplexer)) {}
void VlanPam::outputPktIs(Pkt::Ptr /*pkt*/) {}

PortVlanPamManager::~PortVlanPamManager() = default;
char const* PortVlanPamManager::attributeString(std::uint32_t attributeId) const {
  static constexpr std::array<char const*, attributes> names{"name", "multiplexer", "defaultVlan"};
  return attributeId < attributes ? names[attributeId] : nullptr;
}

}  // namespace Wirex

namespace Interface {

class EthDevPamManager::KelDesired : public Kel::PtrInterface {};
class EthDevPamManager::KelKernelIntfStatusDir : public Kel::PtrInterface {};

EthDevPamManager::EthDevPamManager(Kel::Ptr<PamDesiredIntfDir const> /*desired*/,
                                   Kel::Ptr<EthDevPamCollection> opened,
                                   Kel::Ptr<DeviceIntfStatusDir const> /*kernelIntfs*/)
    : opened_(std::move(opened)) {}
EthDevPamManager::~EthDevPamManager() = default;
void EthDevPamManager::bufferSizeIs(std::size_t bytes) {
  settings_.bufferSize = bytes;
}
void EthDevPamManager::protocolIs(std::uint16_t protocol) {
  settings_.protocol = protocol;
}
void EthDevPamManager::filterIs(std::size_t /*instructions*/, BpfInstruction const* /*program*/) {}
void EthDevPamManager::enabledIs(bool enabled) {
  enabled_ = enabled;
}
void EthDevPamManager::hasNotificationActiveIs(bool /*active*/) {}
void EthDevPamManager::kelDoZombieReactors(bool /*zombie*/) {}

/// No device is there to bind one to.
Kel::Ptr<Wirex::Multiplexer> bindMultiplexer(EthDevPamCollection const& /*opened*/,
                                             Wirex::PortVlanPamManager& /*manager*/,
                                             Wirex::IntfId const& /*intf*/) {
  return nullptr;
}

}  // namespace Interface

namespace Bridging::IgmpSnooping {

class DefaultVlanSm::KelBridgingConfig : public Kel::PtrInterface {};
class DefaultVlanSm::KelVlanConfig : public Kel::PtrInterface {
 public:
  void hasNotificationActiveIs(bool /*active*/) override {}
  void kelDoZombieReactors(bool /*zombie*/) override {}
};

DefaultVlanSm::DefaultVlanSm(Kel::Ptr<Bridging::Config const> /*bridgingConfig*/,
                             Wirex::PortVlanPamManager* manager)
    : manager_(manager) {}
DefaultVlanSm::~DefaultVlanSm() = default;
void DefaultVlanSm::hasNotificationActiveIs(bool /*active*/) {}
void DefaultVlanSm::kelDoZombieReactors(bool /*zombie*/) {}

}  // namespace Bridging::IgmpSnooping
