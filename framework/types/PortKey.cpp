#include "framework/types/PortKey.h"

#include <charconv>
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
  char const* const digits = view.data() + prefix.size();
  char const* const end = view.data() + view.size();
  std::uint16_t vlan = 0;
  char const* const name = std::from_chars(digits, end, vlan).ptr;
  // A number too large for 16 bits leaves `vlan` at 0, which no VLAN has.
  PortKey const key(VlanId(vlan),
                    Wirex::IntfId(std::string_view(name, static_cast<std::size_t>(end - name))));
  if (key.stringvalue() != text)
    throw Kel::RangeException("PortKey::stringvalue with leading zeros not allowed");
  *this = key;
}

std::ostream& operator<<(std::ostream& out, PortKey const& key) {
  return out << key.stringvalue();
}

}  // namespace Bridging::IgmpSnooping::Proxy
