#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "agent/Log.h"

namespace Agent {
namespace {

TEST(Log, JournalIsTheDescriptorThatTheEnvironmentNames) {
  struct stat status {};
  ASSERT_EQ(fstat(STDERR_FILENO, &status), 0);
  std::string const its = message(status.st_dev, ':', status.st_ino);
  EXPECT_TRUE(isJournal(its.c_str(), STDERR_FILENO));
  EXPECT_FALSE(isJournal(nullptr, STDERR_FILENO));
  EXPECT_FALSE(isJournal((its + "1").c_str(), STDERR_FILENO)) << "it was redirected since";
  EXPECT_FALSE(isJournal(its.c_str(), -1));
}

TEST(Log, LineSaysWhoseItIs) {
  testing::internal::CaptureStderr();
  log(Severity::warning, "interface ", 1, " is gone\nand so is ", 2);
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "igmpsnoopd: interface 1 is gone\nigmpsnoopd: and so is 2\n");
}

}  // namespace
}  // namespace Agent
