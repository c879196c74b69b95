#pragma once

#include <cstdint>
#include <utility>

#include "framework/entities/BridgingConfig.h"
#include "framework/entities/DeviceIntfStatus.h"
#include "framework/entities/PortVlanMapping.h"
#include "framework/types/PortKey.h"
#include "platform/interface/EthDevPamCollection.h"
#include "platform/interface/EthDevPamManager.h"
#include "platform/snooping/DefaultVlanSm.h"
#include "platform/wirex/PortVlanPamManager.h"
#include "platform/wirex/VlanPam.h"

/// Packet access of the proxy's hosts. Single-threaded, driven by the entities it watches:
///
///     desired interfaces ──┐
///     ports with hosts ────┴─ ProxyIntfFilter ─> proxyPamDesired ─> EthDevPamManager
///                                                                        │ opens devices
///     a host's VlanPam <─ Multiplexer <─ EthDevPamSm <─ ethDevPamCol <───┘
namespace Bridging::IgmpSnooping::Proxy {

/// Decides on which interfaces the proxy wants device packet access: those that the system desires
/// and that carry a host of the proxy.
class KEL_EXPORT ProxyIntfFilter : public Kel::PtrInterface {
 public:
  /// Makes one; the arguments are the constructor's.
  template <class... Arguments>
  static Kel::Ptr<ProxyIntfFilter> ProxyIntfFilterIs(Arguments&&... arguments) {
    return Kel::make<ProxyIntfFilter>(std::forward<Arguments>(arguments)...);
  }

  /// @param pamDir the interfaces that the system desires
  /// @param portVlanMap the ports that carry hosts
  /// @param desiredIntfDir where the decision is written
  ProxyIntfFilter(Kel::Ptr<Interface::PamDesiredIntfDir const> pamDir,
                  Kel::Ptr<PortVlanMapping const> portVlanMap,
                  Kel::Ptr<Interface::PamDesiredIntfDir> desiredIntfDir);
  ~ProxyIntfFilter() override;

  Kel::Ptr<Interface::PamDesiredIntfDir const> const& pamDir() const { return pamDir_; }
  Kel::Ptr<PortVlanMapping const> const& portVlanMap() const { return portVlanMap_; }
  Kel::Ptr<Interface::PamDesiredIntfDir> const& desiredIntfDir() const { return desiredIntfDir_; }

  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  /// Decides for every interface. Both inputs must be there.
  void handlePort();
  void handlePort(Wirex::IntfId intfId);

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

 private:
  class KelPamDir;
  class KelPortVlanMap;

  Kel::Ptr<Interface::PamDesiredIntfDir const> pamDir_;
  Kel::Ptr<PortVlanMapping const> portVlanMap_;
  Kel::Ptr<Interface::PamDesiredIntfDir> desiredIntfDir_;
  Kel::Ptr<KelPamDir> kelPamDir_;
  Kel::Ptr<KelPortVlanMap> kelPortVlanMap_;
  bool initialized_ = false;
};

/// Makes its parent hold a multiplexer for each interface whose device is open, bound to it.
class KEL_EXPORT EthDevPamSm : public Kel::PtrInterface {
 public:
  /// Makes one; the arguments are the constructor's.
  template <class... Arguments>
  static Kel::Ptr<EthDevPamSm> EthDevPamSmIs(Arguments&&... arguments) {
    return Kel::make<EthDevPamSm>(std::forward<Arguments>(arguments)...);
  }

  /// @param parent the owner, which may still be under construction.
  EthDevPamSm(Kel::Ptr<Interface::EthDevPamCollection const> ethDevPamCol,
              Wirex::PortVlanPamManager* parent);
  ~EthDevPamSm() override;

  Kel::Ptr<Interface::EthDevPamCollection const> const& ethDevPamCol() const {
    return ethDevPamCol_;
  }
  Wirex::PortVlanPamManager* parent() const { return parent_; }

  void handleEthDevPam();
  void handleEthDevPam(Wirex::IntfId intfId);

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

 private:
  class KelEthDevPamCol;

  Wirex::PortVlanPamManager* parent_;
  Kel::Ptr<Interface::EthDevPamCollection const> ethDevPamCol_;
  Kel::Ptr<KelEthDevPamCol> kelEthDevPamCol_;
};

/// Keeps the packet access of each (port, VLAN) that has a host, and what it needs underneath.
/// Packets are received through the thread's Interface::EthDevPams.
class KEL_EXPORT ProxyPamManager final : public Wirex::PortVlanPamManager {
 public:
  /// The packet access objects, an entity of their own beside the manager, whose reactors watch its
  /// multiplexers.
  class KEL_EXPORT PamCol : public Kel::Entity {
   public:
    class NotifieeConst : public Kel::NotifieeOf<PamCol const> {
     public:
      virtual void onPamCol(PortKey /*key*/) {}
      virtual void onPamColkelImmediate() {}

     protected:
      using NotifieeOf::NotifieeOf;
    };

    using KelPamCol = Kel::Members<PortKey, Wirex::VlanPam, &NotifieeConst::onPamCol>;

    KelPamCol const& entries() const { return entries_; }

   private:
    friend class ProxyPamManager;

    KelPamCol entries_;
  };

  /// What it is made with: see proxyPamManagerFactory.
  struct Parameters {
    Kel::Ptr<Bridging::Config const> bridgingConfig;
    Kel::Ptr<Interface::PamDesiredIntfDir const> pamDesiredIntfDir;
    Kel::Ptr<PortVlanMapping const> portVlanMap;
    Kel::Ptr<Interface::DeviceIntfStatusDir const> kernelIntfStatusDir;
  };

  /// Makes one of the parameters in their order.
  template <class... Arguments>
  static Kel::Ptr<ProxyPamManager> ProxyPamManagerIs(Arguments&&... arguments) {
    return Kel::make<ProxyPamManager>(Parameters{std::forward<Arguments>(arguments)...});
  }

  explicit ProxyPamManager(Parameters parameters);
  ~ProxyPamManager() override;

  auto const& bridgingConfig() const { return parameters_.bridgingConfig; }
  auto const& pamDesiredIntfDir() const { return parameters_.pamDesiredIntfDir; }
  auto const& portVlanMap() const { return parameters_.portVlanMap; }
  auto const& kernelIntfStatusDir() const { return parameters_.kernelIntfStatusDir; }

  Kel::Ptr<Interface::EthDevPamCollection> const& ethDevPamCol() const { return ethDevPamCol_; }
  /// On which interfaces the proxy itself wants device packet access.
  Kel::Ptr<Interface::PamDesiredIntfDir> const& proxyPamDesired() const { return proxyPamDesired_; }
  Kel::Ptr<EthDevPamSm> const& ethDevPamSm() const { return ethDevPamSm_; }
  Kel::Ptr<ProxyIntfFilter> const& proxyIntfFilter() const { return proxyIntfFilter_; }
  Kel::Ptr<Interface::EthDevPamManager> const& ethDevPamMgr() const { return ethDevPamMgr_; }
  Kel::Ptr<DefaultVlanSm> const& defaultVlanSm() const { return defaultVlanSm_; }

  bool initialized() const { return initialized_; }
  void initializedIs(bool initialized) { initialized_ = initialized; }

  Kel::Ptr<PamCol> const& pamCol() const { return pamCol_; }
  Wirex::VlanPam::Ptr pamCol(PortKey const& key) const { return pamCol_->entries_.get(key); }
  /// Puts a packet access in the place of what the key has. Refuses null.
  void pamColIs(PortKey const& key, Wirex::VlanPam::Ptr const& pam);
  void pamColDel(PortKey const& key);
  void pamColDelAll();
  void pamColNotify(PortKey const& key) { pamCol_->entries_.notify(*pamCol_, key); }
  void pamColNotify() { pamCol_->notify<&PamCol::NotifieeConst::onPamColkelImmediate>(); }

  /// The packet access of a port in a VLAN, or null.
  Wirex::VlanPam::Ptr portVlanPam(PortKey const& key) const { return pamCol(key); }
  /// Find-or-create. A new one needs the port's multiplexer.
  Wirex::VlanPam::Ptr portVlanPamIs(PortKey const& key);
  void portVlanPamDel(PortKey const& key) { pamColDel(key); }

  void doRxPkt(VlanId vlanId, Wirex::IntfId intfId, Wirex::Pkt::PtrConst const& pkt) override;
  bool tagOnEgress(VlanId vlanId, Wirex::IntfId intfId) const override;

  char const* attributeString(std::uint32_t attributeId) const override;

  void handleInitialized();
  /// Switches the device packet access off.
  void handleCleanup();

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

 private:
  /// A port in a VLAN, without the text that a PortKey has.
  struct PortVlan {
    Wirex::IntfId intfId;
    VlanId vlanId;

    std::uint32_t hash() const noexcept { return intfId.hash() * 31 + vlanId.hash(); }
    friend bool operator==(PortVlan const&, PortVlan const&) noexcept = default;
  };

  void configureReception();

  Parameters const parameters_;
  Kel::Ptr<Interface::EthDevPamCollection> ethDevPamCol_;
  Kel::Ptr<PamCol> pamCol_;
  // The same entries, for received packets: building a text for each would cost more than all else
  // on their way.
  Kel::Table<PortVlan, Wirex::VlanPam*> receivers_;
  Kel::Ptr<Interface::PamDesiredIntfDir> proxyPamDesired_;
  Kel::Ptr<EthDevPamSm> ethDevPamSm_;
  Kel::Ptr<ProxyIntfFilter> proxyIntfFilter_;
  Kel::Ptr<Interface::EthDevPamManager> ethDevPamMgr_;
  Kel::Ptr<DefaultVlanSm> defaultVlanSm_;
  bool initialized_ = false;
};

/// Makes the proxy's packet access manager.
/// @param bridgingConfig which frames leave tagged, and the VLAN of those without a tag
/// @param pamDesiredIntfDir the interfaces on which the system desires packet access
/// @param portVlanMap the ports, and their VLANs, that carry hosts
/// @param kernelIntfStatusDir the interfaces that the kernel has
KEL_EXPORT Kel::Ptr<ProxyPamManager> proxyPamManagerFactory(
    Kel::Ptr<Bridging::Config const> bridgingConfig,
    Kel::Ptr<Interface::PamDesiredIntfDir const> pamDesiredIntfDir,
    Kel::Ptr<PortVlanMapping const> portVlanMap,
    Kel::Ptr<Interface::DeviceIntfStatusDir const> kernelIntfStatusDir);

}  // namespace Bridging::IgmpSnooping::Proxy
