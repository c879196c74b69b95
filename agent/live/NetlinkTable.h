#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "agent/live/NetlinkSocket.h"
#include "platform/horix/EventLoop.h"

struct nlmsghdr;

namespace Agent {

/// Follows a table of the kernel's (its links, its addresses) through rtnetlink(7): asks for all
/// entries, and hears of each change from then on. Whatever goes wrong, it asks again until it has
/// had an answer that lacks nothing:
///
/// 1. Once messages were lost, the kernel drops all others until its queue has been read empty. So
///    what was lost is asked for then, and not before.
/// 2. A request is refused while another one is answered, so there is one at a time.
/// 3. After any other error, and when an answer does not come, the socket is opened anew: nothing
///    else ends an answer that the kernel has left off.
///
/// Pauses grow while it does not succeed. A turn of the loop takes it a few milliseconds at most.
class NetlinkTable {
 public:
  /// Who takes what is read. Must not destroy the table.
  class Reader {
   public:
    /// An entry that is there, has changed or is gone.
    virtual void onEntry(nlmsghdr const& entry) = 0;
    /// Everything that there is has been told since generation() last changed.
    virtual void onComplete() = 0;
    /// As much has been read as one turn of the loop may take, or all that there was.
    virtual void onPause() = 0;

   protected:
    ~Reader() = default;
  };

  /// Throws std::system_error if the socket cannot be opened.
  /// @param request the message that asks for all entries, such as RTM_GETLINK.
  NetlinkTable(Horix::EventLoop& loop, std::unique_ptr<NetlinkSocket> socket, std::uint16_t request,
               Reader& reader);
  NetlinkTable(NetlinkTable const&) = delete;
  NetlinkTable& operator=(NetlinkTable const&) = delete;
  ~NetlinkTable();

  /// Reads until all entries have been told, but no longer than this; timers expire meanwhile.
  /// Returns whether they have.
  bool awaitComplete(std::chrono::milliseconds longest);

  /// The number of the latest request for all entries.
  std::uint32_t generation() const noexcept { return generation_; }

 private:
  class Input;
  class Retry;

  void handleReady();
  void handleRetry();

  void open();
  void reopen();
  void ask();
  void startOver(char const* call, int error);
  void wait();

  /// Returns false when nothing is left.
  bool receive();
  void handle(nlmsghdr const& header);
  void handleDone(nlmsghdr const& header);

  Horix::EventLoop& loop_;
  std::unique_ptr<NetlinkSocket> socket_;
  std::uint16_t request_;
  Reader& reader_;
  std::uint32_t generation_ = 0;
  bool answering_ = false;    // the kernel answers the latest request
  bool lost_ = false;         // messages, since that request
  bool interrupted_ = false;  // the answer, by changes meanwhile: it may lack an entry
  bool complete_ = false;
  bool told_ = false;  // the operator, that it does not succeed
  Horix::Time pause_{};
  alignas(std::max_align_t) std::array<std::byte, 65536> buffer_;
  std::unique_ptr<Retry> retry_;  // when to ask again; while the kernel answers, when it is late
  std::unique_ptr<Input> input_;  // null while the socket is not usable
};

}  // namespace Agent
