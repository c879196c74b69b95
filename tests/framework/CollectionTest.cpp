#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Collection.h"
#include "tests/framework/Toys.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::ThrowsMessage;
using testing::UnorderedElementsAre;
using Toy::address;
using Toy::intf;
using Toy::Port;
using Toy::vlan;

class CollectionTest : public testing::Test {
 protected:
  Toy::Journal journal_;
  Kel::Ptr<Toy::Switch> switch_ = Kel::make<Toy::Switch>();
  Kel::Ptr<Toy::Recorder> recorder_ = Kel::make<Toy::Recorder>(switch_, journal_, "r");
};

using MemberCollectionTest = CollectionTest;

TEST_F(MemberCollectionTest, AbsentKeyReadsAsNull) {
  EXPECT_EQ(switch_->port(intf(1)), nullptr);
  EXPECT_FALSE(switch_->port().contains(intf(1)));
}

TEST_F(MemberCollectionTest, MakesAMissingMemberFromKeyAndArguments) {
  auto const port = switch_->portIs(intf(1), 1000);
  EXPECT_EQ(port->name(), intf(1));
  EXPECT_EQ(port->speed(), 1000);
  EXPECT_EQ(switch_->port(intf(1)), port);
  EXPECT_THAT(journal_, ElementsAre("r port eth1"));
}

TEST_F(MemberCollectionTest, ReturnsTheExistingMemberForEqualArguments) {
  auto const port = switch_->portIs(intf(1), 1000);
  port->upIs(true);
  auto const again = switch_->portIs(intf(1), 1000);
  EXPECT_EQ(again, port);
  EXPECT_TRUE(again->up());
  EXPECT_EQ(switch_->port().size(), 1u);
  EXPECT_THAT(journal_, ElementsAre("r port eth1"));
}

TEST_F(MemberCollectionTest, RefusesOtherArgumentsForAnExistingMember) {
  switch_->portIs(intf(1), 1000);
  EXPECT_THAT([this] { switch_->portIs(intf(1), 10); },
              ThrowsMessage<Kel::NameInUseException>(
                  "Reinstantiating the pointer interface where constructor parameter attribute "
                  "_speed has a different value of 10 than the current value of 1000 not allowed"));
}

TEST_F(MemberCollectionTest, KeepsTheExistingMemberWhenItRefusesOtherArguments) {
  auto const port = switch_->portIs(intf(1), 1000);
  EXPECT_THROW(switch_->portIs(intf(1), 10), Kel::NameInUseException);
  EXPECT_EQ(switch_->port(intf(1)), port);
  EXPECT_EQ(port->speed(), 1000);
  EXPECT_THAT(journal_, ElementsAre("r port eth1"));
}

TEST_F(MemberCollectionTest, NullMemberIsAnEntryThatReadsAsNull) {
  switch_->portPut(intf(1), nullptr);
  EXPECT_EQ(switch_->port(intf(1)), nullptr);
  EXPECT_TRUE(switch_->port().contains(intf(1)));
  EXPECT_THAT(journal_, ElementsAre("r port eth1"));
}

TEST_F(MemberCollectionTest, FindOrCreateRefusesANullMember) {
  switch_->portPut(intf(1), nullptr);
  EXPECT_THAT([this] { switch_->portIs(intf(1)); },
              ThrowsMessage<Kel::RangeException>("null ValidPtr"));
  EXPECT_EQ(switch_->port().size(), 1u);
}

TEST_F(MemberCollectionTest, NullMemberMayBeRemoved) {
  switch_->portPut(intf(1), nullptr);
  switch_->portDel(intf(1));
  EXPECT_TRUE(switch_->port().empty());
  EXPECT_THAT(journal_, ElementsAre("r port eth1", "r port eth1"));
}

TEST_F(MemberCollectionTest, PutReplacesTheMemberThatIsThere) {
  auto const former = switch_->portIs(intf(1));
  auto const replacement = Kel::make<Port>(intf(1));
  switch_->portPut(intf(1), replacement);
  EXPECT_EQ(switch_->port(intf(1)), replacement);
  EXPECT_TRUE(former->isZombie());
  EXPECT_EQ(former->references(), 1u);
  EXPECT_THAT(journal_, ElementsAre("r port eth1", "r port eth1"));
}

TEST_F(MemberCollectionTest, PutOfTheMemberThatIsThereNotifiesNobody) {
  auto const port = switch_->portIs(intf(1));
  switch_->portPut(intf(1), port);
  EXPECT_FALSE(port->isZombie());
  EXPECT_THAT(journal_, ElementsAre("r port eth1"));
}

TEST_F(MemberCollectionTest, PutTakesAKeyThatLivesInWhatItReplaces) {
  switch_->portIs(intf(1));
  switch_->portPut(switch_->port().find(intf(1))->name(), nullptr);
  EXPECT_THAT(journal_, ElementsAre("r port eth1", "r port eth1"));
}

TEST_F(MemberCollectionTest, FormerPlaceFindsTheMemberAndIsBroughtUpToDate) {
  for (int const number : {1, 2, 3}) switch_->portIs(intf(number));
  std::uint32_t place = 2;
  EXPECT_EQ(switch_->port().find(intf(3), place), switch_->port().find(intf(3)));
  EXPECT_EQ(place, 2u);
  switch_->portDel(intf(1));  // whose place the last one takes
  EXPECT_EQ(switch_->port().find(intf(3), place), switch_->port().find(intf(3)));
  EXPECT_EQ(place, 0u);
}

TEST_F(MemberCollectionTest, FormerPlaceOfAnotherMemberMisleadsNobody) {
  for (int const number : {1, 2}) switch_->portIs(intf(number));
  for (std::uint32_t const wrong : {1u, 2u, 77u, switch_->port().absent}) {
    std::uint32_t place = wrong;
    EXPECT_EQ(switch_->port().find(intf(1), place), switch_->port().find(intf(1)));
    EXPECT_EQ(place, 0u);
  }
}

TEST_F(MemberCollectionTest, MemberThatHasGoneHasNoPlace) {
  switch_->portIs(intf(1));
  std::uint32_t place = 0;
  switch_->portDel(intf(1));
  EXPECT_EQ(switch_->port().find(intf(1), place), nullptr);
  EXPECT_EQ(place, switch_->port().absent);
}

TEST_F(MemberCollectionTest, RemovalNotifiesWithTheKey) {
  switch_->portIs(intf(1));
  switch_->portIs(intf(2));
  journal_.clear();
  switch_->portDel(intf(1));
  EXPECT_EQ(switch_->port(intf(1)), nullptr);
  EXPECT_NE(switch_->port(intf(2)), nullptr);
  EXPECT_THAT(journal_, ElementsAre("r port eth1"));
}

TEST_F(MemberCollectionTest, RemovingAnAbsentKeyIsSilent) {
  switch_->portDel(intf(1));
  EXPECT_THAT(journal_, IsEmpty());
}

TEST_F(MemberCollectionTest, RemovedMemberIsFirstAZombieThenDroppedThenItsRemovalIsTold) {
  Port* const port = switch_->portIs(intf(1)).get();
  port->atZombie = [this] { journal_.emplace_back("zombie"); };
  port->atDestruction = [this] { journal_.emplace_back("destroyed"); };
  recorder_->reaction = [this] {
    EXPECT_EQ(switch_->port(intf(1)), nullptr);
    EXPECT_TRUE(switch_->port().empty());
  };
  journal_.clear();
  switch_->portDel(intf(1));
  EXPECT_THAT(journal_, ElementsAre("zombie", "destroyed", "r port eth1"));
}

TEST_F(MemberCollectionTest, RemovedMemberLivesWhileSomebodyElseHoldsIt) {
  auto port = switch_->portIs(intf(1));
  port->atDestruction = [this] { journal_.emplace_back("destroyed"); };
  journal_.clear();
  switch_->portDel(intf(1));
  EXPECT_THAT(journal_, ElementsAre("r port eth1"));
  port = nullptr;
  EXPECT_THAT(journal_, ElementsAre("r port eth1", "destroyed"));
}

TEST_F(MemberCollectionTest, RemovalTakesAKeyThatLivesInWhatItRemoves) {
  switch_->portIs(intf(1));
  switch_->portDel(switch_->port().find(intf(1))->name());
  switch_->portIs(intf(2));
  switch_->portDel(switch_->port().keyAt(0));
  EXPECT_THAT(journal_, ElementsAre("r port eth1", "r port eth1", "r port eth2", "r port eth2"));
}

TEST_F(MemberCollectionTest, RemovedMemberMayTakeTheOwnersLastReferenceWithIt) {
  recorder_ = nullptr;
  switch_->portIs(intf(1))->atDestruction = [this] { switch_ = nullptr; };
  switch_->portDel(intf(1));
  EXPECT_EQ(switch_, nullptr);
}

TEST_F(MemberCollectionTest, ReplacedMemberMayTakeTheOwnersLastReferenceWithIt) {
  recorder_ = nullptr;
  switch_->portIs(intf(1))->atDestruction = [this] { switch_ = nullptr; };
  switch_->portPut(intf(1), nullptr);
  EXPECT_EQ(switch_, nullptr);
}

TEST_F(MemberCollectionTest, RemovingAllNotifiesOncePerKey) {
  for (int const number : {1, 2, 3}) switch_->portIs(intf(number));
  journal_.clear();
  switch_->portDelAll();
  EXPECT_TRUE(switch_->port().empty());
  EXPECT_THAT(journal_, UnorderedElementsAre("r port eth1", "r port eth2", "r port eth3"));
}

TEST_F(MemberCollectionTest, RemovingAllOfNothingIsSilent) {
  switch_->portDelAll();
  EXPECT_THAT(journal_, IsEmpty());
}

TEST_F(MemberCollectionTest, NotifyWithAKeyTellsOfThatEntryWithoutChangingIt) {
  auto const port = switch_->portIs(intf(1));
  journal_.clear();
  switch_->portNotify(intf(1));
  switch_->portNotify(intf(2));
  EXPECT_EQ(switch_->port(intf(1)), port);
  EXPECT_EQ(switch_->port().size(), 1u);
  EXPECT_THAT(journal_, ElementsAre("r port eth1", "r port eth2"));
}

TEST_F(MemberCollectionTest, NotifyWithoutAKeyTellsOfTheWholeCollection) {
  switch_->portNotify();
  EXPECT_THAT(journal_, ElementsAre("r ports"));
}

TEST_F(MemberCollectionTest, CreationHasHappenedWhenItIsTold) {
  Kel::Ptr<Port> heard;
  recorder_->reaction = [&] { heard = switch_->port(intf(1)); };
  EXPECT_EQ(switch_->portIs(intf(1)), heard);
  EXPECT_NE(heard, nullptr);
}

TEST_F(MemberCollectionTest, ReturnsTheNewMemberEvenIfAHandlerHasRemovedIt) {
  recorder_->reaction = [this] { switch_->portDel(intf(1)); };
  auto const port = switch_->portIs(intf(1));
  EXPECT_EQ(port->references(), 1u);
  EXPECT_TRUE(switch_->port().empty());
}

TEST_F(MemberCollectionTest, IterationVisitsEveryEntryOnceInAnOrderThatStays) {
  for (int number = 0; number < 30; ++number) switch_->portIs(intf(number));
  std::vector<std::string> first;
  std::vector<std::string> second;
  for (auto const& [name, port] : switch_->port()) first.push_back(Toy::sentence(name));
  for (auto const& [name, port] : switch_->port()) second.push_back(Toy::sentence(port->name()));
  EXPECT_EQ(first, second);
  std::vector<std::string> expected;
  expected.reserve(30);
  for (int number = 0; number < 30; ++number) expected.push_back(Toy::sentence(intf(number)));
  EXPECT_THAT(first, testing::UnorderedElementsAreArray(expected));
}

TEST_F(MemberCollectionTest, PositionsNumberTheEntriesInTheirOrder) {
  for (int number = 0; number < 30; ++number) switch_->portIs(intf(number));
  std::uint32_t position = 0;
  for (auto const& [name, port] : switch_->port()) {
    EXPECT_EQ(switch_->port().position(name), position);
    EXPECT_EQ(switch_->port().keyAt(position), name);
    ++position;
  }
}

TEST_F(MemberCollectionTest, KeysMayBeTakenBeforeALoopThatChangesTheCollection) {
  for (int number = 0; number < 30; ++number) switch_->portIs(intf(number));
  for (Wirex::IntfId const& name : switch_->port().keys()) {
    switch_->portDel(name);
    switch_->portIs(Wirex::IntfId(name.stringValue() + ".10"));
  }
  EXPECT_EQ(switch_->port().size(), 30u);
  EXPECT_TRUE(switch_->port().contains(Wirex::IntfId("eth29.10")));
}

TEST_F(MemberCollectionTest, MembersDieWithTheEntityAsZombies) {
  Toy::Journal journal;
  Port* const port = switch_->portIs(intf(1)).get();
  port->atZombie = [&journal] { journal.emplace_back("zombie"); };
  port->atDestruction = [&journal] { journal.emplace_back("destroyed"); };
  recorder_ = nullptr;
  switch_ = nullptr;
  EXPECT_THAT(journal, ElementsAre("zombie", "destroyed"));
}

using OwnedMembersTest = CollectionTest;

TEST_F(OwnedMembersTest, MemberThatIsMadeMeanwhileIsKept) {
  Kel::OwnedMembers<Wirex::IntfId, Port> members;
  auto const first = Kel::make<Port>(intf(1));
  auto const second = Kel::make<Port>(intf(1));
  auto const [member, isNew] = members.ensure(intf(1), [&] {
    members.put(intf(1), first);
    return Kel::Ptr<Port>(second);
  });
  EXPECT_EQ(member, first);
  EXPECT_FALSE(isNew);
  EXPECT_TRUE(second->isZombie());
  EXPECT_EQ(members.size(), 1u);
}

TEST_F(OwnedMembersTest, NullThatIsPutMeanwhileIsRefused) {
  Kel::OwnedMembers<Wirex::IntfId, Port> members;
  auto const putNullAndMake = [&] {
    members.put(intf(1), nullptr);
    return Kel::make<Port>(intf(1));
  };
  EXPECT_THROW(members.ensure(intf(1), putNullAndMake), Kel::RangeException);
  EXPECT_EQ(members.size(), 1u);
}

TEST_F(OwnedMembersTest, NothingIsAddedWhenTheConstructorThrows) {
  Kel::OwnedMembers<Wirex::IntfId, Port> members;
  auto const fail = []() -> Kel::Ptr<Port> { throw 1; };
  EXPECT_THROW(members.ensure(intf(1), fail), int);
  EXPECT_TRUE(members.empty());
}

using ValueCollectionTest = CollectionTest;

TEST_F(ValueCollectionTest, AbsentEntryReadsAsTheDefault) {
  EXPECT_EQ(switch_->weight(vlan(1)), 0);
  EXPECT_TRUE(switch_->weight().empty());
}

TEST_F(ValueCollectionTest, ChangeOfAnEntryNotifiesWithItsKey) {
  switch_->weightIs(vlan(1), 5);
  switch_->weightIs(vlan(1), 6);
  EXPECT_EQ(switch_->weight(vlan(1)), 6);
  EXPECT_THAT(journal_, ElementsAre("r weight 1", "r weight 1"));
}

TEST_F(ValueCollectionTest, EqualValueNotifiesNobody) {
  switch_->weightIs(vlan(1), 5);
  switch_->weightIs(vlan(1), 5);
  EXPECT_THAT(journal_, ElementsAre("r weight 1"));
}

TEST_F(ValueCollectionTest, EntryWithTheDefaultValueIsAnEntryAllTheSame) {
  switch_->weightIs(vlan(1), 0);
  EXPECT_TRUE(switch_->weight().contains(vlan(1)));
  EXPECT_THAT(journal_, ElementsAre("r weight 1"));
}

TEST_F(ValueCollectionTest, RemovalNotifiesAndAnAbsentKeyIsSilent) {
  switch_->weightIs(vlan(1), 5);
  switch_->weightDel(vlan(1));
  EXPECT_FALSE(switch_->weight().contains(vlan(1)));
  switch_->weightDel(vlan(1));
  EXPECT_THAT(journal_, ElementsAre("r weight 1", "r weight 1"));
}

TEST_F(ValueCollectionTest, RemovingAllNotifiesOncePerKey) {
  for (int const number : {1, 2, 3}) switch_->weightIs(vlan(number), 5);
  journal_.clear();
  switch_->weightDelAll();
  EXPECT_TRUE(switch_->weight().empty());
  EXPECT_THAT(journal_, UnorderedElementsAre("r weight 1", "r weight 2", "r weight 3"));
}

TEST_F(ValueCollectionTest, NotifiesWithAndWithoutAKey) {
  switch_->weightNotify(vlan(7));
  switch_->weightNotify();
  EXPECT_THAT(journal_, ElementsAre("r weight 7", "r weights"));
  EXPECT_TRUE(switch_->weight().empty());
}

TEST_F(ValueCollectionTest, CountsGoUpAndDownFromZero) {
  EXPECT_EQ(switch_->weightInc(vlan(1), 2), 2);
  EXPECT_EQ(switch_->weightInc(vlan(1), 1), 3);
  EXPECT_EQ(switch_->weightDec(vlan(1), 1), 2);
  EXPECT_EQ(switch_->weight(vlan(1)), 2);
  EXPECT_THAT(journal_, ElementsAre("r weight 1", "r weight 1", "r weight 1"));
}

TEST_F(ValueCollectionTest, UnsignedCountWrapsBelowZero) {
  Kel::Values<Bridging::VlanId, std::uint32_t, &Toy::Switch::NotifieeConst::onWeight> counts;
  EXPECT_EQ(counts.dec(*switch_, vlan(1), 1), UINT32_MAX);
  EXPECT_EQ(counts.inc(*switch_, vlan(1), 2), 1u);
}

TEST_F(ValueCollectionTest, CountingByNothingNotifiesNobodyOfAnExistingCount) {
  switch_->weightInc(vlan(1), 2);
  EXPECT_EQ(switch_->weightInc(vlan(1), 0), 2);
  EXPECT_EQ(switch_->weightDec(vlan(1), 0), 2);
  EXPECT_THAT(journal_, ElementsAre("r weight 1"));
}

TEST_F(ValueCollectionTest, RefillTellsOfEveryKeyThatGoesAndEveryKeyThatComes) {
  auto const other = Kel::make<Toy::Switch>();
  for (int const number : {2, 3}) other->weightIs(vlan(number), 5);
  for (int const number : {1, 2}) switch_->weightIs(vlan(number), 7);
  journal_.clear();
  switch_->weightRefill(other->weight(), 9);
  EXPECT_THAT(journal_, ElementsAre("r weight 1", "r weight 2", "r weight 2", "r weight 3"));
  EXPECT_EQ(switch_->weight().size(), 2u);
  EXPECT_EQ(switch_->weight(vlan(2)), 9);
  EXPECT_EQ(switch_->weight(vlan(3)), 9);
}

TEST_F(ValueCollectionTest, RefillOfAnUnwatchedEntityHasTheSameOutcome) {
  recorder_ = nullptr;
  EXPECT_FALSE(switch_->watched());
  auto const other = Kel::make<Toy::Switch>();
  for (int const number : {2, 3}) other->weightIs(vlan(number), 5);
  for (int const number : {1, 2}) switch_->weightIs(vlan(number), 7);
  auto const before = Kel::mutationCount();
  switch_->weightRefill(other->weight(), 9);
  EXPECT_NE(Kel::mutationCount(), before);
  EXPECT_EQ(switch_->weight().size(), 2u);
  EXPECT_FALSE(switch_->weight().contains(vlan(1)));
  EXPECT_EQ(switch_->weight(vlan(2)), 9);
  EXPECT_EQ(switch_->weight(vlan(3)), 9);
}

TEST_F(ValueCollectionTest, RefillGoesOnWhenAHandlerLetsGoOfTheEntity) {
  auto const other = Kel::make<Toy::Switch>();
  for (int number = 1; number <= 20; ++number) other->weightIs(vlan(number), 5);
  switch_->weightIs(vlan(1), 1);
  recorder_->reaction = [this] {
    switch_ = nullptr;
    recorder_ = nullptr;
  };
  switch_->weightRefill(other->weight(), 9);
  EXPECT_EQ(switch_, nullptr);
}

TEST_F(ValueCollectionTest, RemovingAllOfAnUnwatchedEntityHasTheSameOutcome) {
  recorder_ = nullptr;
  for (int number = 1; number <= 20; ++number) switch_->weightIs(vlan(number), 5);
  switch_->weightDelAll();
  EXPECT_TRUE(switch_->weight().empty());
  EXPECT_FALSE(switch_->weight().contains(vlan(1)));
  switch_->weightIs(vlan(1), 6);
  EXPECT_EQ(switch_->weight(vlan(1)), 6);
}

using SetTest = CollectionTest;

TEST_F(SetTest, MembershipIsToldOnceWhenItBeginsAndOnceWhenItEnds) {
  EXPECT_FALSE(switch_->filter(address(1)));
  switch_->filterIs(address(1));
  switch_->filterIs(address(1));
  EXPECT_TRUE(switch_->filter(address(1)));
  switch_->filterDel(address(1));
  switch_->filterDel(address(1));
  EXPECT_FALSE(switch_->filter(address(1)));
  EXPECT_THAT(journal_, ElementsAre("r filter 10.0.0.1", "r filter 10.0.0.1"));
}

TEST_F(SetTest, IteratesOverItsKeys) {
  EXPECT_EQ(switch_->filter().begin(), switch_->filter().end());
  for (int number = 0; number < 20; ++number) switch_->filterIs(address(number));
  std::vector<Wirex::IpAddr> const keys(switch_->filter().begin(), switch_->filter().end());
  EXPECT_EQ(keys.size(), 20u);
  EXPECT_EQ(keys.back(), address(19));
}

TEST_F(SetTest, RemovingAllNotifiesOncePerKey) {
  for (int const number : {1, 2}) switch_->filterIs(address(number));
  journal_.clear();
  switch_->filterDelAll();
  EXPECT_TRUE(switch_->filter().empty());
  EXPECT_THAT(journal_, UnorderedElementsAre("r filter 10.0.0.1", "r filter 10.0.0.2"));
}

TEST_F(SetTest, NotifiesWithAndWithoutAKey) {
  switch_->filterNotify(address(1));
  switch_->filterNotify();
  EXPECT_THAT(journal_, ElementsAre("r filter 10.0.0.1", "r filters"));
}

TEST_F(SetTest, RemovalTakesAKeyThatLivesInTheSet) {
  for (int number = 0; number < 20; ++number) switch_->filterIs(address(number));
  journal_.clear();
  switch_->filterDel(switch_->filter().keyAt(3));
  EXPECT_THAT(journal_, ElementsAre("r filter 10.0.0.3"));
}

}  // namespace
