#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/replay/CaptureError.h"
#include "agent/replay/LookAhead.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using IgmpTest::ByteVector;
using testing::ElementsAre;

class LookAheadTest : public testing::Test {
 protected:
  /// Each packet by its only byte, "read" as it is looked at and "given".
  std::vector<std::string> orderOf(CaptureBuilder const& capture) const {
    std::vector<std::string> order;
    CaptureMerge merge({capture.write(directory_.file("capture"))});
    LookAhead ahead(merge, [&](MergedPacket const& packet) {
      order.push_back("read " + std::to_string(packet.frame.front()));
    });
    while (auto const packet = ahead.next())
      order.push_back("given " + std::to_string(packet->frame.front()));
    return order;
  }

  TemporaryDirectory directory_;
};

TEST_F(LookAheadTest, ReadsTenMillisecondsAhead) {
  EXPECT_THAT(orderOf(CaptureBuilder()
                          .at(1s, ByteVector{1})
                          .at(1s + 10ms, ByteVector{2})
                          .at(1s + 11ms, ByteVector{3})
                          .at(1s + 12ms, ByteVector{4})
                          .at(2s, ByteVector{5})),
              ElementsAre("read 1", "read 2", "read 3", "given 1", "read 4", "read 5", "given 2",
                          "given 3", "given 4", "given 5"));
}

TEST_F(LookAheadTest, HoldsAThousandPacketsAtMost) {
  CaptureBuilder capture;
  for (int i = 0; i < 1001; ++i) capture.at(1s, ByteVector{0});
  capture.at(1s, ByteVector{1});
  auto const order = orderOf(capture);
  EXPECT_EQ(order[999], "read 0");
  EXPECT_EQ(order[1000], "given 0");
  EXPECT_EQ(order.size(), 2u * 1002u);
}

TEST_F(LookAheadTest, GivesAllBeforeADamageFirst) {
  std::string const file = directory_.file("damaged");
  CaptureBuilder().at(1s, ByteVector{1}).at(1s, ByteVector{2}).at(1s, ByteVector{3}).write(file);
  std::filesystem::resize_file(file, std::filesystem::file_size(file) - 1);
  CaptureMerge merge({file});
  LookAhead ahead(merge, [](MergedPacket const&) {});
  EXPECT_EQ(ahead.next()->frame.front(), 1);
  EXPECT_EQ(ahead.next()->frame.front(), 2);
  EXPECT_THROW(ahead.next(), CaptureError);
}

}  // namespace
}  // namespace Agent
