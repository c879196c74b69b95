#pragma once

#include "platform/horix/EventLoop.h"
#include "platform/interface/EthDevPams.h"
#include "platform/interface/SystemCalls.h"

namespace Interface {

/// The kernel's network devices, through packet sockets that an event loop watches. The loop and
/// the system calls outlive the packet accesses.
class KEL_EXPORT SocketEthDevPams final : public EthDevPams {
 public:
  explicit SocketEthDevPams(Horix::EventLoop& loop, SystemCalls& system = SystemCalls::ofKernel())
      : loop_(loop), system_(system) {}

 private:
  Kel::Ptr<EthDevPam> newPam(Wirex::IntfId const& intfId, IntfStatusAndDeviceName const& device,
                             EthDevSettings const& settings) override;

  Horix::EventLoop& loop_;
  SystemCalls& system_;
};

}  // namespace Interface
