#include "platform/interface/SocketEthDevPam.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "framework/kel/Activity.h"
#include "framework/kel/Exception.h"
#include "framework/kel/Notification.h"
#include "framework/kel/Trace.h"

KEL_TRACE_MODULE("Interface::EthDevPam", "SocketEthDevPam")

namespace Interface {

namespace {

// So many packets wait for a socket that is full.
constexpr std::size_t mostUnsent = 1024;

unsigned indexOf(IntfStatusAndDeviceName const& device, SystemCalls& system) {
  if (device.deviceIndex != 0) return device.deviceIndex;
  unsigned const index = system.if_nametoindex(device.deviceName.c_str());
  if (index == 0) throw std::system_error(errno, std::generic_category(), "if_nametoindex");
  return index;
}

}  // namespace

class SocketEthDevPam::Input final : public Horix::EventLoop::Watch {
 public:
  Input(Horix::EventLoop& loop, SocketEthDevPam& pam)
      : Watch(loop, pam.socket_.descriptor()), pam_(pam) {}

  using Watch::shareIsUsed;
  using Watch::tookInput;
  using Watch::waitsForOutputIs;

 private:
  void onReady() override { pam_.handleReady(); }

  SocketEthDevPam& pam_;
};

/// Says that packets wait to be sent. A reactor holds what it watches, so what tells the device's
/// own reactor cannot be the device.
class SocketEthDevPam::Outbox final : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Outbox const> {
   public:
    virtual void onPending() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  void pendingNotify() const { notify<&NotifieeConst::onPending>(); }
};

class SocketEthDevPam::KelOutbox final : public Outbox::NotifieeConst {
 public:
  KelOutbox(Kel::Ptr<Outbox const> outbox, SocketEthDevPam* pam)
      : NotifieeConst(Delivery::byActivity), pam_(pam) {
    watch(std::move(outbox));
  }

  Kel::ActivityConfig* kelFwkActivity() const override { return activity_.get(); }

  void onPending() override {
    if (notificationActive()) pam_->handlePending();
  }

 private:
  Kel::Ptr<Kel::ActivityConfig> activity_ = Kel::make<Kel::ActivityConfig>();
  SocketEthDevPam* pam_;
};

SocketEthDevPam::SocketEthDevPam(Horix::EventLoop& loop, SystemCalls& system,
                                 Wirex::IntfId const& intfId, IntfStatusAndDeviceName const& device,
                                 EthDevSettings const& settings)
    : EthDevPam(intfId, device, settings),
      socket_(system, indexOf(device, system), settings),
      outbox_(Kel::make<Outbox>()),
      kelOutbox_(Kel::make<KelOutbox>(outbox_, this)),
      input_(std::make_unique<Input>(loop, *this)) {}

SocketEthDevPam::~SocketEthDevPam() {
  kelOutbox_->kelDoZombieReactors(true);
  if (!unsent_.empty()) send();
}

EthDevPam::Counters SocketEthDevPam::counters() const {
  counters_.receiveDropped += socket_.takeDropped();
  return counters_;
}

void SocketEthDevPam::handleReady() {
  Kel::Ptr<SocketEthDevPam> const self(this);
  if (socketIsFull_) send();
  int const error = receive() == 0 ? socket_.takeError() : socket_.takeMetError();
  if (error != 0) handleError(error);
}

// Whoever is given a frame may let go of this device: with its last user the reading ends.
std::size_t SocketEthDevPam::receive() {
  std::size_t received = 0;
  bool mayBeLeft = true;
  do {
    auto const pkt = socket_.receive();
    mayBeLeft = pkt.has_value();
    if (!mayBeLeft) break;
    ++received;
    if (std::exchange(lastError_, 0) != 0) KEL_TRACE(5, intfId() << " receives again");
    if (*pkt) {
      ++counters_.received;
      inputPktIs(*pkt);
    } else {
      ++counters_.receiveTruncated;
      KEL_TRACE(8, intfId() << " ignores a frame that did not come as a whole");
    }
  } while (references() > 1 && !input_->shareIsUsed());
  input_->tookInput(received, mayBeLeft ? PacketSocket::mostWaiting : 0);
  return received;
}

void SocketEthDevPam::handleError(int error) {
  ++counters_.receiveFailed;
  if (std::exchange(lastError_, error) == error) return;
  KEL_TRACE(5, intfId() << " receives nothing: " << std::strerror(error));
}

void SocketEthDevPam::outputPktIs(Wirex::Pkt::Ptr pkt) {
  Kel::nonNull(pkt, "Interface::EthDevPam", "outputPkt");
  if (unsent_.size() == mostUnsent) {
    ++counters_.sendDropped;
    KEL_TRACE(8, intfId() << " drops a packet: " << unsent_.size() << " wait to be sent");
    return;
  }
  unsent_.push_back(std::move(pkt));
  if (socketIsFull_) return;
  if (unsent_.size() == PacketSocket::sentAtOnce)
    send();
  else
    outbox_->pendingNotify();
}

void SocketEthDevPam::handlePending() {
  if (!socketIsFull_) send();
}

void SocketEthDevPam::send() {
  std::size_t done = 0;
  bool full = false;
  while (done < unsent_.size() && !full) {
    int const sent = socket_.send(std::span(unsent_).subspan(done));
    if (sent > 0) {
      counters_.sent += static_cast<std::size_t>(sent);
      done += static_cast<std::size_t>(sent);
      continue;
    }
    switch (int const error = errno) {
      case EAGAIN:
        full = true;
        break;
      case ENETDOWN:
      case ENXIO:
      case ENODEV:
        drop(unsent_.size() - done, error);
        done = unsent_.size();
        break;
      default:
        drop(1, error);
        ++done;
    }
  }
  unsent_.erase(unsent_.begin(), unsent_.begin() + static_cast<std::ptrdiff_t>(done));
  if (full != socketIsFull_) input_->waitsForOutputIs(socketIsFull_ = full);
  if (int const error = socket_.takeMetError(); error != 0) handleError(error);
}

void SocketEthDevPam::drop(std::size_t packets, int error) {
  counters_.sendDropped += packets;
  KEL_TRACE(8, intfId() << " drops " << packets << " packets: " << std::strerror(error));
}

}  // namespace Interface
