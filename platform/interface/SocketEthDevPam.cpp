#include "platform/interface/SocketEthDevPam.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <system_error>
#include <utility>

#include "framework/kel/Activity.h"
#include "framework/kel/Exception.h"
#include "framework/kel/Notification.h"
#include "framework/kel/Reactors.h"
#include "framework/kel/Trace.h"

KEL_TRACE_MODULE("Interface::EthDevPam", "SocketEthDevPam")

namespace Interface {

using namespace std::chrono_literals;

namespace {

// So many packets wait for a socket that is full.
constexpr std::size_t mostUnsent = 1024;

constexpr auto firstPause = 200ms;  // by then it is known whether the interface has gone
constexpr auto longestPause = 30s;

/// An interface that has gone is not missed: it may be made again at the moment.
bool isGone(int error) {
  return error == ENODEV || error == ENXIO;
}

char const* remedy(int error) {
  switch (error) {
    case EPERM:
    case EACCES:
      return "; packet sockets need the capability CAP_NET_RAW";
    case EMFILE:
    case ENFILE:
      return "; each device needs a descriptor, so raise the limit of open files";
    case ENOMEM:
    case ENOBUFS:
      return "; each device needs a megabyte of memory that cannot be swapped";
    case ENODEV:
    case ENXIO:
      return "; see 'ip link' for the devices that there are";
    default:
      return "";
  }
}

}  // namespace

class SocketEthDevPam::Input final : public Horix::EventLoop::Watch {
 public:
  Input(Horix::EventLoop& loop, SocketEthDevPam& pam)
      : Watch(loop, pam.socket_->descriptor()), pam_(pam) {}

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

class SocketEthDevPam::KelOutbox final : public Kel::ActivityReactor<Outbox::NotifieeConst> {
 public:
  KelOutbox(Kel::Ptr<Outbox const> outbox, SocketEthDevPam* pam)
      : ActivityReactor(Kel::make<Kel::ActivityConfig>()), pam_(pam) {
    watch(std::move(outbox));
  }

  void onPending() override {
    if (notificationActive()) pam_->handlePending();
  }

 private:
  SocketEthDevPam* pam_;
};

class SocketEthDevPam::Retry final : public Horix::Timer {
 public:
  explicit Retry(SocketEthDevPam& pam) : pam_(pam) {}

 private:
  void onExpiry() override { pam_.open(); }

  SocketEthDevPam& pam_;
};

SocketEthDevPam::SocketEthDevPam(Horix::EventLoop& loop, std::shared_ptr<SocketOpener> opener,
                                 Wirex::IntfId const& intfId, IntfStatusAndDeviceName const& device,
                                 EthDevSettings const& settings)
    : EthDevPam(intfId, device, settings),
      loop_(loop),
      opener_(std::move(opener)),
      retry_(std::make_unique<Retry>(*this)),
      outbox_(Kel::make<Outbox>()),
      kelOutbox_(Kel::make<KelOutbox>(outbox_, this)) {
  open();
}

SocketEthDevPam::~SocketEthDevPam() {
  kelOutbox_->kelDoZombieReactors(true);
  if (isOpen() && !unsent_.empty()) send();
  closeSocket();
}

bool SocketEthDevPam::isOpen() const {
  return socket_ && !retry_->scheduled();
}

void SocketEthDevPam::open() {
  counters();  // those of the socket go with it
  closeSocket();
  if (deafness_.empty()) deafness_ = "the device is being opened";
  opening_ = opener_->open(device(), settings(), [this](SocketOpener::Result result) {
    handleOpened(std::move(result));
  });
}

void SocketEthDevPam::handleOpened(SocketOpener::Result result) {
  if (auto const* const failed = std::get_if<FailedCall>(&result))
    handleFailure(failed->what(), failed->error());
  else
    startWith(std::get<std::unique_ptr<PacketSocket>>(std::move(result)));
}

void SocketEthDevPam::startWith(std::unique_ptr<PacketSocket> socket) {
  socket_ = std::move(socket);
  try {
    input_ = std::make_unique<Input>(loop_, *this);
  } catch (std::system_error const& failed) {
    closeSocket();
    handleFailure("epoll_ctl", failed.code().value());
    return;
  }
  if (std::exchange(deafnessIsTold_, false))
    KEL_TRACE(0, "device " << device().deviceName << " of " << intfId() << " is open now");
  deafness_.clear();
  pause_ = 0ms;
  if (!unsent_.empty()) send();
}

void SocketEthDevPam::handleFailure(char const* call, int error) {
  bool const isFirst = pause_ == 0ms;
  deafness_ = std::string("cannot open device ") + device().deviceName.c_str() + ": " + call +
              ": " + std::strerror(error) + remedy(error);
  if (isFirst && isGone(error))
    KEL_TRACE(5, intfId() << ": " << deafness_);
  else if (!std::exchange(deafnessIsTold_, true))
    KEL_TRACE(0, intfId() << " is deaf: " << deafness_ << "; tried again with growing pauses");
  reopenLater();
}

// Who comes here may be reading from the socket, or writing to it: it is closed later.
void SocketEthDevPam::reopenLater() {
  pause_ = std::clamp<Horix::Time>(pause_ * 2, firstPause, longestPause);
  loop_.timerWheel()->schedule(*retry_, pause_);
}

void SocketEthDevPam::closeSocket() {
  input_.reset();
  socketIsFull_ = false;
  opener_->close(std::move(socket_));
}

std::string SocketEthDevPam::deafness() const {
  return deafness_;
}

std::optional<PacketSocket::PassedOn> SocketEthDevPam::passedOn() const {
  return isOpen() ? std::optional(socket_->passedOn()) : std::nullopt;
}

EthDevPam::Counters SocketEthDevPam::counters() const {
  if (socket_) counters_.receiveDropped += socket_->takeDropped();
  return counters_;
}

void SocketEthDevPam::handleReady() {
  Kel::Ptr<SocketEthDevPam> const self(this);
  if (socketIsFull_) send();
  int const error = receive() == 0 ? socket_->takeError() : socket_->takeMetError();
  if (error != 0) handleError(error);
}

// Whoever is given a frame may let go of this device: with its last user the reading ends.
std::size_t SocketEthDevPam::receive() {
  std::size_t received = 0;
  bool mayBeLeft = true;
  do {
    auto const pkt = socket_->receive();
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
  if (std::exchange(lastError_, error) != error)
    KEL_TRACE(5, intfId() << " receives nothing: " << std::strerror(error));
  if (error != ENETDOWN || retry_->scheduled() || socket_->isBound()) return;
  deafness_ = "its interface was deleted";
  reopenLater();
}

void SocketEthDevPam::outputPktIs(Wirex::Pkt::Ptr pkt) {
  Kel::nonNull(pkt, "Interface::EthDevPam", "outputPkt");
  if (unsent_.size() == mostUnsent) {
    ++counters_.sendDropped;
    KEL_TRACE(8, intfId() << " drops a packet: " << unsent_.size() << " wait to be sent");
    if (isOpen()) return;
    unsent_.erase(unsent_.begin());  // what is newer tells what holds now
  }
  unsent_.push_back(std::move(pkt));
  if (!isOpen() || socketIsFull_) return;
  if (unsent_.size() == PacketSocket::sentAtOnce)
    send();
  else
    outbox_->pendingNotify();
}

void SocketEthDevPam::handlePending() {
  if (isOpen() && !socketIsFull_) send();
}

void SocketEthDevPam::send() {
  std::size_t done = 0;
  bool full = false;
  while (done < unsent_.size() && !full) {
    int const sent = socket_->send(std::span(unsent_).subspan(done));
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
  if (int const error = socket_->takeMetError(); error != 0) handleError(error);
}

void SocketEthDevPam::drop(std::size_t packets, int error) {
  counters_.sendDropped += packets;
  KEL_TRACE(8, intfId() << " drops " << packets << " packets: " << std::strerror(error));
}

}  // namespace Interface
