#include <chrono>
#include <fstream>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

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

  /// Until what was known at the start is written.
  void rest() {
    for (int i = 0; i < 10; ++i) pass(2100ms);
  }

  /// Whether the file comes to have so many groups while the switch's clock stands still.
  bool comesToHave(std::uint32_t count) const {
    for (int i = 0; i < 500 && groupsTakenUp() != count; ++i) std::this_thread::sleep_for(10ms);
    return groupsTakenUp() == count;
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
  under.advance(2100ms);
  EXPECT_TRUE(comesToHave(1));
  EXPECT_NE(log.find(": 1 membership, 0 routers, as of 0 s ago"), std::string::npos) << log;
}

TEST_F(StateKeeperTest, KeepsAtOnceWhatChangesAfterAQuietTime) {
  rest();
  hear(1);
  under.advance(100ms);
  EXPECT_TRUE(comesToHave(1));
}

TEST_F(StateKeeperTest, HoldsBackWhatChangesSoonAfter) {
  rest();
  hear(1);
  under.advance(100ms);
  ASSERT_TRUE(comesToHave(1));
  ino_t const first = file();
  for (std::uint8_t i = 2; i < 10; ++i) {
    hear(i);
    pass(200ms);
  }
  EXPECT_EQ(file(), first);
  for (int i = 0; i < 10 && groupsTakenUp() != 9; ++i) pass(500ms);
  EXPECT_EQ(groupsTakenUp(), 9u);
}

TEST_F(StateKeeperTest, SavesWhileTheLoopGoesOn) {
  bool saved = false;
  hear(1);
  keeper.save([&] { saved = true; });
  EXPECT_FALSE(saved);
  for (int i = 0; i < 100 && !saved; ++i) pass(10ms);
  EXPECT_TRUE(saved);
  EXPECT_EQ(groupsTakenUp(), 1u);
}

TEST_F(StateKeeperTest, SavesWhatIsNewerThanWhatIsBeingWritten) {
  pass(10s);
  hear(1);
  under.advance(60ms);  // it is being written
  hear(2);
  bool saved = false;
  keeper.save([&] { saved = true; });
  for (int i = 0; i < 100 && !saved; ++i) pass(10ms);
  EXPECT_TRUE(saved);
  EXPECT_EQ(groupsTakenUp(), 2u);
}

TEST_F(StateKeeperTest, EndsToSaveWhereNothingCanBeWritten) {
  StateKeeper failing(directory.file("none") + "/state", under.snooping, under.loop.timerWheel());
  failing.begin();
  bool saved = false;
  testing::internal::CaptureStderr();
  failing.save([&] { saved = true; });
  for (int i = 0; i < 100 && !saved; ++i) pass(30ms);
  testing::internal::GetCapturedStderr();
  EXPECT_TRUE(saved);
}

TEST_F(StateKeeperTest, WritesNothingWhileNothingChanges) {
  hear(1);
  under.advance(2100ms);
  ASSERT_TRUE(comesToHave(1));
  ino_t const first = file();
  for (int i = 0; i < 20; ++i) pass(3s);
  EXPECT_EQ(file(), first);
}

TEST_F(StateKeeperTest, KeepsTimesThatAreRenewed) {
  hear(1);
  under.advance(2100ms);
  ASSERT_TRUE(comesToHave(1));
  ino_t const first = file();
  pass(60s);
  hear(1);
  pass(30s);
  for (int i = 0; i < 200 && file() == first; ++i) pass(1s);
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
  std::string warnings;
  auto const goOn = [&] {
    testing::internal::CaptureStderr();
    pass(2100ms);
    warnings += testing::internal::GetCapturedStderr();
  };
  for (int i = 0; i < 200 && warnings.empty(); ++i) goOn();
  for (int i = 0; i < 4; ++i) goOn();
  std::size_t const first = warnings.find("cannot write ");
  ASSERT_NE(first, std::string::npos);
  EXPECT_EQ(warnings.find("cannot write ", first + 1), std::string::npos);

  hear(1);
  mkdir(directory.file("none").c_str(), 0700);
  auto const isThere = [&] {
    return access((directory.file("none") + "/state").c_str(), F_OK) == 0;
  };
  for (int i = 0; i < 200 && !isThere(); ++i) pass(2100ms);
  EXPECT_TRUE(isThere());
}

}  // namespace
}  // namespace Agent
