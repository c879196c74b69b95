#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/LogOutput.h"
#include "agent/control/Descriptor.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

/// A pipe, or a pair of sockets, whose writing end blocks, as one that a program is started with.
class Channel {
 public:
  enum class Kind { pipe, socket };

  explicit Channel(Kind kind) {
    std::array<int, 2> ends{};
    int const made = kind == Kind::pipe
                         ? pipe2(ends.data(), O_CLOEXEC)
                         : socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data());
    if (made != 0) throw std::runtime_error("no channel");
    reader_ = Descriptor(ends[0]);
    writer_ = Descriptor(ends[1]);
    fcntl(reader_.value(), F_SETFL, O_NONBLOCK);
  }

  int writer() const { return writer_.value(); }
  bool blocks() const { return (fcntl(writer(), F_GETFL) & O_NONBLOCK) == 0; }
  void closeReader() { reader_ = Descriptor(); }

  std::string read() const {
    std::string text;
    std::array<char, 65536> bytes;
    for (ssize_t count = 0; (count = ::read(reader_.value(), bytes.data(), bytes.size())) > 0;)
      text.append(bytes.data(), static_cast<std::size_t>(count));
    return text;
  }

 private:
  Descriptor reader_;
  Descriptor writer_;
};

class LogOutputChannelTest : public testing::TestWithParam<Channel::Kind> {
 protected:
  void SetUp() override { std::signal(SIGPIPE, SIG_IGN); }

  /// Writes lines until one is lost.
  void overflow(std::string const& line = "x\n") {
    while (output.lost() == 0) output.write(line, "p: ");
  }

  Channel channel{GetParam()};
  LogOutput output{channel.writer()};
};

INSTANTIATE_TEST_SUITE_P(Kinds, LogOutputChannelTest,
                         testing::Values(Channel::Kind::pipe, Channel::Kind::socket));

TEST_P(LogOutputChannelTest, LinesComeAsTheyAre) {
  output.write("one\ntwo\n", "p: ");
  EXPECT_EQ(channel.read(), "one\ntwo\n");
  EXPECT_EQ(output.lost(), 0u);
}

TEST_P(LogOutputChannelTest, WhatIsFullIsNotWaitedFor) {
  overflow();
  EXPECT_EQ(output.lost(), 1u);
}

TEST_P(LogOutputChannelTest, OthersWhoWriteThereStillWait) {
  output.write("one\n", "p: ");
  EXPECT_TRUE(channel.blocks());
}

TEST_P(LogOutputChannelTest, LostLinesAreToldBeforeTheNextOne) {
  overflow();
  output.write("two\nthree\n", "p: ");
  channel.read();
  output.write("four\n", "p: ");
  EXPECT_THAT(channel.read(),
              EndsWith("p: 3 lines of the log lost, which could not be written at once\nfour\n"));
  EXPECT_EQ(output.lost(), 3u);
  output.write("five\n", "p: ");
  EXPECT_EQ(channel.read(), "five\n");
}

TEST_P(LogOutputChannelTest, LineThatHasBegunIsWrittenToItsEnd) {
  overflow(std::string(999, 'x') + '\n');
  std::string text = channel.read();
  output.write("end\n", "p: ");
  text += channel.read();
  std::istringstream lines(text);
  int whole = 0;
  for (std::string line; std::getline(lines, line) && line.starts_with('x'); ++whole)
    ASSERT_EQ(line.size(), 999u);
  EXPECT_GT(whole, 10);
  EXPECT_THAT(text, EndsWith("\nend\n"));
}

TEST_P(LogOutputChannelTest, ReaderThatWentAwayHarmsNothing) {
  channel.closeReader();
  output.write("one\n", "p: ");
  output.write("two\n", "p: ");
  EXPECT_EQ(output.lost(), 2u);
}

TEST(LogOutput, GoesOnWhenADiskIsFullNoMore) {
  TemporaryDirectory const directory;
  std::string const name = directory.file("log");
  Descriptor const file(open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  LogOutput output(file.value());
  output.write("one\n", "p: ");

  std::signal(SIGXFSZ, SIG_IGN);
  rlimit former{};
  getrlimit(RLIMIT_FSIZE, &former);
  rlimit full = former;
  full.rlim_cur = 4;
  setrlimit(RLIMIT_FSIZE, &full);
  output.write("two\n", "p: ");
  setrlimit(RLIMIT_FSIZE, &former);
  std::signal(SIGXFSZ, SIG_DFL);
  output.write("three\n", "p: ");

  std::stringstream content;
  content << std::ifstream(name).rdbuf();
  EXPECT_EQ(content.str(),
            "one\np: 1 line of the log lost, which could not be written at once\nthree\n");
}

TEST(LogOutput, FileThatIsWrittenToAlreadyIsContinued) {
  TemporaryDirectory const directory;
  std::string const name = directory.file("log");
  Descriptor const file(open(name.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
  ASSERT_EQ(write(file.value(), "zero\n", 5), 5);
  LogOutput output(file.value());
  output.write("one\n", "p: ");
  std::stringstream content;
  content << std::ifstream(name).rdbuf();
  EXPECT_EQ(content.str(), "zero\none\n");
}

TEST(LogOutput, FollowsWhereItsDescriptorIsConnectedToSince) {
  Channel const first(Channel::Kind::pipe);
  Channel const second(Channel::Kind::pipe);
  LogOutput output(first.writer());
  output.write("one\n", "p: ");
  ASSERT_GE(dup2(second.writer(), first.writer()), 0);
  output.write("two\n", "p: ");
  EXPECT_EQ(first.read(), "one\n");
  EXPECT_EQ(second.read(), "two\n");
}

TEST(LogOutput, WithoutAnyDescriptorLinesAreLost) {
  LogOutput output(-1);
  output.write("one\n", "p: ");
  EXPECT_EQ(output.lost(), 1u);
}

}  // namespace
}  // namespace Agent
