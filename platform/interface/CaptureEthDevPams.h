#pragma once

#include <functional>

#include "platform/interface/EthDevPams.h"
#include "platform/wirex/Ethernet.h"

namespace Interface {

/// Devices whose frames are fed in, from captures or by a test, and pass the receive filter as they
/// would in a socket. What is sent goes to a function, if there is one.
class KEL_EXPORT CaptureEthDevPams final : public EthDevPams {
 public:
  using Sent = std::function<void(Wirex::IntfId const&, Wirex::Bytes frame)>;

  void sentIs(Sent sent) { sent_ = std::move(sent); }

  /// A frame was heard on an interface. Ignored where no packet access is open.
  void receive(Wirex::IntfId const& intfId, Wirex::Bytes frame);

 private:
  class CaptureEthDevPam;

  Kel::Ptr<EthDevPam> newPam(Wirex::IntfId const& intfId, IntfStatusAndDeviceName const& device,
                             EthDevSettings const& settings) override;

  Sent sent_;
};

}  // namespace Interface
