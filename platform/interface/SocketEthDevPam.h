#pragma once

#include <memory>
#include <vector>

#include "framework/kel/Ptr.h"
#include "platform/horix/EventLoop.h"
#include "platform/interface/EthDevPam.h"
#include "platform/interface/PacketSocket.h"

namespace Interface {

/// Packet access through a packet socket that an event loop watches. What is sent leaves at the
/// end of the batch, so that the packets of one batch share a system call. It stays open when its
/// interface goes down, and works again when that comes up. The loop and the system calls outlive
/// it.
class SocketEthDevPam final : public EthDevPam {
 public:
  /// Throws std::system_error.
  SocketEthDevPam(Horix::EventLoop& loop, SystemCalls& system, Wirex::IntfId const& intfId,
                  IntfStatusAndDeviceName const& device, EthDevSettings const& settings);
  /// What is still to be sent leaves as far as the socket takes it.
  ~SocketEthDevPam() override;

  void outputPktIs(Wirex::Pkt::Ptr pkt) override;

  Counters counters() const override;

 private:
  class Input;
  class Outbox;
  class KelOutbox;

  void handleReady();
  void handleError(int error);
  void handlePending();

  /// Returns how many frames were there.
  std::size_t receive();
  void send();
  void drop(std::size_t packets, int error);

  mutable PacketSocket socket_;  // reading the kernel's statistics resets them
  mutable Counters counters_;
  int lastError_ = 0;  // 0 once frames come again
  std::vector<Wirex::Pkt::Ptr> unsent_;
  bool socketIsFull_ = false;
  Kel::Ptr<Outbox> outbox_;
  Kel::Ptr<KelOutbox> kelOutbox_;
  std::unique_ptr<Input> input_;
};

}  // namespace Interface
