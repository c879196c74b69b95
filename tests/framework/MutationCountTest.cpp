#include <cstdint>

#include <gtest/gtest.h>

#include "framework/kel/Collection.h"
#include "framework/kel/Notification.h"
#include "tests/framework/Toys.h"

namespace {

using Toy::address;
using Toy::intf;
using Toy::Port;
using Toy::vlan;

/// Whoever saves state reads the count to learn whether anything has changed since: a change that
/// leaves it where it was is never saved.
class MutationCountTest : public testing::Test {
 protected:
  template <class Change>
  static std::uint64_t countOf(Change const& change) {
    std::uint64_t const before = Kel::mutationCount();
    change();
    return Kel::mutationCount() - before;
  }

  Kel::Ptr<Toy::Switch> switch_ = Kel::make<Toy::Switch>();
  Kel::OwnedMembers<Wirex::IntfId, Port> members_;
  Kel::Ptr<Port> first_ = Kel::make<Port>(intf(1));
  Kel::Ptr<Port> second_ = Kel::make<Port>(intf(1));
};

TEST_F(MutationCountTest, CountsAnAttributeThatChangesAndNoEqualValue) {
  EXPECT_EQ(countOf([&] { switch_->temperatureIs(20); }), 1u);
  EXPECT_EQ(countOf([&] { switch_->temperatureIs(20); }), 0u);
}

TEST_F(MutationCountTest, CountsAPointerThatIsSetElsewhere) {
  EXPECT_EQ(countOf([&] { switch_->uplinkIs(first_); }), 1u);
  EXPECT_EQ(countOf([&] { switch_->uplinkIs(first_); }), 0u);
  EXPECT_EQ(countOf([&] { switch_->mirrorIs(first_); }), 1u);
  EXPECT_EQ(countOf([&] { switch_->mirrorIs(first_); }), 0u);
}

TEST_F(MutationCountTest, CountsNoNotificationWithoutAChange) {
  EXPECT_EQ(countOf([&] { switch_->portNotify(); }), 0u);
}

TEST_F(MutationCountTest, HasCountedAChangeWhenItIsTold) {
  Toy::Journal journal;
  auto const recorder = Kel::make<Toy::Recorder>(switch_, journal, "r");
  auto const before = Kel::mutationCount();
  std::uint64_t heard = before;
  recorder->reaction = [&heard] { heard = Kel::mutationCount(); };
  switch_->temperatureIs(40);
  EXPECT_EQ(heard, before + 1);
}

TEST_F(MutationCountTest, CountsAMemberThatIsMadeAndNoneThatIsFound) {
  auto const ensureFirst = [&] { members_.ensure(intf(1), [&] { return first_; }); };
  EXPECT_EQ(countOf(ensureFirst), 1u);
  EXPECT_EQ(countOf(ensureFirst), 0u);
}

TEST_F(MutationCountTest, CountsAMemberOnTopOfWhatItsConstructorChanges) {
  EXPECT_EQ(countOf([&] {
              members_.ensure(intf(1), [&] {
                switch_->temperatureIs(20);
                return first_;
              });
            }),
            2u);
}

TEST_F(MutationCountTest, CountsAMemberThatIsPutOrReplacedAndNoneThatIsThere) {
  EXPECT_EQ(countOf([&] { members_.put(intf(1), first_); }), 1u);
  EXPECT_EQ(countOf([&] { members_.put(intf(1), first_); }), 0u);
  EXPECT_EQ(countOf([&] { members_.put(intf(1), second_); }), 1u);
}

TEST_F(MutationCountTest, CountsAMemberThatIsRemovedAndNoAbsentOne) {
  members_.put(intf(1), first_);
  EXPECT_EQ(countOf([&] { members_.del(intf(1)); }), 1u);
  EXPECT_EQ(countOf([&] { members_.del(intf(1)); }), 0u);
}

TEST_F(MutationCountTest, CountsAnEntryThatComesChangesOrGoes) {
  EXPECT_EQ(countOf([&] { switch_->weightIs(vlan(1), 5); }), 1u);
  EXPECT_EQ(countOf([&] { switch_->weightIs(vlan(1), 5); }), 0u);
  EXPECT_EQ(countOf([&] { switch_->weightIs(vlan(1), 6); }), 1u);
  EXPECT_EQ(countOf([&] { switch_->weightInc(vlan(1), 2); }), 1u);
  EXPECT_EQ(countOf([&] { switch_->weightDel(vlan(1)); }), 1u);
  EXPECT_EQ(countOf([&] { switch_->weightDel(vlan(1)); }), 0u);
}

TEST_F(MutationCountTest, CountsTheEmptyingOfACollectionThatNobodyWatchesOnce) {
  switch_->weightIs(vlan(1), 5);
  switch_->weightIs(vlan(2), 5);
  EXPECT_EQ(countOf([&] { switch_->weightDelAll(); }), 1u);
  EXPECT_EQ(countOf([&] { switch_->weightDelAll(); }), 0u);
}

TEST_F(MutationCountTest, CountsTheRefillOfACollectionThatNobodyWatchesOnce) {
  auto const other = Kel::make<Toy::Switch>();
  other->weightIs(vlan(3), 1);
  other->weightIs(vlan(4), 1);
  EXPECT_EQ(countOf([&] { switch_->weightRefill(other->weight(), 7); }), 1u);
}

TEST_F(MutationCountTest, CountsAKeyThatJoinsOrLeavesASet) {
  EXPECT_EQ(countOf([&] { switch_->filterIs(address(1)); }), 1u);
  EXPECT_EQ(countOf([&] { switch_->filterIs(address(1)); }), 0u);
  EXPECT_EQ(countOf([&] { switch_->filterDel(address(1)); }), 1u);
}

TEST_F(MutationCountTest, CountsAReactorThatIsPointedElsewhere) {
  Toy::Journal journal;
  auto const recorder = Kel::make<Toy::Recorder>(switch_, journal, "r");
  EXPECT_EQ(countOf([&] { recorder->notifierIs(Kel::make<Toy::Switch>()); }), 1u);
}

}  // namespace
