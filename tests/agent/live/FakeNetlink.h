#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "agent/live/NetlinkSocket.h"

namespace Agent {

/// The links of a kernel, and its side of one netlink socket: notifications that it drops when the
/// queue is full and until that is empty again, and answers that go on as the socket is read.
class FakeNetlink {
 public:
  FakeNetlink();
  FakeNetlink(FakeNetlink const&) = delete;
  FakeNetlink& operator=(FakeNetlink const&) = delete;
  ~FakeNetlink();

  /// To be given to who reads. This outlives it.
  std::unique_ptr<NetlinkSocket> socket();

  // The links. Each change is notified.
  void add(std::uint32_t index, std::string const& name, bool up = true);
  void del(std::uint32_t index);

  /// Has the kernel drop what it notifies from now on, as if the queue were full.
  void overrun();
  /// Puts a message into the queue that says that a request has failed.
  void refuse(int error);
  /// Puts a message into the queue that says that it has so many bytes, and has no more than a
  /// header.
  void claim(std::uint32_t bytes);

  // What will happen.
  std::size_t queueSize = 100;             ///< messages
  std::size_t entriesAtOnce = 2;           ///< of an answer, in one datagram
  unsigned interruptedAnswers = 0;         ///< so many of the next answers say that they are
  int nextAnswerEndsWith = 0;              ///< an error instead of success
  bool answers = true;                     ///< requests; else they are taken and forgotten
  std::deque<int> openErrors;              ///< of the next calls; 0 for none
  std::deque<int> sendErrors;              ///< likewise
  std::deque<int> receiveErrors;           ///< likewise
  std::function<void()> onReceive;         ///< before each call
  std::function<void(unsigned)> onAnswer;  ///< before each datagram of an answer, which it counts

  // What happened.
  unsigned opened = 0;
  unsigned requests = 0;
  unsigned dropped = 0;  ///< notifications

 private:
  class Socket;
  struct Link {
    std::string name;
    bool up;
  };
  using Datagram = std::vector<std::byte>;

  static void append(Datagram& datagram, std::uint16_t type, unsigned flags, std::uint32_t sequence,
                     std::uint32_t index, Link const& link);
  static void appendDone(Datagram& datagram, std::uint32_t sequence, int result);
  void notify(std::uint16_t type, std::uint32_t index, Link const& link);
  void answerMore();
  void begin();
  void updateReadiness() const;

  ssize_t receive(std::byte* buffer, std::size_t size);
  ssize_t send(std::byte const* message);

  int readiness_;
  std::map<std::uint32_t, Link> links_;
  std::deque<Datagram> queue_;
  bool congested_ = false;
  int error_ = 0;
  bool answering_ = false;
  bool interrupted_ = false;
  std::uint32_t sequence_ = 0;
  std::uint32_t answeredUpTo_ = 0;
  unsigned datagramsOfAnswer_ = 0;
};

}  // namespace Agent
