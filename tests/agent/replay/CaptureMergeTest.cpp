#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/replay/CaptureMerge.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using IgmpTest::ByteVector;
using testing::ElementsAre;

class CaptureMergeTest : public testing::Test {
 protected:
  /// A packet, told apart by its only byte.
  struct Heard {
    Horix::Time time;
    std::size_t capture;
    unsigned byte;

    friend bool operator==(Heard const&, Heard const&) = default;
    friend std::ostream& operator<<(std::ostream& out, Heard const& heard) {
      return out << heard.byte << " of capture " << heard.capture << " at " << heard.time.count();
    }
  };

  void add(CaptureBuilder const& capture) {
    files_.push_back(capture.write(directory_.file(std::to_string(files_.size()))));
  }

  std::vector<Heard> merged() const {
    std::vector<Heard> all;
    CaptureMerge merge(files_);
    while (auto const packet = merge.next())
      all.push_back({packet->time, packet->capture, packet->frame.front()});
    return all;
  }

 private:
  TemporaryDirectory directory_;
  std::vector<std::string> files_;
};

TEST_F(CaptureMergeTest, OrdersByTimeSinceTheFirstPacketOfAll) {
  add(CaptureBuilder().at(102s, ByteVector{1}).at(104s, ByteVector{2}).at(105s, ByteVector{3}));
  add(CaptureBuilder());
  add(CaptureBuilder().at(101s, ByteVector{4}).at(104s + 1ns, ByteVector{5}));
  EXPECT_THAT(merged(), ElementsAre(Heard{0s, 2, 4}, Heard{1s, 0, 1}, Heard{3s, 0, 2},
                                    Heard{3s + 1ns, 2, 5}, Heard{4s, 0, 3}));
}

TEST_F(CaptureMergeTest, PacketsOfOneTimeComeInTheOrderOfTheCaptures) {
  add(CaptureBuilder().at(1s, ByteVector{1}).at(1s, ByteVector{2}));
  add(CaptureBuilder().at(1s, ByteVector{3}));
  add(CaptureBuilder().at(1s, ByteVector{4}));
  EXPECT_THAT(merged(),
              ElementsAre(Heard{0s, 0, 1}, Heard{0s, 0, 2}, Heard{0s, 1, 3}, Heard{0s, 2, 4}));
}

TEST_F(CaptureMergeTest, NeverGoesBackInTime) {
  add(CaptureBuilder().at(10s, ByteVector{1}).at(5s, ByteVector{2}).at(12s, ByteVector{3}));
  add(CaptureBuilder().at(9s, ByteVector{4}).at(11s, ByteVector{5}));
  EXPECT_THAT(merged(), ElementsAre(Heard{0s, 1, 4}, Heard{1s, 0, 1}, Heard{1s, 0, 2},
                                    Heard{2s, 1, 5}, Heard{3s, 0, 3}));
}

TEST_F(CaptureMergeTest, CapturesWithoutPacketsGiveNone) {
  add(CaptureBuilder());
  add(CaptureBuilder());
  EXPECT_TRUE(merged().empty());
}

}  // namespace
}  // namespace Agent
