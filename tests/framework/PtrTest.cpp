#include <sstream>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Ptr.h"
#include "tests/framework/ThreadSafePointers.h"

namespace {

class Part : public Kel::PtrInterface {
 public:
  explicit Part(int& destroyed) : destroyed_(destroyed) {}
  ~Part() override { ++destroyed_; }

  int weight() const { return 7; }

  Kel::Ptr<Part> next;

 private:
  int& destroyed_;
};

class SpecialPart : public Part {
 public:
  using Part::Part;
};

/// Every rule of counting holds with the switch for thread-safe pointers off and on.
class PtrTest : public testing::TestWithParam<bool> {
 protected:
  Kel::Ptr<Part> newPart() { return Kel::make<Part>(destroyed_); }

  ThreadSafePointers const threadSafe_{GetParam()};
  int destroyed_ = 0;
};

TEST_P(PtrTest, IsNullByDefault) {
  Kel::Ptr<Part> const none;
  EXPECT_FALSE(none);
  EXPECT_EQ(none.get(), nullptr);
  EXPECT_EQ(none, nullptr);
}

TEST_P(PtrTest, TakesNull) {
  Kel::Ptr<Part> part = newPart();
  part = nullptr;
  EXPECT_EQ(part, nullptr);
  EXPECT_EQ(destroyed_, 1);
}

TEST_P(PtrTest, NullMayBeCopiedMovedAndAssigned) {
  Kel::Ptr<Part> const none;
  Kel::Ptr<Part> copy = none;
  Kel::Ptr<Part> const moved = std::move(copy);
  Kel::Ptr<Part> assigned = newPart();
  assigned = none;
  EXPECT_EQ(moved, nullptr);
  EXPECT_EQ(assigned, nullptr);
}

TEST_P(PtrTest, MakerHoldsTheOnlyReference) {
  EXPECT_EQ(newPart()->references(), 1u);
}

TEST_P(PtrTest, CopyingAddsAReference) {
  Kel::Ptr<Part> const part = newPart();
  std::vector<Kel::Ptr<Part>> const copies(2, part);
  EXPECT_EQ(part->references(), 3u);
  EXPECT_EQ(copies[0], part);
  EXPECT_EQ(copies[1], part);
}

TEST_P(PtrTest, DestructionDropsAReference) {
  Kel::Ptr<Part> const part = newPart();
  { std::vector<Kel::Ptr<Part>> const copies(2, part); }
  EXPECT_EQ(part->references(), 1u);
  EXPECT_EQ(destroyed_, 0);
}

TEST_P(PtrTest, MovingAddsNone) {
  Kel::Ptr<Part> part = newPart();
  Kel::Ptr<Part> const moved = std::move(part);
  EXPECT_EQ(moved->references(), 1u);
  EXPECT_EQ(part, nullptr);  // NOLINT(bugprone-use-after-move): a moved handle is null
}

TEST_P(PtrTest, ReassignmentDropsTheFormerObject) {
  Kel::Ptr<Part> part = newPart();
  part = newPart();
  EXPECT_EQ(destroyed_, 1);
  Kel::Ptr<Part> const other = newPart();
  part = other;
  EXPECT_EQ(destroyed_, 2);
  EXPECT_EQ(other->references(), 2u);
}

TEST_P(PtrTest, ObjectDiesWithItsLastHandle) {
  Kel::Ptr<Part> first = newPart();
  Kel::Ptr<Part> second = first;
  first = nullptr;
  EXPECT_EQ(destroyed_, 0);
  second = nullptr;
  EXPECT_EQ(destroyed_, 1);
}

TEST_P(PtrTest, SelfAssignmentKeepsTheObject) {
  Kel::Ptr<Part> part = newPart();
  Kel::Ptr<Part>& alias = part;
  part = alias;
  EXPECT_EQ(part->references(), 1u);
  part = std::move(alias);
  EXPECT_EQ(part->references(), 1u);
}

TEST_P(PtrTest, MayBeAssignedFromWithinTheObjectThatItDrops) {
  Kel::Ptr<Part> part = newPart();
  part->next = newPart();
  Part* const second = part->next.get();
  part = part->next;
  EXPECT_EQ(part.get(), second);
  EXPECT_EQ(destroyed_, 1);
}

TEST_P(PtrTest, SwapExchangesObjectsWithoutCounting) {
  Kel::Ptr<Part> a = newPart();
  Kel::Ptr<Part> b;
  Part* const object = a.get();
  a.swap(b);
  EXPECT_EQ(a, nullptr);
  EXPECT_EQ(b.get(), object);
  EXPECT_EQ(b->references(), 1u);
}

TEST_P(PtrTest, ConvertsToABaseByCopyAndByMove) {
  Kel::Ptr<SpecialPart> special = Kel::make<SpecialPart>(destroyed_);
  Kel::Ptr<Part> const copy = special;
  EXPECT_EQ(special->references(), 2u);
  Kel::Ptr<Kel::PtrInterface> const moved = std::move(special);
  EXPECT_EQ(moved->references(), 2u);
  EXPECT_EQ(copy, moved);
}

TEST_P(PtrTest, BaseHandleDestroysTheDerivedObject) {
  Kel::Ptr<Kel::PtrInterface> part = newPart();
  part = nullptr;
  EXPECT_EQ(destroyed_, 1);
}

TEST_P(PtrTest, ConstHandleCountsAsAnyOther) {
  Kel::Ptr<Part> part = newPart();
  Kel::Ptr<Part const> input = part;
  EXPECT_EQ(input->references(), 2u);
  EXPECT_EQ(input->weight(), 7);
  EXPECT_EQ(input, part);
  part = nullptr;
  EXPECT_EQ(destroyed_, 0);
  input = nullptr;
  EXPECT_EQ(destroyed_, 1);
}

TEST_P(PtrTest, ComparesByIdentity) {
  Kel::Ptr<Part> const a = newPart();
  Kel::Ptr<Part> const b = newPart();
  EXPECT_EQ(a, Kel::Ptr<Part>(a.get()));
  EXPECT_NE(a, b);
  EXPECT_NE(a, nullptr);
}

TEST_P(PtrTest, DetachedObjectIsTakenOverByAdoption) {
  Kel::Ptr<Part> part = newPart();
  Part* const object = part.detach();
  EXPECT_EQ(part, nullptr);
  EXPECT_EQ(object->references(), 1u);
  EXPECT_EQ(Kel::Ptr<Part>::adopt(object)->references(), 1u);
  EXPECT_EQ(destroyed_, 1);
}

TEST_P(PtrTest, PrintsTheAddress) {
  Kel::Ptr<Part> const part = newPart();
  std::ostringstream handle;
  std::ostringstream pointer;
  handle << part;
  pointer << static_cast<void const*>(part.get());
  EXPECT_EQ(handle.str(), pointer.str());
}

/// Makes handles to itself where there is no other yet, or none any more.
class SelfCentred : public Kel::PtrInterface {
 public:
  explicit SelfCentred(int& destroyed) : destroyed_(destroyed) { Kel::Ptr<SelfCentred> self(this); }
  ~SelfCentred() override {
    Kel::Ptr<SelfCentred> self(this);
    ++destroyed_;
  }

 private:
  int& destroyed_;
};

TEST_P(PtrTest, HandleMadeInTheConstructorDoesNotDestroyTheObject) {
  auto const object = Kel::make<SelfCentred>(destroyed_);
  EXPECT_EQ(destroyed_, 0);
  EXPECT_EQ(object->references(), 1u);
}

TEST_P(PtrTest, HandleMadeInTheDestructorDoesNotDestroyTheObjectAgain) {
  Kel::make<SelfCentred>(destroyed_);
  EXPECT_EQ(destroyed_, 1);
}

TEST_P(PtrTest, ConstructorThatThrowsLeavesNothingBehind) {
  struct Impossible : Kel::PtrInterface {
    Impossible() {
      Kel::Ptr<Impossible> const self(this);
      throw 1;
    }
  };
  EXPECT_THROW(Kel::make<Impossible>(), int);
}

INSTANTIATE_TEST_SUITE_P(ThreadSafeSwitch, PtrTest, testing::Bool(),
                         [](auto const& on) { return on.param ? "On" : "Off"; });

TEST(PtrConversionTest, GoesWherePointersGo) {
  EXPECT_TRUE((std::is_convertible_v<Kel::Ptr<SpecialPart>, Kel::Ptr<Part>>));
  EXPECT_TRUE((std::is_convertible_v<Kel::Ptr<Part>, Kel::Ptr<Part const>>));
  EXPECT_FALSE((std::is_constructible_v<Kel::Ptr<Part>, Kel::Ptr<Part const>>));
  EXPECT_FALSE((std::is_constructible_v<Kel::Ptr<SpecialPart>, Kel::Ptr<Part>>));
}

TEST(PtrConversionTest, NeedsAWordToMakeAHandleOfAPointer) {
  EXPECT_FALSE((std::is_convertible_v<Part*, Kel::Ptr<Part>>));
  EXPECT_TRUE((std::is_constructible_v<Kel::Ptr<Part>, Part*>));
}

TEST(PtrConversionTest, ConstHandleReachesOnlyWhatIsConst) {
  EXPECT_TRUE((std::is_same_v<decltype(*Kel::Ptr<Part const>()), Part const&>));
}

TEST(ThreadSafeSwitchTest, IsOffUntilTheHostTurnsItOn) {
  EXPECT_FALSE(Kel::threadSafePtr());
}

TEST(ThreadSafeSwitchTest, ReferencesTakenBeforeItWasTurnedCountAfterwards) {
  int destroyed = 0;
  Kel::Ptr<Part> first = Kel::make<Part>(destroyed);
  Kel::Ptr<Part> second = first;
  ThreadSafePointers const on(true);
  EXPECT_EQ(first->references(), 2u);
  first = nullptr;
  EXPECT_EQ(destroyed, 0);
  second = nullptr;
  EXPECT_EQ(destroyed, 1);
}

}  // namespace
