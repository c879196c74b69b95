#pragma once

#include "framework/kel/Text.h"
#include "framework/types/VlanId.h"
#include "platform/wirex/Multiplexer.h"
#include "platform/wirex/Pam.h"

namespace Wirex {

/// The packet access of one (port, VLAN). Frames that it sends carry no VLAN tag yet; frames that
/// it receives are as they were on the wire. It holds the port's multiplexer: should the port lose
/// its multiplexer, what is sent is dropped until the manager puts it back.
class KEL_EXPORT VlanPam final : public Pam {
 public:
  using Ptr = Kel::Ptr<VlanPam>;

  /// @param name the VLAN's number in decimal. Throws Kel::RangeException if it is no VLAN's.
  VlanPam(Kel::Name name, Kel::Ptr<Multiplexer> multiplexer);

  Kel::Name const& name() const { return name_; }
  Bridging::VlanId vlanId() const { return vlanId_; }
  Kel::Ptr<Multiplexer> const& multiplexer() const { return multiplexer_; }

  void outputPktIs(Pkt::Ptr pkt) override;

 private:
  Kel::Name name_;
  Bridging::VlanId vlanId_;
  Kel::Ptr<Multiplexer> multiplexer_;
};

}  // namespace Wirex
