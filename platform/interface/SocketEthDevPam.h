#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "framework/kel/Ptr.h"
#include "platform/horix/EventLoop.h"
#include "platform/interface/EthDevPam.h"
#include "platform/interface/SocketOpener.h"

namespace Interface {

/// Packet access through a packet socket that an event loop watches. What is sent leaves at the
/// end of the batch, so that the packets of one batch share a system call. It stays open when its
/// interface goes down, and works again when that comes up.
///
/// A socket that cannot be opened, or that has lost its interface, is opened again, with growing
/// pauses; meanwhile the device is deaf. What is to be sent waits until the socket is open.
class SocketEthDevPam final : public EthDevPam {
 public:
  /// @param loop outlives it.
  SocketEthDevPam(Horix::EventLoop& loop, std::shared_ptr<SocketOpener> opener,
                  Wirex::IntfId const& intfId, IntfStatusAndDeviceName const& device,
                  EthDevSettings const& settings);
  /// What is still to be sent leaves as far as the socket takes it.
  ~SocketEthDevPam() override;

  void outputPktIs(Wirex::Pkt::Ptr pkt) override;

  Counters counters() const override;
  std::string deafness() const override;

  /// Its socket, for another program in the same process. Nothing while it is not open.
  std::optional<PacketSocket::PassedOn> passedOn() const;

 private:
  class Input;
  class Outbox;
  class KelOutbox;
  class Retry;

  bool isOpen() const;
  void open();
  void handleOpened(SocketOpener::Result result);
  void startWith(std::unique_ptr<PacketSocket> socket);
  void handleFailure(char const* call, int error);
  void reopenLater();
  void closeSocket();

  void handleReady();
  void handleError(int error);
  void handlePending();

  /// Returns how many frames were there.
  std::size_t receive();
  void send();
  void drop(std::size_t packets, int error);

  Horix::EventLoop& loop_;
  std::shared_ptr<SocketOpener> opener_;
  std::unique_ptr<SocketOpener::Request> opening_;
  std::unique_ptr<PacketSocket> socket_;  // null while it is not open
  std::unique_ptr<Retry> retry_;
  Horix::Time pause_{};
  std::string deafness_;
  bool deafnessIsTold_ = false;
  mutable Counters counters_;  // reading the kernel's statistics resets them
  int lastError_ = 0;          // 0 once frames come again
  std::vector<Wirex::Pkt::Ptr> unsent_;
  bool socketIsFull_ = false;
  Kel::Ptr<Outbox> outbox_;
  Kel::Ptr<KelOutbox> kelOutbox_;
  std::unique_ptr<Input> input_;
};

}  // namespace Interface
