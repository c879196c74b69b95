#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/interface/SocketEthDevPams.h"
#include "platform/interface/SocketHelpers.h"
#include "tests/platform/interface/PamTesting.h"

namespace {

using namespace InterfaceTest;
using namespace std::chrono_literals;
using Interface::FailedCall;
using Interface::PacketSocket;
using Interface::SocketHelpers;
using Interface::SocketOpener;
using testing::IsEmpty;

/// A kernel that takes its time: calls that open and close sockets return when the test says so.
class SlowKernel final : public Interface::SystemCalls {
 public:
  void openingsReturn(bool yes) { set(openings_, yes); }
  void closingsReturn(bool yes) { set(closings_, yes); }

  std::atomic<int> opened = 0;  ///< sockets, or about to be
  std::atomic<int> closed = 0;
  std::atomic<int> openError = 0;
  std::atomic<unsigned> sent = 0;  ///< packets

 private:
  void set(bool& which, bool yes) {
    std::lock_guard const lock(mutex_);
    which = yes;
    changed_.notify_all();
  }
  void await(bool const& which) {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return which; });
  }

  unsigned if_nametoindex(char const*) override { return 1; }
  int socket(int, int, int) override {
    ++opened;
    await(openings_);
    if (int const error = openError; error != 0) {
      errno = error;
      return -1;
    }
    return eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  }
  int setsockopt(int, int, int, void const*, socklen_t) override { return 0; }
  int getsockopt(int, int, int, void*, socklen_t*) override { return 0; }
  int bind(int, sockaddr const*, socklen_t) override { return 0; }
  int getsockname(int, sockaddr*, socklen_t*) override { return 0; }
  ssize_t recvmsg(int, msghdr*, int) override {
    errno = EAGAIN;
    return -1;
  }
  int sendmmsg(int, mmsghdr*, unsigned count, int) override {
    sent += count;
    return static_cast<int>(count);
  }
  void* mmap(void*, std::size_t size, int protection, int, int, off_t) override {
    return ::mmap(nullptr, size, protection, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  }
  int munmap(void* address, std::size_t size) override { return ::munmap(address, size); }
  int close(int descriptor) override {
    await(closings_);
    ++closed;
    return ::close(descriptor);
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  bool openings_ = true;
  bool closings_ = true;
};

class SocketHelpersTest : public testing::Test {
 protected:
  std::unique_ptr<SocketOpener::Request> open() {
    return helpers->open({"eth0", 1}, {}, [this](SocketOpener::Result result) {
      toldOnLoop = std::this_thread::get_id() == loopThread;
      if (auto const* const failed = std::get_if<FailedCall>(&result))
        errors.push_back(failed->error());
      else
        sockets.push_back(std::get<std::unique_ptr<PacketSocket>>(std::move(result)));
    });
  }

  template <class Condition>
  bool turnUntil(Condition condition) {
    for (auto const end = loop.now() + 5s; !condition() && loop.now() < end;)
      loop.turn(loop.now() + 1ms);
    return condition();
  }

  std::thread::id const loopThread = std::this_thread::get_id();
  SlowKernel kernel;
  Horix::EventLoop loop{Kel::make<Horix::TimerWheel>(Kel::make<Horix::MonotonicClock>())};
  std::shared_ptr<SocketHelpers> helpers = std::make_shared<SocketHelpers>(loop, 0, kernel);
  std::vector<std::unique_ptr<PacketSocket>> sockets;
  std::vector<int> errors;
  bool toldOnLoop = false;
};

TEST_F(SocketHelpersTest, LoopTurnsWhileASocketIsOpened) {
  kernel.openingsReturn(false);
  auto const request = open();
  ASSERT_TRUE(turnUntil([&] { return kernel.opened == 1; }));
  EXPECT_THAT(sockets, IsEmpty());
  kernel.openingsReturn(true);
  ASSERT_TRUE(turnUntil([&] { return sockets.size() == 1; }));
  EXPECT_TRUE(toldOnLoop);
}

TEST_F(SocketHelpersTest, LoopTurnsWhileASocketIsClosed) {
  auto const request = open();
  ASSERT_TRUE(turnUntil([&] { return sockets.size() == 1; }));
  kernel.closingsReturn(false);
  helpers->close(std::move(sockets[0]));
  loop.turn(loop.now());
  EXPECT_EQ(kernel.closed, 0);
  kernel.closingsReturn(true);
  EXPECT_TRUE(turnUntil([&] { return kernel.closed == 1; }));
}

TEST_F(SocketHelpersTest, ClosingsDoNotKeepOpeningsFromTheirTurn) {
  auto const first = open();
  ASSERT_TRUE(turnUntil([&] { return sockets.size() == 1; }));
  std::vector<std::unique_ptr<SocketOpener::Request>> requests;
  for (int i = 0; i < 20; ++i) requests.push_back(open());
  ASSERT_TRUE(turnUntil([&] { return sockets.size() == 21; }));
  kernel.closingsReturn(false);
  for (int i = 0; i < 3; ++i) {
    helpers->close(std::move(sockets.back()));
    sockets.pop_back();
  }
  auto const another = open();
  EXPECT_TRUE(turnUntil([&] { return sockets.size() == 19; }));
  kernel.closingsReturn(true);
}

TEST_F(SocketHelpersTest, FailureIsTold) {
  kernel.openError = EMFILE;
  auto const request = open();
  ASSERT_TRUE(turnUntil([&] { return !errors.empty(); }));
  EXPECT_THAT(errors, testing::ElementsAre(EMFILE));
  EXPECT_TRUE(toldOnLoop);
}

TEST_F(SocketHelpersTest, DescriptorsAreLeftToOthers) {
  rlimit limit{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
  int const next = eventfd(0, 0);
  close(next);
  auto const left = static_cast<unsigned>(limit.rlim_cur) - static_cast<unsigned>(next) - 3;
  helpers = std::make_shared<SocketHelpers>(loop, left, kernel);
  std::vector<std::unique_ptr<SocketOpener::Request>> requests;
  for (int i = 0; i < 10; ++i) requests.push_back(open());
  helpers->await();
  EXPECT_THAT(sockets.size(), testing::AllOf(testing::Ge(1u), testing::Le(4u)));
  EXPECT_THAT(errors, testing::Each(EMFILE));
  EXPECT_EQ(sockets.size() + errors.size(), 10u);
}

TEST_F(SocketHelpersTest, RequestThatIsGivenUpBeforeItsTurnCostsNothing) {
  kernel.openingsReturn(false);
  std::vector<std::unique_ptr<SocketOpener::Request>> running;
  for (int i = 0; i < 8; ++i) running.push_back(open());
  ASSERT_TRUE(turnUntil([&] { return kernel.opened == 8; }));
  for (int i = 0; i < 100; ++i) open();  // and given up
  kernel.openingsReturn(true);
  helpers->await();
  EXPECT_EQ(kernel.opened, 8);
  EXPECT_EQ(sockets.size(), 8u);
}

TEST_F(SocketHelpersTest, SocketThatNobodyWaitsForAnyMoreIsClosed) {
  kernel.openingsReturn(false);
  auto request = open();
  ASSERT_TRUE(turnUntil([&] { return kernel.opened == 1; }));
  request = nullptr;
  kernel.openingsReturn(true);
  EXPECT_TRUE(turnUntil([&] { return kernel.closed == 1; }));
  EXPECT_THAT(sockets, IsEmpty());
}

TEST_F(SocketHelpersTest, EverythingIsDoneAndToldAfterWaiting) {
  std::vector<std::unique_ptr<SocketOpener::Request>> requests;
  for (int i = 0; i < 50; ++i) requests.push_back(open());
  helpers->await();
  EXPECT_EQ(sockets.size(), 50u);
  for (auto& socket : sockets) helpers->close(std::move(socket));
  helpers->await();
  EXPECT_EQ(kernel.closed, 50);
}

TEST_F(SocketHelpersTest, EndClosesWhatIsOpen) {
  auto request = open();
  helpers->await();
  request = nullptr;
  helpers->close(std::move(sockets[0]));
  open();  // and given up, perhaps in its turn
  helpers = nullptr;
  EXPECT_EQ(kernel.closed, kernel.opened);
}

// ---- A device

TEST_F(SocketHelpersTest, PacketsWaitUntilTheDeviceIsOpen) {
  Interface::SocketEthDevPams devices(loop, helpers);
  kernel.openingsReturn(false);
  auto const pam = devices.pam(Wirex::IntfId("swp1"), {"eth0", 1}, {});
  EXPECT_THAT(pam->deafness(), testing::HasSubstr("being opened"));
  for (int i = 0; i < 100; ++i) pam->outputPktIs(Wirex::Pkt::PktIs(frameOf(60)));
  loop.turn(loop.now());
  EXPECT_EQ(kernel.sent, 0u);
  kernel.openingsReturn(true);
  ASSERT_TRUE(turnUntil([&] { return pam->deafness().empty(); }));
  EXPECT_EQ(kernel.sent, 100u);
  EXPECT_EQ(pam->counters().sendDropped, 0u);
}

TEST_F(SocketHelpersTest, DeviceMayGoWhileItIsOpened) {
  {
    Interface::SocketEthDevPams devices(loop, helpers);
    kernel.openingsReturn(false);
    auto const pam = devices.pam(Wirex::IntfId("swp1"), {"eth0", 1}, {});
    ASSERT_TRUE(turnUntil([&] { return kernel.opened == 1; }));
  }
  kernel.openingsReturn(true);
  EXPECT_TRUE(turnUntil([&] { return kernel.closed == 1; }));
}

}  // namespace
