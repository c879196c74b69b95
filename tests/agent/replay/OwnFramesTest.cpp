#include <algorithm>

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

  /// From 02:00:00:00:00:09.
  bool recogniseOfOwnMac(Wirex::IntfId const& port, Horix::Time time, FrameBuilder const& frame) {
    constexpr Wirex::MacAddress own{2, 0, 0, 0, 0, 9};
    ByteVector bytes = frame.bytes();
    std::ranges::copy(own, bytes.begin() + Wirex::macAddressSize);
    return frames.recognise(port, time, bytes, false);
  }

  /// What a port sends that has a MAC address of its own.
  static ByteVector sentBy(Wirex::IntfId const& port, FrameBuilder const& frame) {
    ByteVector bytes = frame.bytes();
    constexpr std::size_t lastOfSource = 11;
    bytes[lastOfSource] = static_cast<std::uint8_t>(port.stringValue().view().back());
    return bytes;
  }

  /// Whether the first is one that the switch had sent, seen beside what another port shows.
  bool recogniseBeside(ByteVector const& onSwp1, Horix::Time later, ByteVector const& onSwp2) {
    frames.foresee(swp1, 0s, onSwp1, false);
    frames.foresee(swp2, later, onSwp2, false);
    return frames.recognise(swp1, 0s, onSwp1, false);
  }

  static constexpr IpAddr router{10, 0, 0, 254};
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

TEST_F(OwnFramesTest, WhatComesFromANamedAddress) {
  frames.ownAddressIs(stationAddress("02:00:00:00:00:09").value());
  frames.ownAddressIs(stationAddress("10.0.0.7").value());
  EXPECT_FALSE(recognise(swp1, 0s, join));
  EXPECT_TRUE(recogniseOfOwnMac(swp1, 0s, join));
  EXPECT_TRUE(recognise(swp2, 0s, FrameBuilder::reportV3({toEx(group)}).from({10, 0, 0, 7})));
}

TEST_F(OwnFramesTest, AddressesAreWrittenAsUsual) {
  for (char const* const text : {"", "1.2.3", "02:00:00:00:00", "02:00:00:00:00:0g",
                                 "02-00-00-00-00-01", "02:00:00:00:00:001"})
    EXPECT_EQ(stationAddress(text), std::nullopt) << text;
  EXPECT_EQ(stationAddress("02:00:0a:Ff:00:01"),
            StationAddress(Wirex::MacAddress{2, 0, 0x0a, 0xff, 0, 1}));
}

TEST_F(OwnFramesTest, WhatRepeatsThePortsHostIsRemarkedOn) {
  frames.sent(swp1, 0s, FrameBuilder::reportV3({toEx(group)}).from(IpAddr()).bytes());
  EXPECT_FALSE(recognise(swp1, 2s, join)) << "too late";
  EXPECT_FALSE(recognise(swp2, 3s, join)) << "another port's";
  EXPECT_THAT(remarksOn(frames), IsEmpty());
  frames.sent(swp1, 4s, FrameBuilder::reportV3({toEx(group)}).from(IpAddr()).bytes());
  EXPECT_FALSE(recogniseOfOwnMac(swp1, 4s + 1ms, join));
  EXPECT_THAT(remarksOn(frames),
              ElementsAre("swp1: 1 message of 02:00:00:00:00:09 said what the port's own host had "
                          "just said, and was heard; if that is the switch, leave it out with "
                          "--own 02:00:00:00:00:09, or capture with tcpdump -Q in"));
}

/// A host on the first port that joins and leaves, and somebody who does as it does.
class InStepTest : public OwnFramesTest {
 protected:
  bool hostAndAnotherSay(Horix::Time time, Horix::Time later, Record const& record) {
    frames.sent(swp1, time, FrameBuilder::reportV3({record}).from(IpAddr()).bytes());
    return anotherSays(time + later, record);
  }
  bool anotherSays(Horix::Time time, Record const& record) {
    return recogniseOfOwnMac(swp1, time, FrameBuilder::reportV3({record}).from(desk));
  }
};

TEST_F(InStepTest, WhoSaysThriceWhatTheHostHasJustSaidIsTheHost) {
  EXPECT_FALSE(hostAndAnotherSay(0s, 1ms, toEx(group)));
  EXPECT_FALSE(hostAndAnotherSay(5s, 1ms, toIn(group)));
  EXPECT_TRUE(hostAndAnotherSay(10s, 1ms, toEx(group)));
  EXPECT_TRUE(anotherSays(20s, isEx(group))) << "whatever it says from now on";
  EXPECT_THAT(remarksOn(frames),
              ElementsAre("swp1: 2 frames left out that the switch itself had sent (2 from "
                          "02:00:00:00:00:09, who says what the port's own host says); capture "
                          "what is heard alone: tcpdump -Q in",
                          testing::StartsWith("swp1: 2 messages of 02:00:00:00:00:09 said")));
}

TEST_F(InStepTest, WhoIsKnownFromAnotherReplayIsTheHostFromTheStart) {
  for (Horix::Time time = 0s; time < 30s; time += 10s) hostAndAnotherSay(time, 1ms, toEx(group));
  auto const known = frames.stations().known();
  frames.stations().knownAre({});
  EXPECT_FALSE(anotherSays(40s, toIn(group)));
  frames.stations().knownAre(known);
  EXPECT_TRUE(anotherSays(41s, toIn(group)));
}

TEST_F(InStepTest, HostsPutTogetherDifferentlyWhatTheySay) {
  for (Horix::Time time = 0s; time < 30s; time += 10s) {
    frames.sent(swp1, time, FrameBuilder::reportV3({toEx(group), toIn(otherGroup)}).bytes());
    EXPECT_FALSE(anotherSays(time + 500ms, toIn(otherGroup)));
    EXPECT_EQ(hostAndAnotherSay(time + 5s, 1ms, toEx(group)), time == 20s);
  }
}

TEST_F(InStepTest, ReportCutShortIsNotWhatTheHostSaid) {
  ByteVector const whole =
      FrameBuilder::reportV3({toEx(group, {IpAddr(192, 0, 2, 1)})}).from(desk).bytes();
  for (std::size_t size = whole.size(); --size > 0;) {
    ByteVector const frame(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
    frames.sent(swp1, 0s, whole);
    EXPECT_FALSE(frames.recognise(swp1, 1ms, frame, false)) << size;
  }
}

TEST_F(InStepTest, OneSayingOfTheHostTellsOnce) {
  EXPECT_FALSE(hostAndAnotherSay(0s, 1ms, toEx(group)));
  for (Horix::Time time = 2ms; time < 6ms; time += 1ms)
    EXPECT_FALSE(anotherSays(time, toEx(group)));
}

TEST_F(InStepTest, WhoIsSlowerIsAListener) {
  for (Horix::Time time = 0s; time < 50s; time += 10s)
    EXPECT_FALSE(hostAndAnotherSay(time, 11ms, toEx(group)));
}

TEST_F(InStepTest, WhoChangesWhatTheHostDoesNotIsAListener) {
  for (Horix::Time time = 0s; time < 50s; time += 10s) {
    EXPECT_FALSE(hostAndAnotherSay(time, 1ms, toEx(group)));
    EXPECT_FALSE(anotherSays(time + 5s, toIn(group)));
  }
}

TEST_F(InStepTest, WhoAnswersAtAnotherTimeMayBeTheHost) {
  EXPECT_FALSE(hostAndAnotherSay(0s, 1ms, toEx(group)));
  EXPECT_FALSE(anotherSays(5s, isEx(group)));
  EXPECT_FALSE(hostAndAnotherSay(10s, 1ms, toIn(group)));
  EXPECT_TRUE(hostAndAnotherSay(20s, 1ms, toEx(group)));
}

TEST_F(InStepTest, StationsOfOtherPortsAreOthers) {
  for (Horix::Time time = 0s; time < 30s; time += 10s) hostAndAnotherSay(time, 1ms, toEx(group));
  EXPECT_FALSE(recogniseOfOwnMac(swp2, 40s, join));
}

TEST_F(OwnFramesTest, QueryThatSeveralPortsSendAtOnceIsTheSwitchs) {
  auto query = FrameBuilder::queryV2(IpAddr(), 100).from(router);
  EXPECT_TRUE(recogniseBeside(sentBy(swp1, query), 1ms, sentBy(swp2, query.vlan(10))));
  EXPECT_TRUE(recognise(swp1, 2s, FrameBuilder::reportV3({toEx(group)}).from(router)))
      << "its reports come from there as well";
  EXPECT_FALSE(recognise(swp1, 2s, join));
}

TEST_F(OwnFramesTest, QueryOfARouterThatIsForwardedKeepsTheRoutersMacAddress) {
  auto query = FrameBuilder::queryV2(IpAddr(), 100).from(router);
  EXPECT_FALSE(recogniseBeside(sentBy(swp1, query), 1ms, sentBy(swp1, query.vlan(10))));
}

TEST_F(OwnFramesTest, RoutersOfOneAddressThatAskAtOtherTimesOrInOtherWordsAreNotTheSwitch) {
  auto const query = [](unsigned maxResponseTime) {
    return FrameBuilder::queryV2(IpAddr(), maxResponseTime).from(router);
  };
  EXPECT_FALSE(recogniseBeside(sentBy(swp1, query(100)), 11ms, sentBy(swp2, query(100).vlan(10))));
  EXPECT_FALSE(recogniseBeside(sentBy(swp1, query(50)), 1ms, sentBy(swp2, query(60).vlan(10))));
}

TEST_F(OwnFramesTest, QueriesFromNoAddressTellOfNobody) {
  auto query = FrameBuilder::queryV2(IpAddr(), 100).from(IpAddr());
  EXPECT_FALSE(recogniseBeside(sentBy(swp1, query), 1ms, sentBy(swp2, query.vlan(10))));
}

TEST_F(OwnFramesTest, WhoRepeatsTheHostsOfTwoPortsIsTheSwitch) {
  FrameBuilder const report = FrameBuilder::reportV3({toEx(group)});
  frames.sent(swp1, 0s, FrameBuilder(report).from(IpAddr()).bytes());
  frames.sent(swp2, 0s, FrameBuilder(report).from(IpAddr()).vlan(10).bytes());
  EXPECT_FALSE(frames.recognise(swp1, 1ms, sentBy(swp1, join), false));
  EXPECT_FALSE(frames.recognise(swp2, 1ms, sentBy(swp2, FrameBuilder(join).vlan(10)), false))
      << "known from now on";
  EXPECT_TRUE(recognise(swp1, 5s, FrameBuilder::reportV3({toEx(otherGroup)}).from(tv)));
}

TEST_F(OwnFramesTest, WhoRepeatsTheHostOfOnePortIsAListenerThere) {
  frames.sent(swp1, 0s, FrameBuilder::reportV3({toEx(group)}).from(IpAddr()).bytes());
  EXPECT_FALSE(recognise(swp1, 1ms, join));
  EXPECT_FALSE(recognise(swp1, 2ms, join));
  EXPECT_FALSE(recognise(swp1, 5s, FrameBuilder::reportV3({toEx(otherGroup)}).from(tv)));
}

TEST_F(OwnFramesTest, WhatIsNoIgmpIsNotCounted) {
  ByteVector const other(60);
  EXPECT_TRUE(frames.recognise(swp1, 0s, other, true));
  EXPECT_FALSE(frames.recognise(swp2, 0s, other, false));
  EXPECT_THAT(remarksOn(frames), IsEmpty());
}

}  // namespace
}  // namespace Agent
