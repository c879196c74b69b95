#include <chrono>
#include <fstream>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "agent/state/StateFile.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

Moment moment() {
  Moment moment;
  moment.boot[3] = 7;
  moment.monotonic = seconds(1000);
  moment.sinceBoot = seconds(1500);
  moment.wall = hours(500'000);
  return moment;
}

std::string contentOf(std::string const& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

TEST(StateSeal, OpensToWhatWasSealed) {
  std::string const file = seal(moment(), "entries");
  SealedState const state = unseal(file);
  EXPECT_EQ(state.written, moment());
  EXPECT_EQ(state.entries, "entries");
}

TEST(StateSeal, RefusesAFileThatIsDamagedAtAnyByte) {
  std::string const good = seal(moment(), "some entries");
  for (std::size_t at = 0; at < good.size(); ++at) {
    for (int const damage : {0x01, 0x80, 0xff}) {
      std::string file = good;
      file[at] = static_cast<char>(file[at] ^ damage);
      EXPECT_THROW(unseal(file), UnusableState) << "byte " << at;
    }
  }
}

TEST(StateSeal, RefusesAFileThatIsCutOffAnywhere) {
  std::string const good = seal(moment(), "some entries");
  for (std::size_t size = 0; size < good.size(); ++size)
    EXPECT_THROW(unseal(std::string_view(good).substr(0, size)), UnusableState) << size;
}

TEST(StateSeal, SaysThatAFileIsOfAnotherVersion) {
  std::string file = seal(moment(), "");
  file[8] = 99;
  try {
    unseal(file);
    FAIL();
  } catch (UnusableState const& error) {
    EXPECT_STREQ(error.what(), "it is of version 99, not 1");
  }
}

TEST(StateSeal, RefusesTimesThatCannotBeCountedWith) {
  Moment far = moment();
  far.wall = Horix::Time::max();
  EXPECT_THROW(unseal(seal(far, "")), UnusableState);
}

TEST(StateMoment, CountsTheTimeThatTheMachineWasSuspended) {
  Moment later = moment();
  later.monotonic += seconds(1);
  later.sinceBoot += seconds(61);
  EXPECT_EQ(later.since(moment()), seconds(61));
}

TEST(StateMoment, IsNotMovedByAClockThatIsSet) {
  Moment later = moment();
  later.sinceBoot += seconds(2);
  later.wall -= hours(24);
  EXPECT_EQ(later.since(moment()), seconds(2));
}

TEST(StateMoment, GoesByTheWallClockWhenTheMachineWasStartedAnew) {
  Moment later;
  later.boot[3] = 8;
  later.monotonic = later.sinceBoot = seconds(20);
  later.wall = moment().wall + seconds(90);
  EXPECT_EQ(later.since(moment()), seconds(90));
}

TEST(StateMoment, KnowsTheBootThatItIsOf) {
  Moment const now = Moment::now(seconds(1));
  EXPECT_NE(now.boot, Moment().boot);
  EXPECT_EQ(now.boot, Moment::now(seconds(1)).boot);
  EXPECT_EQ(now.monotonic, seconds(1));
}

TEST(StateFile, HoldsWhatWasWrittenLast) {
  TemporaryDirectory const directory;
  std::string const path = directory.file("state");
  replaceStateFile(path, "one");
  replaceStateFile(path, "other");
  EXPECT_EQ(readStateFile(path), "other");
  struct stat status {};
  ASSERT_EQ(stat(path.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777, 0600u);
}

TEST(StateFile, IsEmptyWhereNoneIs) {
  TemporaryDirectory const directory;
  EXPECT_EQ(readStateFile(directory.file("state")), std::nullopt);
}

TEST(StateFile, IsRefusedWhereItIsNoFile) {
  TemporaryDirectory const directory;
  mkdir(directory.file("directory").c_str(), 0700);
  EXPECT_THROW(readStateFile(directory.file("directory")), UnusableState);
  mkfifo(directory.file("pipe").c_str(), 0600);
  EXPECT_THROW(readStateFile(directory.file("pipe")), UnusableState);
}

TEST(StateFile, CannotBeWrittenWhereNoDirectoryIs) {
  TemporaryDirectory const directory;
  EXPECT_THROW(replaceStateFile(directory.file("none") + "/state", "text"), std::runtime_error);
}

TEST(StateFile, ReplacesNothingThroughALink) {
  TemporaryDirectory const directory;
  std::string const victim = directory.file("victim");
  replaceStateFile(victim, "mine");
  ASSERT_EQ(symlink(victim.c_str(), (directory.file("state") + ".new").c_str()), 0);
  EXPECT_THROW(replaceStateFile(directory.file("state"), "text"), std::runtime_error);
  EXPECT_EQ(contentOf(victim), "mine");
}

/// A file system of its own, of 64 kB.
class StateDisk : public testing::Test {
 protected:
  void SetUp() override {
    mkdir(disk.c_str(), 0700);
    if (mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=64k") != 0)
      GTEST_SKIP() << "mounting takes root";
    replaceStateFile(path, "what was known");
  }
  void TearDown() override { umount(disk.c_str()); }

  void expectThatNothingChanged() const {
    EXPECT_EQ(contentOf(path), "what was known");
    EXPECT_NE(access((path + ".new").c_str(), F_OK), 0);
  }

  TemporaryDirectory const directory;
  std::string const disk = directory.file("disk");
  std::string const path = disk + "/state";
};

TEST_F(StateDisk, KeepsTheFileWhenItIsFull) {
  EXPECT_THROW(replaceStateFile(path, std::string(1 << 20, 'x')), std::runtime_error);
  expectThatNothingChanged();
}

TEST_F(StateDisk, KeepsTheFileWhenItCannotBeWritten) {
  ASSERT_EQ(mount("", disk.c_str(), "", MS_REMOUNT | MS_RDONLY, ""), 0);
  EXPECT_THROW(replaceStateFile(path, "text"), std::runtime_error);
  expectThatNothingChanged();
}

}  // namespace
}  // namespace Agent
