#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "platform/horix/EventLoop.h"
#include "platform/interface/EthDevPams.h"
#include "platform/interface/SocketOpener.h"

namespace Interface {

/// The kernel's network devices, through packet sockets that an event loop watches. A device that
/// cannot be opened is deaf, and is tried again.
class KEL_EXPORT SocketEthDevPams final : public EthDevPams {
 public:
  /// Opens devices at once.
  /// @param loop,system outlive the packet accesses.
  explicit SocketEthDevPams(Horix::EventLoop& loop, SystemCalls& system = SystemCalls::ofKernel())
      : SocketEthDevPams(loop, std::make_shared<DirectSocketOpener>(system)) {}
  /// @param loop outlives the packet accesses.
  SocketEthDevPams(Horix::EventLoop& loop, std::shared_ptr<SocketOpener> opener)
      : loop_(loop), opener_(std::move(opener)) {}

  /// The sockets that are open, for another program in the same process.
  std::vector<PacketSocket::PassedOn> passedOn() const;

 private:
  Kel::Ptr<EthDevPam> newPam(Wirex::IntfId const& intfId, IntfStatusAndDeviceName const& device,
                             EthDevSettings const& settings) override;

  Horix::EventLoop& loop_;
  std::shared_ptr<SocketOpener> opener_;
};

}  // namespace Interface
