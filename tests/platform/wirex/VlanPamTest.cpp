#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "platform/wirex/VlanPam.h"
#include "tests/platform/wirex/Wiring.h"

namespace {

using namespace WirexTest;
using testing::ElementsAre;
using testing::IsEmpty;
using Wirex::Pkt;
using Wirex::VlanPam;

class VlanPamTest : public testing::Test {
 protected:
  VlanPamTest() {
    multiplexer->devicePamIs(device);
    multiplexer->vlanIs(VlanId(10), 0);
  }

  Kel::Ptr<Device> device = Kel::make<Device>();
  Kel::Ptr<Manager> manager = Kel::make<Manager>();
  Kel::Ptr<Wirex::Multiplexer> multiplexer = manager->multiplexerIs(IntfId("swp1"), manager.get());
  VlanPam::Ptr pam = Kel::make<VlanPam>("10", multiplexer);
};

TEST_F(VlanPamTest, IsNamedAfterItsVlan) {
  EXPECT_EQ(pam->name(), Kel::Name("10"));
  EXPECT_EQ(pam->vlanId(), VlanId(10));
}

TEST_F(VlanPamTest, MayBeOfTheFirstAndOfTheLastVlan) {
  EXPECT_EQ(Kel::make<VlanPam>("1", multiplexer)->vlanId(), VlanId(1));
  EXPECT_EQ(Kel::make<VlanPam>("4094", multiplexer)->vlanId(), VlanId(4094));
}

class VlanPamNameTest : public VlanPamTest, public testing::WithParamInterface<char const*> {};

TEST_P(VlanPamNameTest, IsRefusedBecauseItIsNoVlan) {
  EXPECT_EQ(refusalOf<Kel::RangeException>([&] { Kel::make<VlanPam>(GetParam(), multiplexer); }),
            "VlanId::value < 1 or > 4094 not allowed");
}

INSTANTIATE_TEST_SUITE_P(Names, VlanPamNameTest,
                         testing::Values("", "0", "4095", "65537", "99999999999999999999", "-1",
                                         "+10", " 10", "10 ", "10x", "x", "Vlan10"));

TEST_F(VlanPamTest, NeedsAMultiplexer) {
  EXPECT_EQ(refusalOf<Kel::RangeException>([] { Kel::make<VlanPam>("10", nullptr); }),
            "null _multiplexer parameter to mutator for Wirex::VlanPam::multiplexer not allowed\"");
}

TEST_F(VlanPamTest, HoldsItsMultiplexer) {
  EXPECT_EQ(pam->multiplexer(), multiplexer);
  auto const others = multiplexer->references();
  pam = nullptr;
  EXPECT_EQ(multiplexer->references(), others - 1);
}

TEST_F(VlanPamTest, SendsInItsVlan) {
  manager->tagged = {{10, "swp1"}};
  pam->outputPktIs(Pkt::PktIs(untaggedFrame()));
  EXPECT_THAT(device->sent, ElementsAre(taggedFrame(10)));
}

TEST_F(VlanPamTest, SendsNothingInAVlanThatIsNotRegistered) {
  Kel::make<VlanPam>("20", multiplexer)->outputPktIs(Pkt::PktIs(untaggedFrame()));
  EXPECT_THAT(device->sent, IsEmpty());
  EXPECT_EQ(multiplexer->counters().outNoVlan, 1u);
}

TEST_F(VlanPamTest, SendsNothingWhileThePortHasNoMultiplexerAndAgainWhenItIsBack) {
  manager->multiplexerDel(IntfId("swp1"));
  pam->outputPktIs(Pkt::PktIs(untaggedFrame()));
  EXPECT_THAT(device->sent, IsEmpty());
  EXPECT_EQ(multiplexer->counters().outNoDevice, 1u);
  multiplexer = nullptr;  // only the packet access holds it now
  manager->multiplexerIs(IntfId("swp1"), manager.get())->devicePamIs(device);
  pam->outputPktIs(Pkt::PktIs(untaggedFrame()));
  EXPECT_THAT(device->sent, ElementsAre(untaggedFrame()));
}

TEST_F(VlanPamTest, SendsNothingOnceTheManagerIsGone) {
  manager = nullptr;
  pam->outputPktIs(Pkt::PktIs(untaggedFrame()));
  EXPECT_THAT(device->sent, IsEmpty());
}

TEST_F(VlanPamTest, HasNoPacketBeforeTheFirstOne) {
  EXPECT_EQ(pam->inputPkt(), nullptr);
}

TEST_F(VlanPamTest, TellsItsUserOfEachPacketThatComesIn) {
  auto const listener = Kel::make<InputListener>(pam);
  pam->inputPktIs(Pkt::PktIs(Frame{1}));
  pam->inputPktIs(Pkt::PktIs(Frame{2}));
  EXPECT_THAT(listener->heard, ElementsAre(Frame{1}, Frame{2}));
}

TEST_F(VlanPamTest, TellsItsUserAlsoOfAPacketThatCameInBefore) {
  auto const listener = Kel::make<InputListener>(pam);
  Pkt::PtrConst const pkt = Pkt::PktIs(Frame{1});
  pam->inputPktIs(pkt);
  pam->inputPktIs(pkt);
  EXPECT_THAT(listener->heard, ElementsAre(Frame{1}, Frame{1}));
}

TEST_F(VlanPamTest, KeepsThePacketThatCameInLast) {
  pam->inputPktIs(Pkt::PktIs(Frame{1}));
  Pkt::PtrConst const last = Pkt::PktIs(Frame{2});
  pam->inputPktIs(last);
  EXPECT_EQ(pam->inputPkt(), last);
}

TEST_F(VlanPamTest, RefusesToReceiveNothing) {
  pam->inputPktIs(Pkt::PktIs(Frame{1}));
  auto const listener = Kel::make<InputListener>(pam);
  EXPECT_EQ(refusalOf<Kel::RangeException>([&] { pam->inputPktIs(nullptr); }),
            "null _inputPkt parameter to mutator for Wirex::Pam::inputPkt not allowed\"");
  EXPECT_THAT(listener->heard, IsEmpty());
  EXPECT_THAT(frameOf(pam->inputPkt()->bytes()), ElementsAre(1));
}

TEST_F(VlanPamTest, MayGoWhileItsUserHearsOfAPacket) {
  auto listener = Kel::make<InputListener>(pam);
  listener->reaction = [&] {
    pam = nullptr;
    listener = nullptr;
  };
  pam->inputPktIs(Pkt::PktIs(Frame{1}));
  EXPECT_EQ(listener, nullptr);
}

}  // namespace
