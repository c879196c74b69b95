#include <cerrno>
#include <fstream>
#include <functional>
#include <linux/rtnetlink.h>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <sys/socket.h>

#include <gtest/gtest.h>

#include "agent/live/KernelInterfaces.h"
#include "agent/text/Wording.h"
#include "tests/agent/replay/CaptureTesting.h"
#include "tests/platform/interface/VethCable.h"

namespace Agent {
namespace {

using namespace InterfaceTest;
using namespace std::chrono_literals;
using Wirex::IntfId;

using Names = std::set<std::string>;

/// The kernel's, whose queue takes a few hundred messages only.
class SmallNetlinkSocket final : public NetlinkSocket {
 public:
  void open() override {
    kernel_->open();
    int const size = 100000;  // bytes
    setsockopt(descriptor(), SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size);
  }
  int descriptor() const override { return kernel_->descriptor(); }
  ssize_t receive(std::span<std::byte> buffer) override {
    ssize_t const size = kernel_->receive(buffer);
    if (size < 0 && errno == ENOBUFS) ++overruns;
    return size;
  }
  ssize_t send(std::span<std::byte const> message) override { return kernel_->send(message); }

  static inline int overruns = 0;

 private:
  std::unique_ptr<NetlinkSocket> kernel_ = NetlinkSocket::ofKernel(RTMGRP_LINK);
};

/// Follows the interfaces of a namespace of its own.
class KernelInterfacesNetnsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (auto const impossible = VethCable::impossible()) GTEST_SKIP() << *impossible;
    space.emplace();
  }

  void follow() {
    NetworkNamespace::Inside const inside(*space);
    interfaces.emplace(
        loop,
        [this](IntfId const& intf, InterfaceState const& state) {
          if (state.present)
            present.insert(message(intf));
          else
            present.erase(message(intf));
          meanwhile();
        },
        std::make_unique<SmallNetlinkSocket>());
  }

  void addPairs(int first, int last) {
    for (int i = first; i <= last; ++i) {
      batch << "link add a" << i << " type veth peer name b" << i << '\n';
      expected.insert({message('a', i), message('b', i)});
    }
  }
  void delPair(int number) {
    batch << "link del a" << number << '\n';
    expected.erase(message('a', number));
    expected.erase(message('b', number));
  }

  void runBatch() {
    TemporaryDirectory const directory;
    std::ofstream(directory.file("batch")) << batch.str();
    batch.str("");
    ip(*space, "-batch " + directory.file("batch"));
  }

  /// Waits until what was told is what there is.
  void settle() {
    for (auto const end = loop.now() + 5s; present != expected && loop.now() < end;)
      loop.turn(loop.now() + 10ms);
  }

  std::optional<NetworkNamespace> space;
  std::ostringstream batch;
  Names expected{"lo"};
  Names present;
  std::function<void()> meanwhile = [] {};
  Horix::EventLoop loop{Kel::make<Horix::TimerWheel>(Kel::make<Horix::MonotonicClock>())};
  std::optional<KernelInterfaces> interfaces;
};

TEST_F(KernelInterfacesNetnsTest, InterfacesThatThereAreAreToldBeforeAnythingElse) {
  addPairs(1, 3);
  runBatch();
  follow();
  EXPECT_EQ(present, expected);
}

TEST_F(KernelInterfacesNetnsTest, ChangesWhileTheKernelIsAskedAgainAreNotMissed) {
  constexpr int more = 1500;  // notifications than the socket's queue takes
  addPairs(1, 60);
  batch << "link set lo up\n";  // of one that is down an alias is not told
  runBatch();
  follow();
  for (int i = 0; i < more; ++i) batch << "link set lo alias a" << i << '\n';
  delPair(30);
  addPairs(61, 62);
  runBatch();

  // Each has the kernel say that what it tells may be inconsistent.
  int told = 0;
  int interruptions = 0;
  meanwhile = [&] {
    if (++told % 10 != 0 || interruptions == 20) return;
    ++interruptions;
    ip(*space, "link add x type veth peer name y");
    ip(*space, "link del x");
  };
  settle();
  EXPECT_EQ(present, expected);
  EXPECT_GT(interruptions, 0);
  EXPECT_GT(SmallNetlinkSocket::overruns, 0);
}

}  // namespace
}  // namespace Agent
