#include "platform/wirex/PortVlanPamManager.h"

#include <array>

#include "framework/kel/Exception.h"

namespace Wirex {

using Bridging::VlanId;

PortVlanPamManager::~PortVlanPamManager() {
  for (auto const& [intf, multiplexer] : living_) multiplexer->managerIsGone();
}

Kel::Ptr<Multiplexer> PortVlanPamManager::multiplexerIs(IntfId const& intf,
                                                        PortVlanPamManager* parent) {
  if (auto present = multiplexer(intf)) {
    present->requireConstructedWith(parent);
    return present;
  }
  Kel::Ptr<Multiplexer> added;
  if (Multiplexer* const* const former = living_.find(intf)) {
    added = Kel::Ptr<Multiplexer>(*former);
    added->requireConstructedWith(parent);
  } else {
    added = Kel::make<Multiplexer>(intf, parent);
    living_.add(intf, added.get());
  }
  added->defaultVlan_ = defaultVlan(intf);
  multiplexer_.put(*this, intf, added);
  return added;
}

void PortVlanPamManager::multiplexerDel(IntfId intf) {
  if (auto const multiplexer = this->multiplexer(intf)) multiplexer->devicePamIs(nullptr);
  multiplexer_.del(*this, std::move(intf));
}

void PortVlanPamManager::multiplexerDelAll() {
  Kel::Ptr<PortVlanPamManager> const self(this);
  for (IntfId const& intf : multiplexer_.keys()) multiplexerDel(intf);
}

std::optional<VlanId> PortVlanPamManager::defaultVlan(IntfId const& intf) const {
  VlanId const* const vlan = defaultVlan_.find(intf);
  return vlan ? std::optional(*vlan) : std::nullopt;
}

void PortVlanPamManager::defaultVlanIs(IntfId const& intf, std::optional<VlanId> vlan) {
  std::uint32_t const at = defaultVlan_.position(intf);
  bool const known = at != Kel::Table<IntfId, VlanId>::absent;
  if (!vlan) {
    if (known) defaultVlan_.takeAt(at);
  } else if (known) {
    defaultVlan_.mappedAt(at) = *vlan;
  } else {
    defaultVlan_.add(intf, *vlan);
  }
  if (Multiplexer* const* const multiplexer = living_.find(intf))
    (*multiplexer)->defaultVlan_ = vlan;
}

char const* PortVlanPamManager::attributeString(std::uint32_t attributeId) const {
  constexpr std::array<char const*, attributes> names{"name", "multiplexer", "defaultVlan"};
  return attributeId < names.size() ? names[attributeId] : "unknown";
}

void PortVlanPamManager::multiplexerIsGone(Multiplexer const& multiplexer) {
  living_.takeAt(living_.position(multiplexer.intfId()));
}

}  // namespace Wirex
