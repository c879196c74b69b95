#include "platform/interface/SocketHelpers.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <iterator>
#include <optional>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Interface {

namespace {

// What they wait for in the kernel they can wait for together.
constexpr std::size_t mostThreads = 8;

int newEvent() {
  int const descriptor = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  if (descriptor < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  return descriptor;
}

/// The kernel gives out the lowest number that is free.
bool isWithinLimit(int descriptor, unsigned left) {
  rlimit limit{};
  return getrlimit(RLIMIT_NOFILE, &limit) != 0 ||
         static_cast<rlim_t>(descriptor) + left < limit.rlim_cur;
}

}  // namespace

/// Made and destroyed on the loop's thread: what is allocated on a thread of its own costs address
/// space.
struct SocketHelpers::Task {
  enum class State { waiting, running, done };

  void run() noexcept {
    if (!opens) {
      socket->close();
      return;
    }
    try {
      socket->open(device, settings);
      if (isWithinLimit(socket->descriptor(), descriptorsLeft)) return;
      socket->close();
      failed = FailedCall("socket", EMFILE);
    } catch (FailedCall const& error) {
      failed = error;
    }
  }

  std::unique_ptr<PacketSocket> socket;
  bool opens = false;
  unsigned descriptorsLeft = 0;
  IntfStatusAndDeviceName device = {};
  EthDevSettings settings = {};
  Opened opened = {};  // nothing once nobody waits for the socket
  std::optional<FailedCall> failed = {};
  State state = State::waiting;
};

class SocketHelpers::Ticket final : public Request {
 public:
  Ticket(SocketHelpers& helpers, std::shared_ptr<Task> task)
      : helpers_(helpers), task_(std::move(task)) {}
  ~Ticket() override { helpers_.giveUp(task_); }

 private:
  SocketHelpers& helpers_;
  std::shared_ptr<Task> task_;
};

class SocketHelpers::Input final : public Horix::EventLoop::Watch {
 public:
  Input(Horix::EventLoop& loop, SocketHelpers& helpers)
      : Watch(loop, helpers.ready_), helpers_(helpers) {}

 private:
  void onReady() override { helpers_.handleDone(); }

  SocketHelpers& helpers_;
};

SocketHelpers::SocketHelpers(Horix::EventLoop& loop, unsigned descriptorsLeft, SystemCalls& system)
    : system_(system), descriptorsLeft_(descriptorsLeft), ready_(newEvent()) {
  try {
    input_ = std::make_unique<Input>(loop, *this);
  } catch (...) {
    ::close(ready_);
    throw;
  }
}

SocketHelpers::~SocketHelpers() {
  {
    std::lock_guard const lock(mutex_);
    openings_.clear();
  }
  finish();
  input_.reset();
  ::close(ready_);
}

// Signals are the loop's.
void SocketHelpers::startThreads() {
  sigset_t all;
  sigset_t former;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &former);
  try {
    while (threads_.size() < mostThreads) threads_.emplace_back([this] { work(); });
  } catch (std::system_error const&) {
    // Those that there are do it, or the loop's own.
  }
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
}

/// Does what waits, together with the threads, and ends these.
void SocketHelpers::finish() {
  {
    std::lock_guard const lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_all();
  work();
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
  stopping_ = false;
}

void SocketHelpers::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [&] { return stopping_ || !openings_.empty() || !closings_.empty(); });
    Tasks& waiting = openings_.empty() ? closings_ : openings_;
    if (waiting.empty()) return;
    auto const task = waiting.begin();
    running_.splice(running_.end(), waiting, task);
    (*task)->state = Task::State::running;
    lock.unlock();
    (*task)->run();
    lock.lock();
    (*task)->state = Task::State::done;
    done_.splice(done_.end(), running_, task);
    eventfd_write(ready_, 1);
  }
}

std::unique_ptr<SocketOpener::Request> SocketHelpers::open(IntfStatusAndDeviceName const& device,
                                                           EthDevSettings const& settings,
                                                           Opened opened) {
  auto const task = std::make_shared<Task>();
  task->socket = std::make_unique<PacketSocket>(system_);
  task->opens = true;
  task->descriptorsLeft = descriptorsLeft_;
  task->device = device;
  task->settings = settings;
  task->opened = std::move(opened);
  add(openings_, task);
  return std::make_unique<Ticket>(*this, task);
}

void SocketHelpers::close(std::unique_ptr<PacketSocket> socket) {
  if (!socket) return;
  auto const task = std::make_shared<Task>();
  task->socket = std::move(socket);
  add(closings_, task);
}

void SocketHelpers::add(Tasks& waiting, std::shared_ptr<Task> const& task) {
  if (threads_.empty()) startThreads();
  {
    std::lock_guard const lock(mutex_);
    waiting.push_back(task);
  }
  changed_.notify_one();
  if (threads_.empty()) finish();
}

void SocketHelpers::giveUp(std::shared_ptr<Task> const& task) {
  task->opened = nullptr;
  std::lock_guard const lock(mutex_);
  if (task->state == Task::State::waiting) openings_.remove(task);
}

void SocketHelpers::await() {
  bool more = true;
  while (more) {
    finish();
    more = !done_.empty();
    handleDone();
  }
}

void SocketHelpers::handleDone() {
  eventfd_t count = 0;
  eventfd_read(ready_, &count);
  Tasks done;
  {
    std::lock_guard const lock(mutex_);
    done.swap(done_);
  }
  for (auto const& task : done) tell(*task);
}

void SocketHelpers::tell(Task& task) {
  if (!task.opens) return;
  auto const opened = std::exchange(task.opened, nullptr);
  if (opened && task.failed)
    opened(*task.failed);
  else if (opened)
    opened(std::move(task.socket));
  else if (!task.failed)
    close(std::move(task.socket));
}

}  // namespace Interface
