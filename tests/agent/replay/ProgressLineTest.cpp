#include <chrono>
#include <cstdint>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/replay/ProgressLine.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using IgmpTest::ByteVector;

constexpr char const* emptyLine = "\r\x1b[K";

/// Reads a capture of four packets of the same size.
class ProgressLineTest : public testing::Test {
 protected:
  ProgressLineTest()
      : fileName(CaptureBuilder()
                     .at(1s, ByteVector(1000))
                     .at(2s, ByteVector(1000))
                     .at(3s, ByteVector(1000))
                     .at(4s, ByteVector(1000))
                     .write(directory.file("swp1.pcap"))),
        packets({fileName}) {}

  ProgressLine::Clock clock() {
    return [this] { return std::chrono::steady_clock::time_point(now); };
  }

  TemporaryDirectory directory;
  std::string fileName;
  CaptureMerge packets;
  std::ostringstream terminal;
  std::chrono::milliseconds now{100};
};

TEST_F(ProgressLineTest, NothingIsToldOfWhatTakesNoLongerThanASecond) {
  {
    ProgressLine line(terminal, clock());
    now += 999ms;
    line.show(packets);
  }
  EXPECT_EQ(terminal.str(), "");
}

TEST_F(ProgressLineTest, TellsPacketsAndShareAndGoesInTheEnd) {
  packets.next();
  packets.next();
  packets.next();
  {
    ProgressLine line(terminal, clock());
    now += 1s;
    line.show(packets);
    EXPECT_EQ(terminal.str(), std::string(emptyLine) + "3 packets read, 50 % of the input");
    terminal.str("");
  }
  EXPECT_EQ(terminal.str(), emptyLine);
}

TEST_F(ProgressLineTest, IsDrawnFiveTimesASecond) {
  ProgressLine line(terminal, clock());
  now += 1s;
  line.show(packets);
  terminal.str("");
  now += 199ms;
  line.show(packets);
  EXPECT_EQ(terminal.str(), "");
  now += 1ms;
  line.show(packets);
  EXPECT_NE(terminal.str(), "");
}

}  // namespace
}  // namespace Agent
