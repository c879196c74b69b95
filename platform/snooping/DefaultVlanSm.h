#pragma once

#include <map>
#include <set>

#include "framework/entities/BridgingConfig.h"
#include "framework/kel/Reactors.h"
#include "platform/wirex/PortVlanPamManager.h"

namespace Bridging::IgmpSnooping {

/// Gives each interface of a packet access manager its default VLAN: the one in which the bridging
/// configuration has the interface untagged. Should there be several, the lowest holds; an
/// interface that is untagged nowhere takes no frames without a tag.
class KEL_EXPORT DefaultVlanSm : public Kel::PtrInterface {
 public:
  /// @param manager the owner.
  DefaultVlanSm(Kel::Ptr<Bridging::Config const> bridgingConfig,
                Wirex::PortVlanPamManager* manager);
  ~DefaultVlanSm() override;

  Kel::Ptr<Bridging::Config const> const& bridgingConfig() const;

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

 private:
  class KelBridgingConfig;
  class KelVlanConfig;
  class KelIntfConfig;

  void handleVlan();
  void handleVlan(VlanId vlan);
  void untaggedIs(Wirex::IntfId const& intf, VlanId vlan, bool untagged);

  Wirex::PortVlanPamManager* manager_;
  std::map<Wirex::IntfId, std::set<VlanId>> untaggedVlans_;
  Kel::Ptr<KelBridgingConfig> bridgingConfig_;
  Kel::Reactors<VlanId, KelVlanConfig> vlanConfig_;
};

}  // namespace Bridging::IgmpSnooping
