#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

#include <gtest/gtest.h>

#include "agent/control/UnixSocket.h"
#include "agent/live/Handover.h"
#include "agent/live/TrialRun.h"
#include "agent/text/Wording.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using Interface::PacketSocket;

constexpr char const* variable = "IGMPSNOOPD_HANDOVER";

void leave(std::string const& text) {
  int const file = memfd_create("test", 0);
  ASSERT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  setenv(variable, std::to_string(file).c_str(), 1);
}

bool goesToOtherPrograms(int descriptor) {
  return (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) == 0;
}

TEST(Handover, IsNotThereWhereNoProgramWasBefore) {
  unsetenv(variable);
  EXPECT_FALSE(Handover::received());
}

TEST(Handover, IsReceivedOnce) {
  int const passed = dup(0);
  int const device = dup(0);
  leave(message(passed, " \n", device, " 7 20 1 9999 8 21 1 \nstate\nof two lines"));
  auto const handover = Handover::received();
  ASSERT_TRUE(handover);
  EXPECT_EQ(handover->state, "state\nof two lines");
  EXPECT_EQ(handover->listening, std::vector<int>{passed});
  EXPECT_EQ(handover->devices, (std::vector<PacketSocket::PassedOn>{{device, 7, 20, 1}}));
  EXPECT_FALSE(goesToOtherPrograms(passed));
  EXPECT_FALSE(goesToOtherPrograms(device));
  EXPECT_FALSE(Handover::received());
  close(device);
  close(passed);
}

TEST(Handover, LeavesOutDescriptorsThatAreNone) {
  leave("9999 -1 \n\n");
  EXPECT_TRUE(Handover::received()->listening.empty());
}

TEST(Handover, IsRefusedWhereItIsNone) {
  for (char const* const text : {"", "no end of the first line", "nor\nof the second"}) {
    leave(text);
    EXPECT_FALSE(Handover::received());
  }
  setenv(variable, "9999", 1);
  EXPECT_FALSE(Handover::received());
}

TEST(Handover, LeavesAllAsItWasWhereTheProgramCannotBeStarted) {
  int const passed = fcntl(0, F_DUPFD_CLOEXEC, 0);
  int const device = fcntl(0, F_DUPFD_CLOEXEC, 0);
  Handover const handover{"state", {passed}, {{device, 7, 20, 1}}};
  EXPECT_THROW(handover.passOnTo("/nonexistent", {"igmpsnoopd"}), std::system_error);
  EXPECT_FALSE(goesToOtherPrograms(passed));
  EXPECT_FALSE(goesToOtherPrograms(device));
  EXPECT_EQ(std::getenv(variable), nullptr);
  close(device);
  close(passed);
}

TEST(Handover, GoesToTheProgramThatTakesThePlace) {
  TemporaryDirectory const directory;
  std::string const seen = directory.file("seen");
  int const device = dup(0);
  pid_t const process = fork();
  if (process == 0) {
    Handover const handover{"what is known", {}, {{device, 7, 20, 1}}};
    try {
      handover.passOnTo("/bin/sh", {"sh", "-c", "cat /proc/self/fd/$IGMPSNOOPD_HANDOVER >" + seen});
    } catch (std::system_error const&) {
      _exit(1);
    }
  }
  waitpid(process, nullptr, 0);
  std::ifstream file(seen);
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}),
            message("\n", device, " 7 20 1 \nwhat is known"));
  close(device);
}

TEST(InheritedSocket, IsTakenOverByWhoListensAtItsPath) {
  TemporaryDirectory const directory;
  std::string const path = directory.file("socket");
  auto former = std::make_unique<UnixSocket>(path);
  int const descriptor = fcntl(former->descriptor(), F_DUPFD_CLOEXEC, 0);
  std::vector<Descriptor> sockets;
  sockets.emplace_back(descriptor);
  UnixSocket::inheritedAre(std::move(sockets));
  {
    UnixSocket const heir(path);
    EXPECT_EQ(heir.descriptor(), descriptor);
    EXPECT_EQ(heir.path(), path);
  }
  EXPECT_NE(access(path.c_str(), F_OK), 0);  // it was the heir's to remove
  UnixSocket::inheritedAre({});
}

TEST(InheritedSocket, IsLeftAloneByWhoListensElsewhere) {
  TemporaryDirectory const directory;
  UnixSocket const former(directory.file("socket"));
  std::vector<Descriptor> sockets;
  sockets.emplace_back(fcntl(former.descriptor(), F_DUPFD_CLOEXEC, 0));
  int const descriptor = sockets.front().value();
  UnixSocket::inheritedAre(std::move(sockets));
  UnixSocket const other(directory.file("other"));
  EXPECT_NE(other.descriptor(), descriptor);
  UnixSocket::inheritedAre({});
  EXPECT_EQ(fcntl(descriptor, F_GETFD), -1);
}

class TrialRunTest : public testing::Test {
 protected:
  std::optional<bool> outcomeOf(std::vector<std::string> const& arguments) {
    std::optional<bool> outcome;
    TrialRun const run(loop, "/bin/sh", arguments, [&](bool succeeded) { outcome = succeeded; });
    Horix::Time const end = loop.now() + std::chrono::seconds(5);
    while (!outcome && loop.now() < end) loop.turn(end);
    return outcome;
  }

  Horix::EventLoop loop{Kel::make<Horix::TimerWheel>(Kel::make<Horix::MonotonicClock>())};
};

TEST_F(TrialRunTest, TellsWhetherTheProgramEndsWell) {
  EXPECT_EQ(outcomeOf({"sh", "-c", "exit 0"}), true);
  EXPECT_EQ(outcomeOf({"sh", "-c", "exit 1"}), false);
  EXPECT_EQ(outcomeOf({"sh", "-c", "kill -9 $$"}), false);
}

TEST_F(TrialRunTest, ThrowsWhereThereIsNoProgram) {
  EXPECT_THROW(TrialRun(loop, "/nonexistent", {"none"}, [](bool) {}), std::system_error);
}

TEST_F(TrialRunTest, EndsTheProgramWithItself) {
  {
    TrialRun const run(loop, "/bin/sh", {"sh", "-c", "sleep 100"}, [](bool) {});
  }
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);  // there is no child left
}

}  // namespace
}  // namespace Agent
