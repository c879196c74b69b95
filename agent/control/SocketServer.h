#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <string_view>

#include "agent/control/Answer.h"
#include "agent/control/Descriptor.h"
#include "agent/control/ListeningSocket.h"
#include "platform/horix/EventLoop.h"

namespace Agent {

/// Serves clients of a stream socket on the event loop: one request, one answer, end. Nothing
/// blocks, and nothing that a client does or leaves undone holds up the loop: clients, what they
/// say, what waits for them, and the time they take are bounded, and each turn of the loop makes at
/// most one piece of each answer. Where there are as many clients as there may be, one that has
/// said nothing makes room for the next. Derive to say what requests and answers are.
/// Single-threaded.
class SocketServer : private Horix::EventLoop::Watch {
 public:
  struct Limits {
    std::size_t clients = 16;
    std::size_t requestBytes = 4096;
    Horix::Time requestTime = std::chrono::seconds(5);
    /// How long a client may read nothing while there is something to read.
    Horix::Time idleTime = std::chrono::seconds(30);
    /// How long a client may take all in all; zero: as long as it likes.
    Horix::Time wholeTime{};
  };

  struct Counters {
    std::uint64_t accepted = 0;
    std::uint64_t refused = 0;   ///< too many clients, or no descriptors left
    std::uint64_t timedOut = 0;  ///< too slow to ask or to read, or silent where others waited
    std::uint64_t cutOff = 0;    ///< too slow for what went on meanwhile
  };

  int descriptor() const { return socket_->descriptor(); }
  std::string const& path() const { return socket_->path(); }
  void giveTo(uid_t user, gid_t group) const { socket_->giveTo(user, group); }
  std::size_t clients() const { return clients_.size(); }

  /// Whether to serve clients that come. Those that come meanwhile wait, and are not refused.
  void acceptsIs(bool accepts) { waitsForInputIs(accepts); }

  Counters const& counters() const { return counters_; }

 protected:
  SocketServer(Horix::EventLoop& loop, std::unique_ptr<ListeningSocket> socket,
               Limits const& limits);
  ~SocketServer() override;

  Horix::EventLoop& loop() const { return loop_; }
  Limits const& limits() const { return limits_; }
  void countCutOff() { ++counters_.cutOff; }
  /// For whoever derives, when what its answers use is about to go.
  void removeClients();

 private:
  class Client;

  /// Whether the request is complete.
  /// @param ended nothing more will come.
  virtual bool isComplete(std::string_view input, bool ended) const = 0;
  /// What a client that said no more in its time has asked for. Null if it is to go unanswered.
  virtual std::unique_ptr<Answer> answerToSilence(std::string_view input) = 0;
  virtual std::unique_ptr<Answer> answerTo(std::string_view request) = 0;
  /// What a client that cannot be served is told.
  virtual std::string refusal(std::string_view reason) const = 0;

  void onReady() override;
  void acceptWithoutDescriptors();
  /// Returns whether there is some.
  bool makeRoom();
  void turnAway(Descriptor const& connection, std::string_view reason);
  void remove(Client& client);

  std::unique_ptr<ListeningSocket> socket_;
  Horix::EventLoop& loop_;
  Limits limits_;
  Descriptor spare_;  // given up for a moment when the process has no other left
  Counters counters_;
  std::list<Client> clients_;
};

}  // namespace Agent
