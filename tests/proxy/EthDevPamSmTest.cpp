#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "tests/proxy/PamTesting.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using namespace PamTraces;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using WirexTest::MultiplexerListener;

class EthDevPamSmTest : public ::testing::Test {
 protected:
  Kel::Ptr<Interface::EthDevPam> pam(char const* intf, std::uint32_t deviceIndex = 1) {
    return devices.pam(IntfId(intf), {intf, deviceIndex}, {});
  }
  void open(char const* intf, std::uint32_t deviceIndex = 1) {
    opened->intfPamIs(pam(intf, deviceIndex));
  }
  void close(char const* intf) { opened->intfPamDel(IntfId(intf)); }
  void start() { sm = EthDevPamSm::EthDevPamSmIs(opened, parent.get()); }

  Kel::Ptr<Wirex::Multiplexer> multiplexer(char const* intf) const {
    return parent->multiplexer(IntfId(intf));
  }

  RecordedPams devices;
  Kel::Ptr<Interface::EthDevPamCollection> opened =
      Kel::make<Interface::EthDevPamCollection>("opened");
  Kel::Ptr<WirexTest::Manager> parent = Kel::make<WirexTest::Manager>();
  Kel::Ptr<EthDevPamSm> sm;
};

TEST_F(EthDevPamSmTest, KnowsItsInputAndItsParent) {
  start();
  EXPECT_EQ(sm->ethDevPamCol(), opened);
  EXPECT_EQ(sm->parent(), parent.get());
}

TEST_F(EthDevPamSmTest, HoldsItsParentNotAtAll) {
  start();
  EXPECT_EQ(parent->references(), 1u);
}

TEST_F(EthDevPamSmTest, DeviceThatIsOpenedGetsAMultiplexerAtOnce) {
  start();
  open("swp1");
  ASSERT_TRUE(multiplexer("swp1"));
  EXPECT_EQ(multiplexer("swp1")->devicePam(), opened->intfPam(IntfId("swp1")));
}

TEST_F(EthDevPamSmTest, DevicesThatAreOpenAlreadyGetTheirs) {
  open("swp1");
  open("swp2");
  start();
  EXPECT_EQ(parent->multiplexer().size(), 2u);
  EXPECT_EQ(multiplexer("swp2")->devicePam(), opened->intfPam(IntfId("swp2")));
}

TEST_F(EthDevPamSmTest, MultiplexerGoesWithItsDevice) {
  start();
  open("swp1");
  open("swp2");
  close("swp1");
  EXPECT_EQ(multiplexer("swp1"), nullptr);
  EXPECT_TRUE(multiplexer("swp2"));
  EXPECT_THAT(devices.openIntfs(), ElementsAre("swp2")) << "nobody keeps it open";
}

TEST_F(EthDevPamSmTest, MultiplexerThatIsThereIsKept) {
  auto const present = parent->multiplexerIs(IntfId("swp1"), parent.get());
  start();
  open("swp1");
  EXPECT_EQ(multiplexer("swp1"), present);
  EXPECT_TRUE(present->devicePam());
}

TEST_F(EthDevPamSmTest, MultiplexerIsBoundToADeviceThatIsOpenedAnew) {
  start();
  open("swp1", 1);
  auto const present = multiplexer("swp1");
  open("swp1", 2);
  EXPECT_EQ(multiplexer("swp1"), present);
  EXPECT_EQ(present->devicePam(), opened->intfPam(IntfId("swp1")));
  EXPECT_THAT(devices.openIntfs(), ElementsAre("swp1"));
}

TEST_F(EthDevPamSmTest, DeviceThatIsNotThereHasNoMultiplexer) {
  start();
  parent->multiplexerIs(IntfId("swp1"), parent.get());
  sm->handleEthDevPam(IntfId("swp1"));
  sm->handleEthDevPam(IntfId("swp2"));
  EXPECT_TRUE(parent->multiplexer().empty());
}

TEST_F(EthDevPamSmTest, PassMakesTheMultiplexersThatAreMissing) {
  start();
  open("swp1");
  open("swp2");
  parent->multiplexerDelAll();
  sm->handleEthDevPam();
  EXPECT_EQ(parent->multiplexer().size(), 2u);
}

TEST_F(EthDevPamSmTest, PacketsPassThroughTheDevice) {
  start();
  open("swp1");
  multiplexer("swp1")->vlanIs(VlanId(10), 0);
  devices.hears("swp1", WirexTest::taggedFrame(10));
  EXPECT_THAT(parent->takeVlans(), ElementsAre(10));
  multiplexer("swp1")->outputPktIs(VlanId(10), Wirex::Pkt::PktIs(WirexTest::untaggedFrame()));
  EXPECT_THAT(devices.sent, ElementsAre(RecordedPams::Sent{"swp1", WirexTest::untaggedFrame()}));
}

TEST_F(EthDevPamSmTest, RefusesToDoWithoutItsInput) {
  EXPECT_EQ(WirexTest::refusalOf<Kel::RangeException>(
                [&] { EthDevPamSm::EthDevPamSmIs(nullptr, parent.get()); }),
            "null _ethDevPamCol parameter to mutator for "
            "Bridging::IgmpSnooping::Proxy::EthDevPamSm::ethDevPamCol not allowed\"");
}

TEST_F(EthDevPamSmTest, DoesNothingOnKeylessNotifications) {
  start();
  open("swp1");
  parent->multiplexerDelAll();
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  opened->intfPamNotify();
  EXPECT_TRUE(parent->multiplexer().empty());
  EXPECT_THAT(trace.lines(), IsEmpty());
}

TEST_F(EthDevPamSmTest, DoesNothingAsAZombie) {
  start();
  sm->kelDoZombieReactors(true);
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  open("swp1");
  EXPECT_TRUE(parent->multiplexer().empty());
  EXPECT_THAT(trace.lines(), IsEmpty());
  sm->kelDoZombieReactors(false);
  opened->intfPamNotify(IntfId("swp1"));
  EXPECT_TRUE(multiplexer("swp1"));
}

TEST_F(EthDevPamSmTest, DoesNothingWhileInactive) {
  start();
  sm->hasNotificationActiveIs(false);
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  open("swp1");
  EXPECT_TRUE(parent->multiplexer().empty());
  EXPECT_THAT(trace.lines(), IsEmpty());
  sm->hasNotificationActiveIs(true);
  opened->intfPamNotify(IntfId("swp1"));
  EXPECT_TRUE(multiplexer("swp1"));
}

TEST_F(EthDevPamSmTest, CatchesUpWithDevicesThatCameAndWentWhileItWasInactive) {
  open("swp1");
  start();
  sm->hasNotificationActiveIs(false);
  close("swp1");
  open("swp2");
  EXPECT_TRUE(multiplexer("swp1"));
  sm->hasNotificationActiveIs(true);
  EXPECT_FALSE(multiplexer("swp1"));
  EXPECT_TRUE(multiplexer("swp2"));
}

TEST_F(EthDevPamSmTest, DoesNothingOnceItIsGone) {
  start();
  EXPECT_EQ(sm->references(), 1u);
  sm = nullptr;
  open("swp1");
  EXPECT_TRUE(parent->multiplexer().empty());
  EXPECT_EQ(opened->references(), 1u);
}

// ---- What callbacks may do

TEST_F(EthDevPamSmTest, DeviceMayBeClosedByWhoHearsOfItsMultiplexer) {
  start();
  auto const listener = Kel::make<MultiplexerListener>(parent);
  listener->reaction = [&](IntfId const&) { close("swp1"); };
  open("swp1");
  EXPECT_EQ(multiplexer("swp1"), nullptr);
  EXPECT_THAT(listener->heard, ElementsAre("swp1 came", "swp1 went"));
  EXPECT_THAT(devices.openIntfs(), IsEmpty()) << "nothing is bound to it";
}

TEST_F(EthDevPamSmTest, DeviceMayBeOpenedAnewByWhoHearsOfItsMultiplexer) {
  start();
  auto const listener = Kel::make<MultiplexerListener>(parent);
  listener->reaction = [&](IntfId const&) { open("swp1", 2); };
  open("swp1", 1);
  ASSERT_TRUE(multiplexer("swp1"));
  EXPECT_EQ(multiplexer("swp1")->devicePam(), opened->intfPam(IntfId("swp1")));
  EXPECT_EQ(opened->intfPam(IntfId("swp1"))->device().deviceIndex, 2u);
  EXPECT_THAT(devices.openIntfs(), ElementsAre("swp1"));
}

TEST_F(EthDevPamSmTest, MayGoWhileItsMultiplexerIsHeardOf) {
  start();
  auto const listener = Kel::make<MultiplexerListener>(parent);
  listener->reaction = [&](IntfId const&) { sm = nullptr; };
  open("swp1");
  EXPECT_EQ(sm, nullptr);
  ASSERT_TRUE(multiplexer("swp1"));
  EXPECT_TRUE(multiplexer("swp1")->devicePam());
}

TEST_F(EthDevPamSmTest, MayGoWhileTheFirstOfManyMultiplexersIsHeardOf) {
  start();
  open("swp1");
  open("swp2");
  parent->multiplexerDelAll();
  auto const listener = Kel::make<MultiplexerListener>(parent);
  listener->reaction = [&](IntfId const&) { sm = nullptr; };
  sm->handleEthDevPam();
  EXPECT_EQ(sm, nullptr);
  EXPECT_EQ(parent->multiplexer().size(), 2u) << "the pass went on";
}

TEST_F(EthDevPamSmTest, CollectionMayGoWhileTheMultiplexerIsHeardOf) {
  start();
  auto const listener = Kel::make<MultiplexerListener>(parent);
  listener->reaction = [&](IntfId const&) {
    sm = nullptr;
    opened = nullptr;
  };
  open("swp1");
  EXPECT_TRUE(multiplexer("swp1")->devicePam());
}

// ---- What is traced

TEST_F(EthDevPamSmTest, TracesItsFirstPass) {
  open("swp1");
  open("swp2");
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  start();
  EXPECT_THAT(trace.texts(), ElementsAre(everyDevice(), device("swp1"), device("swp2")));
  EXPECT_THAT(functionsOf(trace), Each("handleEthDevPam"));
}

TEST_F(EthDevPamSmTest, TracesDevicesThatComeAndGo) {
  start();
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  open("swp1");
  close("swp1");
  EXPECT_THAT(trace.texts(), ElementsAre(device("swp1"), device("swp1")));
  EXPECT_THAT(functionsOf(trace), Each("handleEthDevPam"));
  EXPECT_THAT(trace.lines(), Each(Field(&TraceCapture::Line::sourceFile, "ProxyPam")));
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
