#include "platform/wirex/VlanPam.h"

#include <charconv>
#include <string_view>

namespace Wirex {

namespace {

Bridging::VlanId vlanNamed(Kel::Name const& name) {
  std::string_view const text = name.stringValue().view();
  std::uint16_t number = 0;
  auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  bool const isNumber = error == std::errc() && end == text.data() + text.size();
  return Bridging::VlanId(isNumber ? number : std::uint16_t{0});  // 0 is refused
}

}  // namespace

VlanPam::VlanPam(Kel::Name name, Kel::Ptr<Multiplexer> multiplexer)
    : name_(std::move(name)), vlanId_(vlanNamed(name_)), multiplexer_(std::move(multiplexer)) {
  Kel::nonNull(multiplexer_, "Wirex::VlanPam", "multiplexer");
}

void VlanPam::outputPktIs(Pkt::Ptr pkt) {
  multiplexer_->outputPktIs(vlanId_, std::move(pkt));
}

}  // namespace Wirex
