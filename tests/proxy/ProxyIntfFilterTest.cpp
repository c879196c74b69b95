#include <functional>
#include <optional>
#include <string>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/proxy/PamTesting.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using namespace PamTraces;
using ::testing::Bool;
using ::testing::Combine;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::Field;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;
using ::testing::Values;

class ProxyIntfFilterTest : public ::testing::Test, protected PamInputs {
 protected:
  void start() { filter = ProxyIntfFilter::ProxyIntfFilterIs(pamDir, portVlanMap, decided); }

  bool wants(char const* intf) const { return decided->intfDesired(IntfId(intf)); }

  Kel::Ptr<Interface::PamDesiredIntfDir> decided =
      Kel::make<Interface::PamDesiredIntfDir>("decided");
  Kel::Ptr<ProxyIntfFilter> filter;
};

// ---- The decision

enum class Order : std::uint8_t { desireFirst, hostFirst, bothBeforeStart };
using Inputs = std::tuple<std::optional<bool>, bool, Order>;  // desired, hosted, order

class ProxyIntfFilterDecision : public ProxyIntfFilterTest,
                                public ::testing::WithParamInterface<Inputs> {
 protected:
  ProxyIntfFilterDecision() {
    if (order != Order::bothBeforeStart) start();
    if (order == Order::hostFirst) giveHost();
    if (isDesired) desire("swp1", *isDesired);
    if (order != Order::hostFirst) giveHost();
    if (order == Order::bothBeforeStart) start();
  }

  void giveHost() {
    if (hosted) host("swp1");
  }
  bool isWanted() const { return isDesired.value_or(false) && hosted; }

  std::optional<bool> const isDesired = std::get<0>(GetParam());
  bool const hosted = std::get<1>(GetParam());
  Order const order = std::get<2>(GetParam());
};

TEST_P(ProxyIntfFilterDecision, IsForInterfacesThatAreDesiredAndHosted) {
  EXPECT_EQ(wants("swp1"), isWanted());
  EXPECT_EQ(decided->intfDesired().size(), isWanted() ? 1u : 0u) << "others are not in it at all";
}

TEST_P(ProxyIntfFilterDecision, IsTakenBackWhenTheDesireGoes) {
  undesire("swp1");
  EXPECT_TRUE(decided->intfDesired().empty());
  unhost("swp1");
  EXPECT_TRUE(decided->intfDesired().empty());
}

TEST_P(ProxyIntfFilterDecision, IsTakenBackWhenTheHostsGo) {
  unhost("swp1");
  EXPECT_TRUE(decided->intfDesired().empty());
  undesire("swp1");
  EXPECT_TRUE(decided->intfDesired().empty());
}

TEST_P(ProxyIntfFilterDecision, FollowsADesireThatTurns) {
  desire("swp1", false);
  EXPECT_FALSE(wants("swp1"));
  desire("swp1", true);
  EXPECT_EQ(wants("swp1"), hosted);
}

TEST_P(ProxyIntfFilterDecision, FollowsHostsThatComeBack) {
  unhost("swp1");
  host("swp1");
  EXPECT_EQ(wants("swp1"), isDesired.value_or(false));
}

INSTANTIATE_TEST_SUITE_P(
    All, ProxyIntfFilterDecision,
    Combine(Values(std::optional<bool>(true), std::optional<bool>(false), std::nullopt), Bool(),
            Values(Order::desireFirst, Order::hostFirst, Order::bothBeforeStart)));

TEST_F(ProxyIntfFilterTest, DecidesForEachInterfaceByItself) {
  start();
  for (char const* const intf : {"swp1", "swp2"}) {
    desire(intf);
    host(intf);
  }
  unhost("swp1");
  host("swp3");
  EXPECT_FALSE(wants("swp1"));
  EXPECT_TRUE(wants("swp2"));
  EXPECT_FALSE(wants("swp3"));
}

TEST_F(ProxyIntfFilterTest, HostsOfAPortCountInWhateverVlanTheyAre) {
  start();
  desire("swp1");
  auto const port = portVlanMap->portInfoIs(IntfId("swp1"));
  port->vlanIs(VlanId(10), true);
  port->vlanDelAll();
  EXPECT_TRUE(wants("swp1")) << "the port's entry decides";
}

TEST_F(ProxyIntfFilterTest, TakesOutWhatIsNotDesiredWhenItStarts) {
  decided->intfDesiredIs(IntfId("swp1"), true);
  decided->intfDesiredIs(IntfId("swp2"), true);
  decided->intfDesiredIs(IntfId("swp3"), true);
  host("swp1");
  desire("swp2");
  start();
  EXPECT_FALSE(wants("swp1"));
  EXPECT_FALSE(wants("swp2"));
  EXPECT_TRUE(wants("swp3")) << "neither input speaks of it";
}

TEST_F(ProxyIntfFilterTest, WritesNothingThatIsThereAlready) {
  class Counter final : public Interface::PamDesiredIntfDir::NotifieeConst {
   public:
    explicit Counter(Kel::Ptr<Interface::PamDesiredIntfDir const> dir) { watch(std::move(dir)); }
    void onIntfDesired(IntfId) override { ++changes; }

    int changes = 0;
  };
  start();
  desire("swp1");
  host("swp1");
  auto const counter = Kel::make<Counter>(decided);
  filter->handlePort();
  filter->handlePort(IntfId("swp1"));
  filter->handlePort(IntfId("swp2"));
  EXPECT_EQ(counter->changes, 0);
}

// ---- The machine

TEST_F(ProxyIntfFilterTest, KnowsItsDirectories) {
  start();
  EXPECT_EQ(filter->pamDir(), pamDir);
  EXPECT_EQ(filter->portVlanMap(), portVlanMap);
  EXPECT_EQ(filter->desiredIntfDir(), decided);
}

TEST_F(ProxyIntfFilterTest, IsInitializedByItsFirstPass) {
  start();
  EXPECT_TRUE(filter->initialized());
  filter->initializedIs(false);
  EXPECT_FALSE(filter->initialized());
}

using ProxyIntfFilterDeathTest = ProxyIntfFilterTest;

TEST_F(ProxyIntfFilterDeathTest, NeedsToKnowWhatIsDesired) {
  EXPECT_DEATH(ProxyIntfFilter::ProxyIntfFilterIs(nullptr, portVlanMap, decided),
               "ProxyPam:[0-9]+: handlePort: assertion failed: pamDir\\(\\)\n");
}

TEST_F(ProxyIntfFilterDeathTest, NeedsToKnowWhereHostsAre) {
  EXPECT_DEATH(ProxyIntfFilter::ProxyIntfFilterIs(pamDir, nullptr, decided),
               "ProxyPam:[0-9]+: handlePort: assertion failed: portVlanMap\\(\\)\n");
}

TEST_F(ProxyIntfFilterDeathTest, MissesWhatIsDesiredFirst) {
  EXPECT_DEATH(ProxyIntfFilter::ProxyIntfFilterIs(nullptr, nullptr, decided), "pamDir\\(\\)\n");
}

TEST_F(ProxyIntfFilterTest, DoesNothingOnKeylessNotifications) {
  start();
  desire("swp1");
  host("swp1");
  decided->intfDesiredDel(IntfId("swp1"));
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  pamDir->intfDesiredNotify();
  portVlanMap->portInfoNotify();
  EXPECT_FALSE(wants("swp1"));
  EXPECT_THAT(trace.lines(), IsEmpty());
}

TEST_F(ProxyIntfFilterTest, LooksAgainOnNotificationsWithAKey) {
  start();
  desire("swp1");
  host("swp1");
  decided->intfDesiredDel(IntfId("swp1"));
  pamDir->intfDesiredNotify(IntfId("swp1"));
  EXPECT_TRUE(wants("swp1"));
  decided->intfDesiredDel(IntfId("swp1"));
  portVlanMap->portInfoNotify(IntfId("swp1"));
  EXPECT_TRUE(wants("swp1"));
}

TEST_F(ProxyIntfFilterTest, DoesNothingAsAZombie) {
  start();
  filter->kelDoZombieReactors(true);
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  desire("swp1");
  host("swp1");
  EXPECT_FALSE(wants("swp1"));
  EXPECT_THAT(trace.lines(), IsEmpty());
  filter->kelDoZombieReactors(false);
  desire("swp2");
  host("swp2");
  EXPECT_TRUE(wants("swp2"));
}

TEST_F(ProxyIntfFilterTest, DoesNothingWhileInactive) {
  start();
  filter->hasNotificationActiveIs(false);
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  desire("swp1");
  host("swp1");
  EXPECT_FALSE(wants("swp1"));
  EXPECT_THAT(trace.lines(), IsEmpty());
  filter->hasNotificationActiveIs(true);
  portVlanMap->portInfoNotify(IntfId("swp1"));
  pamDir->intfDesiredNotify(IntfId("swp1"));
  EXPECT_TRUE(wants("swp1"));
}

TEST_F(ProxyIntfFilterTest, DoesNothingOnceItIsGone) {
  start();
  EXPECT_EQ(filter->references(), 1u);
  filter = nullptr;
  desire("swp1");
  host("swp1");
  EXPECT_FALSE(wants("swp1"));
  EXPECT_EQ(pamDir->references(), 1u);
  EXPECT_EQ(portVlanMap->references(), 1u);
}

/// Hears of decisions.
class DecisionListener final : public Interface::PamDesiredIntfDir::NotifieeConst {
 public:
  DecisionListener(Kel::Ptr<Interface::PamDesiredIntfDir const> dir, std::function<void()> reaction)
      : reaction_(std::move(reaction)) {
    watch(std::move(dir));
  }
  void onIntfDesired(IntfId) override { reaction_(); }

 private:
  std::function<void()> reaction_;
};

TEST_F(ProxyIntfFilterTest, MayGoWhileItsDecisionIsHeard) {
  start();
  auto const listener = Kel::make<DecisionListener>(decided, [&] { filter = nullptr; });
  desire("swp1");
  host("swp1");
  EXPECT_EQ(filter, nullptr);
  EXPECT_TRUE(wants("swp1"));
}

TEST_F(ProxyIntfFilterTest, MayGoWhileItsFirstDecisionOfManyIsHeard) {
  for (char const* const intf : {"swp1", "swp2"}) {
    desire(intf);
    host(intf);
  }
  start();
  decided->intfDesiredDelAll();
  auto const listener = Kel::make<DecisionListener>(decided, [&] { filter = nullptr; });
  filter->handlePort();
  EXPECT_EQ(filter, nullptr);
  EXPECT_TRUE(wants("swp2")) << "the pass went on";
}

TEST_F(ProxyIntfFilterTest, DecisionMayBeUndoneByWhoHearsOfIt) {
  start();
  desire("swp1");
  auto const listener = Kel::make<DecisionListener>(decided, [&] { unhost("swp1"); });
  host("swp1");
  EXPECT_FALSE(wants("swp1"));
}

// ---- What is traced

TEST_F(ProxyIntfFilterTest, TracesItsFirstPass) {
  desire("swp1");
  desire("swp2", false);
  host("swp1");
  host("swp3");
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  start();
  EXPECT_THAT(trace.texts(), ElementsAre(everyPort(), port("swp1"), desired("swp1"), port("swp2"),
                                         notDesired("swp2"), port("swp1"), desired("swp1"),
                                         port("swp3"), notDesired("swp3")));
  EXPECT_THAT(functionsOf(trace), Each("handlePort"));
}

TEST_F(ProxyIntfFilterTest, TracesEachDecision) {
  start();
  TraceCapture const trace = TraceCapture::ofEveryLevel(TraceCapture::pam);
  host("swp1");
  desire("swp1");
  desire("swp1", false);
  undesire("swp1");
  unhost("swp1");
  EXPECT_THAT(trace.texts(),
              ElementsAre(port("swp1"), notDesired("swp1"), port("swp1"), desired("swp1"),
                          port("swp1"), notDesired("swp1"), port("swp1"), notDesired("swp1"),
                          port("swp1"), notDesired("swp1")));
  EXPECT_THAT(functionsOf(trace), Each("handlePort"));
  EXPECT_THAT(trace.lines(), Each(Field(&TraceCapture::Line::sourceFile, "ProxyPam")));
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
