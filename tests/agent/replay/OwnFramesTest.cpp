#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/replay/OwnFrames.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/config/ConfigurationTesting.h"
#include "tests/platform/igmp/FrameBuilder.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::ElementsAre;
using testing::IsEmpty;

class OwnFramesTest : public testing::Test {
 protected:
  bool recognise(Wirex::IntfId const& port, Horix::Time time, FrameBuilder const& frame,
                 bool outgoing = false) {
    return frames.recognise(port, time, frame.bytes(), outgoing);
  }

  Wirex::IntfId const swp1{"swp1"};
  Wirex::IntfId const swp2{"swp2"};
  FrameBuilder const join = FrameBuilder::reportV3({toEx(group)}).from(tv);
  OwnFrames frames{configurationIn(R"(
    [[interface]]
    name = "swp[1-2]"
    [[vlan]]
    id = 10
    sender-source-address = "10.0.0.9"
    interfaces = ["swp1"]
    tagged-interfaces = ["swp2"]
    [[vlan]]
    id = 20
    tagged-interfaces = ["swp2"]
  )")};
};

TEST_F(OwnFramesTest, WhatTheCaptureMarksAsOutgoing) {
  EXPECT_TRUE(recognise(swp1, 0s, join, true));
  EXPECT_FALSE(recognise(swp1, 0s, join));
  EXPECT_THAT(remarksOn(frames),
              ElementsAre("swp1: 1 frame left out that the switch itself had sent (1 marked as "
                          "outgoing); capture what is heard alone: tcpdump -Q in"));
}

TEST_F(OwnFramesTest, WhatWasHeardOnAnotherPortJustBefore) {
  EXPECT_FALSE(recognise(swp1, 0s, join));
  EXPECT_TRUE(recognise(swp2, 1ms, join)) << "forwarded";
  EXPECT_FALSE(recognise(swp1, 2ms, join)) << "said again";
  EXPECT_FALSE(recognise(swp2, 1s, join)) << "the listener has moved";
  EXPECT_EQ(frames.counts().at(swp2).forwarded, 1u);
}

TEST_F(OwnFramesTest, ForwardedFrameMayHaveAnotherTagAndNoPadding) {
  ByteVector padded = join.bytes();
  padded.resize(padded.size() + 6);
  EXPECT_FALSE(frames.recognise(swp1, 0s, padded, false));
  FrameBuilder tagged = join;
  EXPECT_TRUE(recognise(swp2, 0s, tagged.vlan(10)));
}

TEST_F(OwnFramesTest, WhatAnotherListenerSaysAlikeWasHeard) {
  EXPECT_FALSE(recognise(swp1, 0s, join));
  EXPECT_FALSE(recognise(swp2, 0s, FrameBuilder::reportV3({toEx(group)}).from(desk)));
  EXPECT_THAT(remarksOn(frames), IsEmpty());
}

TEST_F(OwnFramesTest, WhatComesFromTheSwitchsAddressInTheVlan) {
  IpAddr const own(10, 0, 0, 9);
  auto const report = [&] { return FrameBuilder::reportV3({toEx(group)}).from(own); };
  EXPECT_TRUE(recognise(swp1, 0s, report()));
  EXPECT_TRUE(recognise(swp2, 0s, report().vlan(10)));
  EXPECT_FALSE(recognise(swp2, 1s, report().vlan(20))) << "the address is another's there";
}

TEST_F(OwnFramesTest, WhatRepeatsThePortsHostIsRemarkedOn) {
  frames.sent(swp1, 0s, FrameBuilder::reportV3({toEx(group)}).from(IpAddr()).bytes());
  EXPECT_FALSE(recognise(swp1, 2s, join)) << "too late";
  EXPECT_FALSE(recognise(swp2, 3s, join)) << "another port's";
  EXPECT_THAT(remarksOn(frames), IsEmpty());
  frames.sent(swp1, 4s, FrameBuilder::reportV3({toEx(group)}).from(IpAddr()).bytes());
  EXPECT_FALSE(recognise(swp1, 4s + 1ms, join));
  EXPECT_THAT(remarksOn(frames),
              ElementsAre(testing::StartsWith("swp1: 1 message said what the port's own host had "
                                              "just said, the last one from 10.0.0.")));
}

TEST_F(OwnFramesTest, NobodyIsToldToNameTheAddressThatIsNone) {
  auto const report = FrameBuilder::reportV3({toEx(group)}).from(IpAddr());
  frames.sent(swp1, 0s, report.bytes());
  EXPECT_FALSE(recognise(swp1, 1ms, report));
  EXPECT_THAT(remarksOn(frames),
              ElementsAre(testing::EndsWith("the last one from 0.0.0.0; if that is the switch, "
                                            "capture with tcpdump -Q in")));
}

TEST_F(OwnFramesTest, WhatIsNoIgmpIsNotCounted) {
  ByteVector const other(60);
  EXPECT_TRUE(frames.recognise(swp1, 0s, other, true));
  EXPECT_FALSE(frames.recognise(swp2, 0s, other, false));
  EXPECT_THAT(remarksOn(frames), IsEmpty());
}

}  // namespace
}  // namespace Agent
