#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/control/UnixSocket.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using testing::HasSubstr;

class UnixSocketTest : public testing::Test {
 protected:
  static std::string problem(std::string const& where) {
    try {
      UnixSocket const socket(where);
      return "";
    } catch (std::runtime_error const& error) {
      return error.what();
    }
  }

  bool exists() const { return access(path.c_str(), F_OK) == 0; }

  TemporaryDirectory directory;
  std::string const path = directory.file("control");
};

TEST_F(UnixSocketTest, IsForOwnerAndGroupOnlyAndGoesAtTheEnd) {
  {
    UnixSocket const socket(path);
    struct stat status {};
    ASSERT_EQ(stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777u, 0660u);
  }
  EXPECT_FALSE(exists());
}

TEST_F(UnixSocketTest, ReplacesOneThatNobodyListensOn) {
  std::string const kept = directory.file("kept");
  {
    UnixSocket const dead(path);
    ASSERT_EQ(link(path.c_str(), kept.c_str()), 0);
  }
  ASSERT_EQ(rename(kept.c_str(), path.c_str()), 0);
  EXPECT_EQ(problem(path), "");
}

TEST_F(UnixSocketTest, SaysWhatToDoWhereTheSystemGivesNone) {
  // The sanitizers need a descriptor to look at an object of a class that they have not met yet.
  ASSERT_NE(problem(directory.file("no/where/control")), "");
  rlimit before{};
  getrlimit(RLIMIT_NOFILE, &before);
  rlimit const none{0, before.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  std::string const told = problem(path);
  setrlimit(RLIMIT_NOFILE, &before);
  EXPECT_THAT(told, HasSubstr("Too many open files; see the limits"));
}

TEST_F(UnixSocketTest, LeavesALivingOneAlone) {
  UnixSocket const living(path);
  EXPECT_THAT(problem(path), HasSubstr("another igmpsnoopd listens there"));
  EXPECT_TRUE(exists());
}

TEST_F(UnixSocketTest, LeavesOtherFilesAlone) {
  std::ofstream(path) << "precious";
  EXPECT_THAT(problem(path), HasSubstr("no socket is there"));
  EXPECT_TRUE(exists());
}

TEST_F(UnixSocketTest, RemovesOnlyItsOwn) {
  auto first = std::make_unique<UnixSocket>(path);
  unlink(path.c_str());
  UnixSocket const second(path);
  first.reset();
  EXPECT_TRUE(exists());
}

TEST_F(UnixSocketTest, MakesItsDirectoryButNotMore) {
  EXPECT_EQ(problem(directory.file("run/control")), "");
  EXPECT_THAT(problem(directory.file("a/b/control")), HasSubstr("cannot listen on"));
}

TEST_F(UnixSocketTest, PathThatNoAddressHoldsIsRefused) {
  EXPECT_THAT(problem(directory.file(std::string(108, 'x'))), HasSubstr("bytes"));
  EXPECT_THAT(problem(""), HasSubstr("0 bytes"));
}

}  // namespace
}  // namespace Agent
