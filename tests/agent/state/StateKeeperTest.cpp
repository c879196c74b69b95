#include <chrono>
#include <fstream>
#include <sys/stat.h>
#include <thread>

#include <gtest/gtest.h>

#include "agent/state/StateFile.h"
#include "agent/state/StateKeeper.h"
#include "tests/agent/SwitchTesting.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using IgmpTest::FrameBuilder;
using IgmpTest::toEx;
using Wirex::IpAddr;

class StateKeeperTest : public testing::Test {
 protected:
  StateKeeperTest() { keeper.begin(); }

  void hear(std::uint8_t group) {
    under.hear("swp1", FrameBuilder::reportV3({toEx(IpAddr(239, 1, 1, group))}));
  }

  /// The file's own number: each replacement has another one. 0 if there is none.
  ino_t file() const {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_ino : 0;
  }

  /// Lets time pass on the switch's clock, and its writing thread come to its end.
  void pass(Horix::Time time) {
    under.advance(time);
    std::this_thread::sleep_for(30ms);
  }

  std::uint32_t groups(TestSwitch& of) const {
    return of.snooping.entities()
        .snoopingStatus->contextStatus(Bridging::VlanId(10))
        ->group()
        .size();
  }

  std::uint32_t groupsTakenUp() const {
    TestSwitch other(vlan10("swp[1-2]"));
    StateKeeper taking(path, other.snooping, other.loop.timerWheel());
    testing::internal::CaptureStderr();
    taking.resume();
    log = testing::internal::GetCapturedStderr();
    return groups(other);
  }

  TemporaryDirectory const directory;
  std::string const path = directory.file("state");
  mutable std::string log;  // of the last taking up
  TestSwitch under{vlan10("swp[1-2]")};
  StateKeeper keeper{path, under.snooping, under.loop.timerWheel()};
};

TEST_F(StateKeeperTest, KeepsWhatHasChangedWithinTwoSeconds) {
  hear(1);
  pass(2100ms);
  EXPECT_EQ(groupsTakenUp(), 1u);
  EXPECT_NE(log.find(": 1 membership, 0 routers, as of 0 s ago"), std::string::npos) << log;
}

TEST_F(StateKeeperTest, WritesNothingWhileNothingChanges) {
  hear(1);
  pass(2100ms);
  ino_t const first = file();
  ASSERT_NE(first, 0u);
  for (int i = 0; i < 20; ++i) pass(3s);
  EXPECT_EQ(file(), first);
}

TEST_F(StateKeeperTest, KeepsTimesThatAreRenewed) {
  hear(1);
  pass(2100ms);
  ino_t const first = file();
  pass(60s);
  hear(1);
  pass(30s);
  pass(3s);
  EXPECT_NE(file(), first);
}

TEST_F(StateKeeperTest, SavesAtOnceWhenAsked) {
  hear(1);
  keeper.saveNow();
  EXPECT_EQ(groupsTakenUp(), 1u);
}

TEST_F(StateKeeperTest, BeginsColdWithAWarningWhereTheFileIsDamaged) {
  hear(1);
  keeper.saveNow();
  std::fstream(path, std::ios::in | std::ios::out | std::ios::binary).seekp(-1, std::ios::end)
      << '\x55';
  EXPECT_EQ(groupsTakenUp(), 0u);
  EXPECT_NE(log.find("is not taken up: it is damaged"), std::string::npos) << log;
}

TEST_F(StateKeeperTest, BeginsColdWithAWarningWhereTheFileIsEmpty) {
  std::ofstream{path};
  EXPECT_EQ(groupsTakenUp(), 0u);
  EXPECT_NE(log.find("is not taken up: "), std::string::npos) << log;
}

TEST_F(StateKeeperTest, SaysNothingWhereThereIsNoFile) {
  EXPECT_EQ(groupsTakenUp(), 0u);
  EXPECT_EQ(log, "");
}

TEST_F(StateKeeperTest, WarnsOnceWhenItCannotWriteAndGoesOnTrying) {
  StateKeeper failing(directory.file("none") + "/state", under.snooping, under.loop.timerWheel());
  failing.begin();
  testing::internal::CaptureStderr();
  for (int i = 0; i < 4; ++i) pass(2100ms);
  std::string const warnings = testing::internal::GetCapturedStderr();
  std::size_t const first = warnings.find("cannot write ");
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(warnings.find("cannot write ", first + 1), std::string::npos);

  hear(1);
  mkdir(directory.file("none").c_str(), 0700);
  pass(2100ms);
  pass(2100ms);
  struct stat status {};
  EXPECT_EQ(stat((directory.file("none") + "/state").c_str(), &status), 0);
}

}  // namespace
}  // namespace Agent
