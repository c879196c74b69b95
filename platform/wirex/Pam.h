#pragma once

#include <utility>

#include "framework/kel/Exception.h"
#include "framework/kel/Notification.h"
#include "platform/wirex/Pkt.h"

namespace Wirex {

/// Packet access: something that packets come in through, and go out through. Its user watches it
/// and reads a packet that came in before the next one comes.
class KEL_EXPORT Pam : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Pam const> {
   public:
    /// Raised for every packet, also for one that was handed in before.
    virtual void onInputPkt() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  /// The packet that came in last; null before the first one.
  Pkt::PtrConst const& inputPkt() const { return inputPkt_; }
  void inputPktIs(Pkt::PtrConst pkt) {
    Kel::nonNull(pkt, "Wirex::Pam", "inputPkt");
    inputPkt_ = std::move(pkt);
    notify<&NotifieeConst::onInputPkt>();
  }

  /// Sends a packet, an Ethernet frame from the destination's MAC address on. The packet is given
  /// away: whoever sends it may write to it.
  virtual void outputPktIs(Pkt::Ptr pkt) = 0;

 private:
  Pkt::PtrConst inputPkt_;
};

}  // namespace Wirex
