#include "agent/control/SocketServer.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <sys/socket.h>
#include <utility>

namespace Agent {

namespace {

Descriptor newSpare() {
  return Descriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
}

/// How a transfer ended that did not move a byte.
bool shouldWait(int error) {
  return error == EAGAIN || error == EWOULDBLOCK || error == EINTR;
}

}  // namespace

/// A client: first its request is read, then its answer is sent.
class SocketServer::Client final : private Descriptor,
                                   private Horix::EventLoop::Watch,
                                   private Horix::Timer {
 public:
  Client(SocketServer& server, Descriptor descriptor)
      : Descriptor(std::move(descriptor)),
        Watch(server.loop_, value(), Order::first),
        server_(server),
        begun_(server.loop_.now()) {
    schedule(server.limits_.requestTime);
  }

  /// Whether it has asked nothing, and nothing that it said waits to be read.
  bool isSilent() const {
    char byte = 0;
    return !answer_ && input_.empty() && recv(value(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0;
  }

  /// It goes, and is told why.
  void giveWay() {
    ++server_.counters_.timedOut;
    std::string const text = server_.refusal("it serves another client; ask at once next time");
    send(value(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    end();
  }

 private:
  void onReady() override {
    if (answer_)
      pump();
    else
      read();
  }

  void onExpiry() override {
    if (!answer_)
      if (auto answer = server_.answerToSilence(input_)) {
        begin(std::move(answer));
        return;
      }
    ++server_.counters_.timedOut;
    end();
  }

  void schedule(Horix::Time time) {
    if (Horix::Time const whole = server_.limits_.wholeTime; whole != Horix::Time{}) {
      Horix::Time const left = begun_ + whole - server_.loop_.now();
      time = std::clamp(left, Horix::Time{}, time);
    }
    server_.loop_.timerWheel()->schedule(*this, time);
  }

  void read() {
    std::array<char, 4096> bytes;
    ssize_t const count = recv(value(), bytes.data(), bytes.size(), 0);
    if (count < 0) {
      if (!shouldWait(errno)) end();
      return;
    }
    bool const ended = count == 0;
    input_.append(bytes.data(), static_cast<std::size_t>(count));
    if (server_.isComplete(input_, ended))
      begin(server_.answerTo(input_));
    else if (input_.size() >= server_.limits_.requestBytes)
      begin(std::make_unique<TextAnswer>(server_.refusal("the request is too long")));
    else if (ended)
      end();
  }

  void begin(std::unique_ptr<Answer> answer) {
    answer_ = std::move(answer);
    // Nothing is sent from within, so that whoever wakes does not lose the client under its feet.
    answer_->wakeIs([this] { wake(); });
    waitsForInputIs(false);
    waitsForOutputIs(true);
    schedule(server_.limits_.idleTime);
  }

  void sleep() {
    asleep_ = true;
    waitsForOutputIs(false);
    cancel();
  }

  void wake() {
    if (!std::exchange(asleep_, false)) return;
    waitsForOutputIs(true);
    schedule(server_.limits_.idleTime);
  }

  /// Sends what there is, and makes the next piece when all is sent.
  void pump() {
    if (asleep_) {
      end();  // nothing was awaited of the client: it has gone
      return;
    }
    if (output_.empty()) {
      progress_ = answer_->advance(output_);
      if (output_.empty() && progress_ == Answer::Progress::waiting) {
        sleep();
        return;
      }
      // While there is nothing to read, it is not the client that takes its time.
      if (output_.empty()) schedule(server_.limits_.idleTime);
    }
    if (flush() && output_.empty() && progress_ == Answer::Progress::done) end();
  }

  /// Returns whether the client is still there.
  bool flush() {
    if (output_.empty()) return true;
    ssize_t const count =
        send(value(), output_.data(), output_.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0) {
      if (shouldWait(errno)) return true;
      end();
      return false;
    }
    output_.erase(0, static_cast<std::size_t>(count));
    schedule(server_.limits_.idleTime);
    return true;
  }

  /// The client goes; nothing of it may be used afterwards.
  void end() {
    // What is left unread would have the other side lose the end of its answer.
    std::array<char, 4096> bytes;
    for (int i = 0; i < 16; ++i)
      if (recv(value(), bytes.data(), bytes.size(), MSG_DONTWAIT) <= 0) break;
    server_.remove(*this);
  }

  SocketServer& server_;
  Horix::Time begun_;
  std::string input_;
  std::unique_ptr<Answer> answer_;
  std::string output_;
  Answer::Progress progress_ = Answer::Progress::more;
  bool asleep_ = false;  // until the answer has more
};

SocketServer::SocketServer(Horix::EventLoop& loop, std::unique_ptr<ListeningSocket> socket,
                           Limits const& limits)
    : Watch(loop, socket->descriptor(), Order::first),
      socket_(std::move(socket)),
      loop_(loop),
      limits_(limits),
      spare_(newSpare()) {}

SocketServer::~SocketServer() = default;

void SocketServer::removeClients() {
  clients_.clear();
}

void SocketServer::onReady() {
  Descriptor connection(accept4(descriptor(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
  if (connection.value() < 0) {
    if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
      acceptWithoutDescriptors();
    return;
  }
  if (!makeRoom()) {
    turnAway(connection, "it serves as many clients as it may; try again later");
    return;
  }
  try {
    clients_.emplace_back(*this, std::move(connection));
    ++counters_.accepted;
  } catch (std::system_error const&) {
    ++counters_.refused;  // the kernel cannot watch it
  }
}

/// The one that has been silent for longest goes.
bool SocketServer::makeRoom() {
  if (clients_.size() < limits_.clients) return true;
  auto const silent = std::find_if(clients_.begin(), clients_.end(),
                                   [](Client const& client) { return client.isSilent(); });
  if (silent == clients_.end()) return false;
  silent->giveWay();
  return true;
}

/// A client that is never accepted would keep the socket ready, and the loop busy.
void SocketServer::acceptWithoutDescriptors() {
  spare_ = Descriptor();
  {
    Descriptor const connection(accept4(descriptor(), nullptr, nullptr, SOCK_CLOEXEC));
    if (connection.value() >= 0)
      turnAway(connection, "it has too many files open; try again later");
  }
  spare_ = newSpare();
}

void SocketServer::turnAway(Descriptor const& connection, std::string_view reason) {
  ++counters_.refused;
  std::string const text = refusal(reason);
  send(connection.value(), text.data(), text.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

void SocketServer::remove(Client& client) {
  clients_.remove_if([&](Client const& each) { return &each == &client; });
}

}  // namespace Agent
