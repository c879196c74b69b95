#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Attribute.h"
#include "tests/framework/Toys.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;
using Toy::Port;

class AttributeTest : public testing::Test {
 protected:
  Toy::Journal journal_;
  Kel::Ptr<Toy::Switch> const switch_ = Kel::make<Toy::Switch>();
  Kel::Ptr<Toy::Recorder> const recorder_ = Kel::make<Toy::Recorder>(switch_, journal_, "r");
};

using ValueAttributeTest = AttributeTest;

TEST_F(ValueAttributeTest, ReadsAsTheDefaultUntilItIsSet) {
  EXPECT_EQ(switch_->temperature(), 0);
}

TEST_F(ValueAttributeTest, ReadsAsItWasSet) {
  switch_->temperatureIs(40);
  EXPECT_EQ(switch_->temperature(), 40);
}

TEST_F(ValueAttributeTest, ChangeNotifies) {
  switch_->temperatureIs(40);
  switch_->temperatureIs(41);
  EXPECT_THAT(journal_, ElementsAre("r temperature", "r temperature"));
}

TEST_F(ValueAttributeTest, StoringAnEqualValueNotifiesNobody) {
  switch_->temperatureIs(0);
  EXPECT_THAT(journal_, IsEmpty());
  switch_->temperatureIs(40);
  switch_->temperatureIs(40);
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
}

TEST_F(ValueAttributeTest, HoldsItsNewValueWhenItNotifies) {
  int heard = 0;
  recorder_->reaction = [&] { heard = switch_->temperature(); };
  switch_->temperatureIs(40);
  EXPECT_EQ(heard, 40);
}

TEST_F(ValueAttributeTest, NotifyRaisesTheCallbackWithoutAChange) {
  switch_->temperatureNotify();
  EXPECT_THAT(journal_, ElementsAre("r temperature"));
  EXPECT_EQ(switch_->temperature(), 0);
}

using PointerAttributeTest = AttributeTest;

TEST_F(PointerAttributeTest, IsNullUntilItIsSet) {
  EXPECT_EQ(switch_->uplink(), nullptr);
}

TEST_F(PointerAttributeTest, HoldsWhatItWasSetTo) {
  auto const port = Kel::make<Port>(Toy::intf(1));
  switch_->uplinkIs(port);
  EXPECT_EQ(switch_->uplink(), port);
  EXPECT_EQ(port->references(), 2u);
  EXPECT_THAT(journal_, ElementsAre("r uplink"));
}

TEST_F(PointerAttributeTest, SettingTheSameObjectNotifiesNobody) {
  auto const port = Kel::make<Port>(Toy::intf(1));
  switch_->uplinkIs(port);
  switch_->uplinkIs(port);
  EXPECT_THAT(journal_, ElementsAre("r uplink"));
}

TEST_F(PointerAttributeTest, LetsGoOfTheFormerObject) {
  auto const port = Kel::make<Port>(Toy::intf(1));
  switch_->uplinkIs(port);
  switch_->uplinkIs(Kel::make<Port>(Toy::intf(2)));
  EXPECT_EQ(port->references(), 1u);
  EXPECT_THAT(journal_, ElementsAre("r uplink", "r uplink"));
}

TEST_F(PointerAttributeTest, RefusesNullNamingParameterClassAndAttribute) {
  EXPECT_THAT([this] { switch_->uplinkIs(nullptr); },
              ThrowsMessage<Kel::RangeException>(
                  R"(null _uplink parameter to mutator for Toy::Switch::uplink not allowed")"));
}

TEST_F(PointerAttributeTest, KeepsItsObjectWhenItRefusesNull) {
  auto const port = Kel::make<Port>(Toy::intf(1));
  switch_->uplinkIs(port);
  EXPECT_THROW(switch_->uplinkIs(nullptr), Kel::RangeException);
  EXPECT_EQ(switch_->uplink(), port);
  EXPECT_THAT(journal_, ElementsAre("r uplink"));
}

TEST_F(PointerAttributeTest, RefusesNullEvenWhileItIsNull) {
  EXPECT_THROW(switch_->uplinkIs(nullptr), Kel::RangeException);
}

TEST_F(PointerAttributeTest, NotifyRaisesTheCallbackWithoutAChange) {
  switch_->uplinkNotify();
  EXPECT_THAT(journal_, ElementsAre("r uplink"));
}

using NullablePointerAttributeTest = AttributeTest;

TEST_F(NullablePointerAttributeTest, TakesNull) {
  auto const port = Kel::make<Port>(Toy::intf(1));
  switch_->mirrorIs(port);
  switch_->mirrorIs(nullptr);
  EXPECT_EQ(switch_->mirror(), nullptr);
  EXPECT_EQ(port->references(), 1u);
  EXPECT_THAT(journal_, ElementsAre("r mirror", "r mirror"));
}

TEST_F(NullablePointerAttributeTest, SettingNullWhereItIsNullNotifiesNobody) {
  switch_->mirrorIs(nullptr);
  EXPECT_THAT(journal_, IsEmpty());
}

}  // namespace
