#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/replay/CaptureFile.h"
#include "agent/replay/Replay.h"
#include "agent/replay/SentCaptures.h"
#include "platform/igmp/wire/PacketReader.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/config/ConfigurationTesting.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr char const* twoPorts = R"(
  [defaults]
  report-on = "all"
  sender-source-address = "10.0.0.9"
  [[interface]]
  name = "swp[1-2]"
  [[vlan]]
  id = 10
  querier = { igmp-version = 3 }
  interfaces = ["swp1"]
  tagged-interfaces = ["swp2"]
)";

struct Sent {
  Horix::Time time;
  ByteVector frame;
};

class SentCapturesTest : public testing::Test {
 protected:
  std::vector<Sent> sentOn(std::string const& port) const {
    std::vector<Sent> packets;
    CaptureFile file(directory.file("sent/" + port + ".pcap"));
    while (auto const packet = file.next())
      packets.push_back({packet->time, {packet->frame.begin(), packet->frame.end()}});
    return packets;
  }

  void replay(std::string const& to) const {
    replay(to, CaptureBuilder()
                   .at(someTime + 5ns, FrameBuilder::reportV2(group))
                   .write(directory.file("heard.pcap")));
  }

  static void replay(std::string const& to, std::string const& capture) {
    Replay run(configurationIn(twoPorts), {{Wirex::IntfId("swp1"), capture}});
    run.writeSent(to);
    run.run(10s);
  }

  TemporaryDirectory directory;
};

TEST_F(SentCapturesTest, HoldWhatHostsSentWhenTheyDid) {
  replay(directory.file("sent"));
  auto const sent = sentOn("swp2");
  ASSERT_EQ(sent.size(), 2u) << "as often as the robustness variable says";
  EXPECT_EQ(sent[0].time, someTime + 5ns);
  EXPECT_GT(sent[1].time, sent[0].time);
  auto const ethernet = Igmp::parseEthernet(sent[0].frame);
  ASSERT_TRUE(ethernet);
  auto const packet = Igmp::parsePacket(*ethernet, {true});
  ASSERT_TRUE(packet);
  EXPECT_EQ(packet->source, IpAddr(10, 0, 0, 9));
  auto const& report = std::get<Igmp::ReportV3>(packet->message);
  EXPECT_EQ((*report.records.begin()).group, group);
  EXPECT_EQ(sent[0].frame[6], 0x02) << "from a locally administered address";
  EXPECT_EQ(sent[0].frame[12] << 8 | sent[0].frame[13], 0x8100) << "tagged on this port";
}

TEST_F(SentCapturesTest, PortThatSentNothingHasAnEmptyOne) {
  replay(directory.file("sent"));
  EXPECT_THAT(sentOn("swp1"), IsEmpty());
}

TEST_F(SentCapturesTest, AreTheSameEachTime) {
  replay(directory.file("sent"));
  auto const first = sentOn("swp2");
  replay(directory.file("sent"));
  auto const second = sentOn("swp2");
  ASSERT_EQ(first.size(), second.size());
  for (std::size_t i = 0; i < first.size(); ++i) {
    EXPECT_EQ(first[i].time, second[i].time);
    EXPECT_EQ(first[i].frame, second[i].frame);
  }
}

TEST_F(SentCapturesTest, HaveTheirNameWhenTheyAreWhole) {
  namespace fs = std::filesystem;
  fs::create_directory(directory.file("sent"));
  std::ofstream(directory.file("sent/swp1.pcap")) << "of an earlier replay";
  SentCaptures captures(directory.file("sent"), {Wirex::IntfId("swp1")});
  EXPECT_FALSE(fs::exists(directory.file("sent/swp1.pcap")));
  EXPECT_TRUE(fs::exists(directory.file("sent/swp1.pcap.part")));
  captures.finish();
  EXPECT_TRUE(fs::exists(directory.file("sent/swp1.pcap")));
  EXPECT_FALSE(fs::exists(directory.file("sent/swp1.pcap.part")));
}

TEST_F(SentCapturesTest, WhatIsBeingReplayedIsNotReplaced) {
  namespace fs = std::filesystem;
  fs::create_directory(directory.file("sent"));
  std::string const capture =
      CaptureBuilder().at(someTime, FrameBuilder::reportV2(group)).write(directory.file("heard"));
  std::ofstream(directory.file("sent/swp1.pcap")) << "of an earlier replay";
  for (std::string const name : {"sent/swp2.pcap", "sent/swp2.pcap.part"}) {
    fs::create_symlink(capture, directory.file(name));
    auto const size = fs::file_size(capture);
    try {
      replay(directory.file("sent"), capture);
      FAIL() << "no error";
    } catch (CaptureError const& error) {
      EXPECT_THAT(error.what(), HasSubstr("writing " + directory.file(name) + " would destroy " +
                                          capture + ", which is being replayed; "));
    }
    EXPECT_EQ(fs::file_size(capture), size);
    EXPECT_TRUE(fs::exists(directory.file("sent/swp1.pcap"))) << "nothing has begun";
    fs::remove(directory.file(name));
  }
}

TEST_F(SentCapturesTest, DirectoryThatCannotBeMadeIsAnError) {
  std::ofstream(directory.file("file")) << "in the way";
  try {
    replay(directory.file("file/sent"));
    FAIL() << "no error";
  } catch (CaptureError const& error) {
    EXPECT_THAT(error.what(), HasSubstr("cannot make directory " + directory.file("file/sent")));
  }
}

TEST_F(SentCapturesTest, FullDeviceIsAnError) {
  namespace fs = std::filesystem;
  fs::create_directory(directory.file("sent"));
  fs::create_symlink("/dev/full", directory.file("sent/swp1.pcap.part"));
  SentCaptures captures(directory.file("sent"), {Wirex::IntfId("swp1")});
  try {
    captures.finish();
    FAIL() << "no error";
  } catch (CaptureError const& error) {
    EXPECT_THAT(error.what(), HasSubstr("No space left on device; make room"));
  }
  EXPECT_FALSE(fs::exists(directory.file("sent/swp1.pcap")));
}

}  // namespace
}  // namespace Agent
