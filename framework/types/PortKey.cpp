#include "framework/types/PortKey.h"

#include <cstdint>
#include <ostream>
#include <string>

#include "framework/kel/Exception.h"

namespace Bridging::IgmpSnooping::Proxy {

namespace {

constexpr std::string_view prefix = "Vlan";

Kel::String8 textOf(VlanId vlan, Wirex::IntfId const& intf) {
  std::string text(prefix);
  text.append(std::to_string(vlan.value())).append(intf.stringValue().view());
  return Kel::String8(text);
}

}  // namespace

PortKey::Identity::Identity(VlanId vlan, Wirex::IntfId intf)
    : vlanId(vlan), intfId(std::move(intf)), hostName(textOf(vlanId, intfId)) {}

PortKey::PortKey() : PortKey(VlanId(), Wirex::IntfId()) {}

PortKey::PortKey(VlanId vlanId, Wirex::IntfId intfId)
    : identity_(Kel::make<Identity>(vlanId, std::move(intfId))) {}

void PortKey::handleInit(Kel::String8 const& text) {
  std::string_view const view = text.view();
  if (view.substr(0, prefix.size()) != prefix)
    throw Kel::RangeException("PortKey::stringvalue without \"Vlan\" in front not allowed");
  // The longest number that a VLAN can have, without leading zeros.
  std::string_view name = view.substr(prefix.size());
  unsigned vlan = 0;
  while (!name.empty() && name.front() >= '0' && name.front() <= '9') {
    unsigned const longer = vlan * 10 + static_cast<unsigned>(name.front() - '0');
    if (longer == 0 || longer > VlanId::max) break;
    vlan = longer;
    name.remove_prefix(1);
  }
  *this = PortKey(VlanId(static_cast<std::uint16_t>(vlan)), Wirex::IntfId(name));
}

std::ostream& operator<<(std::ostream& out, PortKey const& key) {
  return out << key.stringvalue();
}

}  // namespace Bridging::IgmpSnooping::Proxy
