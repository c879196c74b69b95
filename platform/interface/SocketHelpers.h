#pragma once

#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/horix/EventLoop.h"
#include "platform/interface/SocketOpener.h"

namespace Interface {

/// Opens and closes packet sockets on threads of its own, so that the event loop serves the devices
/// that are open meanwhile. The threads do nothing but system calls; results are told on the
/// loop's thread. What is opened comes before what is closed; a request that is given up before its
/// turn costs nothing. Where no thread can be started, the loop's own does the work.
///
/// When it ends, it waits until everything is closed.
class KEL_EXPORT SocketHelpers final : public SocketOpener {
 public:
  /// Throws std::system_error.
  /// @param loop,system outlive it; the system calls may be made from any thread.
  /// @param descriptorsLeft so many of those that the process may have are left to others.
  explicit SocketHelpers(Horix::EventLoop& loop, unsigned descriptorsLeft = 0,
                         SystemCalls& system = SystemCalls::ofKernel());
  ~SocketHelpers() override;

  std::unique_ptr<Request> open(IntfStatusAndDeviceName const& device,
                                EthDevSettings const& settings, Opened opened) override;
  void close(std::unique_ptr<PacketSocket> socket) override;

  /// Waits until everything that was asked for is done and told, and ends the threads: the next
  /// request starts them with the privileges that the process has then. For before the loop runs.
  void await();

 private:
  struct Task;
  class Ticket;
  class Input;
  using Tasks = std::list<std::shared_ptr<Task>>;

  void add(Tasks& waiting, std::shared_ptr<Task> const& task);
  void startThreads();
  void finish();
  void work();
  void handleDone();
  void tell(Task& task);
  void giveUp(std::shared_ptr<Task> const& task);

  SystemCalls& system_;
  unsigned descriptorsLeft_;
  std::mutex mutex_;  // guards what follows, up to the threads
  std::condition_variable changed_;
  Tasks openings_;  // that wait for their turn
  Tasks closings_;
  Tasks running_;
  Tasks done_;
  bool stopping_ = false;
  std::vector<std::thread> threads_;
  int ready_;  // readable while anything is done and not told
  std::unique_ptr<Input> input_;
};

}  // namespace Interface
