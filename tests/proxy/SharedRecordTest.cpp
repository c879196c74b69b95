#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "proxy/ProxyAdapterSm.h"
#include "tests/TraceCapture.h"
#include "tests/proxy/SnoopedVlan.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Hosts that leave nothing out share a group's record as long as nobody could tell.
class SharedRecord : public SnoopedVlan {
 protected:
  SharedRecord() {
    for (auto const* const name : {"up1", "up2", "up3"}) proxyOn(name);
    reporter.include({s1});
    publish();
  }

  /// The record without a look that would be noticed.
  Igmp::IgmpV3GroupRecord const* peek(char const* name) const {
    return host(name)->v3group().peek(g1);
  }

  Reporter const reporter = port("swp1").reports(g1);
};

/// Writes down what it hears of a record and of its list.
class Listener {
 public:
  explicit Listener(Kel::Ptr<Igmp::IgmpV3GroupRecord> const& record)
      : record_(Kel::make<OfRecord>(record, heard)),
        list_(Kel::make<OfList>(record->source(), heard)) {}

  std::vector<std::string> heard;

 private:
  struct OfRecord : Igmp::IgmpV3GroupRecord::NotifieeConst {
    OfRecord(Kel::Ptr<Igmp::IgmpV3GroupRecord const> record, std::vector<std::string>& heard)
        : heard_(heard) {
      NotifieeConst::watch(std::move(record));
    }
    void onFilterMode() override { heard_.emplace_back("mode"); }
    void onSource() override { heard_.emplace_back("list"); }
    std::vector<std::string>& heard_;
  };
  struct OfList : Igmp::IgmpV3HostGroupSourceList::NotifieeConst {
    OfList(Kel::Ptr<Igmp::IgmpV3HostGroupSourceList const> list, std::vector<std::string>& heard)
        : heard_(heard) {
      NotifieeConst::watch(std::move(list));
    }
    void onSourceIp(IpAddr source) override {
      std::ostringstream text;
      text << (notifier()->sourceIp().contains(source) ? "+" : "-") << source;
      heard_.push_back(text.str());
    }
    std::vector<std::string>& heard_;
  };

  Kel::Ptr<OfRecord> record_;
  Kel::Ptr<OfList> list_;
};

TEST_F(SharedRecord, IsOneForAllHostsWithoutListeners) {
  ASSERT_NE(peek("up1"), nullptr);
  EXPECT_EQ(peek("up1"), peek("up2"));
  EXPECT_EQ(peek("up1"), peek("up3"));
}

TEST_F(SharedRecord, MemberPortHasItsOwn) {
  proxyOn("swp1");
  port("swp2").reports(g1).include({s2});
  publish();
  EXPECT_NE(peek("swp1"), peek("up1"));
  EXPECT_EQ(record("swp1"), including({s2}));
  EXPECT_EQ(record("up1"), including({s1, s2}));
}

TEST_F(SharedRecord, MemberPortThatWantsWhatAnotherWantsTooSharesIt) {
  for (auto const* const name : {"swp1", "swp2", "swp3"}) proxyOn(name);
  port("swp2").reports(g1).include({s1});
  port("swp3").reports(g1).include({s1, s2});
  publish();
  EXPECT_EQ(peek("swp1"), peek("up1"));
  EXPECT_EQ(peek("swp2"), peek("up1"));
  EXPECT_EQ(record("up1"), including({s1, s2}));
  EXPECT_NE(peek("swp3"), peek("up2"));
  EXPECT_EQ(record("swp3"), including({s1}));
}

TEST_F(SharedRecord, MemberPortPartsFromItWhenItComesToWantASourceAlone) {
  proxyOn("swp1");
  proxyOn("swp2");
  port("swp2").reports(g1).include({s1});
  publish();
  ASSERT_EQ(peek("swp1"), peek("up1"));
  reporter.include({s1, s2});
  publish();
  EXPECT_EQ(record("swp1"), including({s1}));
  EXPECT_EQ(record("swp2"), including({s1, s2}));
  reporter.include({s1});
  publish();
  EXPECT_EQ(peek("swp1"), peek("swp2"));
  EXPECT_EQ(record("swp1"), including({s1}));
}

TEST_F(SharedRecord, PortThatAloneWantsEverySourceHasItsOwn) {
  proxyOn("swp2");
  proxyOn("swp3");
  auto const everySource = port("swp2").reports(g1).exclude({});
  publish();
  EXPECT_EQ(record("swp2"), including({s1}));
  EXPECT_EQ(record("up1"), everything);
  port("swp3").reports(g1).exclude({});
  publish();
  EXPECT_EQ(peek("swp2"), peek("up2"));
  EXPECT_EQ(peek("swp3"), peek("up2"));
  EXPECT_EQ(record("swp2"), everything);
}

TEST_F(SharedRecord, MemberPortsHaveTheirOwnWhilePortsExcludeSources) {
  proxyOn("swp1");
  proxyOn("swp2");
  reporter.exclude({s1, s2});
  port("swp2").reports(g1).exclude({s2, s3});
  publish();
  EXPECT_EQ(record("swp1"), excluding({s2, s3}));
  EXPECT_EQ(record("swp2"), excluding({s1, s2}));
  EXPECT_EQ(record("up1"), excluding({s2}));
  EXPECT_NE(peek("swp1"), peek("up1"));
}

TEST_F(SharedRecord, OnlyPortLeftHasItsOwnThoughTheOneThatWentIsStillCounted) {
  proxyOn("swp1");
  port("swp2").reports(g1).include({s1});
  publish();
  port("swp2").isTakenOutOf(g1);
  group()->igmpHostChangedIs(true);
  publish();
  EXPECT_EQ(record("swp1"), including({s1}));
  EXPECT_TRUE(host("swp1")->v3group(g1)->heardBack());
  EXPECT_FALSE(host("up1")->v3group(g1)->heardBack());
}

TEST_F(SharedRecord, HeldRecordOfAMemberPortIsTheOneThatIsWritten) {
  proxyOn("swp1");
  port("swp2").reports(g1).include({s1});
  publish();
  auto const held = host("swp1")->v3group(g1);
  port("swp2").reports(g1).include({s1, s2});
  publish();
  EXPECT_EQ(host("swp1")->v3group(g1), held);
  EXPECT_EQ(record("swp1"), including({s1, s2}));
}

TEST_F(SharedRecord, MemberPortWhoseKeyComesLaterSharesToo) {
  port("swp2").reports(g1).include({s1});
  publish();
  proxyOn("swp1");
  EXPECT_EQ(peek("swp1"), peek("up1"));
}

TEST_F(SharedRecord, HostsThatComeInTheMiddleOfAnUpdateGetTheirs) {
  struct Grower : Igmp::IgmpHost::NotifieeConst {
    Grower(Kel::Ptr<Igmp::IgmpHost> const& host, std::function<void()> grow)
        : grow_(std::move(grow)) {
      watch(host);
    }
    void onV3group(IpAddr /*group*/) override { grow_(); }
    std::function<void()> grow_;
  };
  auto const grower = Kel::make<Grower>(host("up1"), [this] {
    for (int i = 0; i < 40; ++i) proxyOn(("new" + std::to_string(i)).c_str());
    status->newIgmpReportNotify();
  });
  port("swp1").reports(g2).include({s1});
  publish();
  for (auto const* const name : {"up1", "up2", "new0", "new39"})
    EXPECT_EQ(record(name, g2), including({s1})) << name;
}

TEST_F(SharedRecord, HostThatIsLookedAtGetsItsOwnWithTheSameContent) {
  auto const* const shared = peek("up2");
  auto const own = host("up1")->v3group(g1);
  EXPECT_NE(own.get(), shared);
  EXPECT_EQ(host("up1")->v3group(g1), own);
  EXPECT_EQ(peek("up2"), shared);
  EXPECT_EQ(record("up1"), including({s1}));
  EXPECT_EQ(own->group(), g1);
}

TEST_F(SharedRecord, WalkOverAHostsRecordsIsALook) {
  for (auto const& [address, record] : host("up1")->v3group()) EXPECT_NE(record.get(), peek("up2"));
  for (auto const& [address, record] : host("up1")->v3group()) EXPECT_EQ(record.get(), peek("up1"));
}

TEST_F(SharedRecord, WritingALookedAtRecordLeavesTheOthers) {
  host("up1")->v3group(g1)->sourceIs()->sourceIpIs(s4, 1);
  host("up2")->v3groupIs(g1)->filterModeIs(RecordType::modeIsExclude);
  EXPECT_EQ(record("up1"), including({s1, s4}));
  EXPECT_EQ(record("up2"), excluding({s1}));
  EXPECT_EQ(record("up3"), including({s1}));
}

TEST_F(SharedRecord, HeldRecordIsTheOneThatIsWritten) {
  auto const held = host("up1")->v3group(g1);
  reporter.include({s2, s3});
  publish();
  EXPECT_EQ(host("up1")->v3group(g1), held);
  EXPECT_EQ(held->source()->sourceIp().size(), 2u);
}

TEST_F(SharedRecord, HeldListIsTheOneThatIsWritten) {
  auto const held = host("up1")->v3group(g1)->source();
  reporter.include({s2, s3});
  publish();
  EXPECT_EQ(host("up1")->v3group(g1)->source(), held);
  EXPECT_TRUE(held->sourceIp().contains(s2));
}

TEST_F(SharedRecord, WatcherHearsEachChangeInItsOrder) {
  Listener const listener(host("up1")->v3group(g1));
  reporter.include({s2});
  publish();
  EXPECT_THAT(listener.heard, ElementsAre("-192.0.2.1", "+192.0.2.2"));
}

TEST_F(SharedRecord, WatcherHearsOfAnUnchangedRecordWrittenAnew) {
  Listener const listener(host("up1")->v3group(g1));
  group()->igmpHostChangedIs(true);
  publish();
  EXPECT_THAT(listener.heard, ElementsAre("-192.0.2.1", "+192.0.2.1"));
}

TEST_F(SharedRecord, RecordThatNobodyHoldsAnyMoreIsSharedAgain) {
  { Listener const listener(host("up1")->v3group(g1)); }
  EXPECT_NE(peek("up1"), peek("up2"));
  reporter.include({s2});
  publish();
  EXPECT_EQ(peek("up1"), peek("up2"));
  EXPECT_EQ(record("up1"), including({s2}));
}

TEST_F(SharedRecord, HeldRecordStaysWhenItsPortBecomesAMember) {
  auto const held = host("up1")->v3group(g1);
  port("up1").reports(g1).include({s2});
  publish();
  EXPECT_EQ(host("up1")->v3group(g1), held);
  EXPECT_EQ(record("up1"), including({s1}));
  EXPECT_EQ(record("up2"), including({s1, s2}));
}

TEST_F(SharedRecord, HostThatComesLaterSharesToo) {
  proxyOn("up4");
  EXPECT_EQ(peek("up4"), peek("up1"));
}

TEST_F(SharedRecord, HostThatLostItsKeyKeepsNothingAndDisturbsNobody) {
  config->hostKeyDel(key("up2"));
  EXPECT_TRUE(host("up2")->v3group().empty());
  EXPECT_EQ(record("up1"), including({s1}));
}

TEST_F(SharedRecord, SecondKeyOfAPortIsItsPortsTooWhateverItsVlan) {
  proxyOn("swp1");
  PortKey const other(VlanId(20), IntfId("swp1"));
  hosts->igmpHostIs(other.stringvalue());
  config->hostKeyIs(other, true);
  port("swp2").reports(g1).include({s1});
  publish();
  ASSERT_EQ(peek("swp1"), peek("up1"));
  reporter.include({s1, s2});
  publish();
  EXPECT_EQ(record("swp1"), including({s1}));
  EXPECT_FALSE(hosts->igmpHost(other.stringvalue())->v3group(g1)->source()->sourceIp(s2));
}

TEST_F(SharedRecord, HostThatIsOutOfReachKeepsWhatItHad) {
  auto const away = host("up2");
  hosts->igmpHostDel(key("up2").stringvalue());
  reporter.include({s2});
  publish();
  EXPECT_EQ(away->v3group(g1)->source()->sourceIp().size(), 1u);
  EXPECT_TRUE(away->v3group(g1)->source()->sourceIp().contains(s1));
}

TEST_F(SharedRecord, WatchedHostHearsOfRecordsThatComeAndGo) {
  struct Watcher : Igmp::IgmpHost::NotifieeConst {
    explicit Watcher(Kel::Ptr<Igmp::IgmpHost const> host) { watch(std::move(host)); }
    void onV3group(IpAddr address) override {
      heard.emplace_back(notifier()->v3group().contains(address) ? "comes" : "goes");
    }
    std::vector<std::string> heard;
  };
  auto const watcher = Kel::make<Watcher>(host("up1"));
  port("swp1").reports(g2).include({s1});
  publish();
  EXPECT_THAT(watcher->heard, ElementsAre("comes"));
  EXPECT_EQ(host("up1")->v3group().peek(g2), host("up2")->v3group().peek(g2));
  Reporter(snooped("swp1", r1, g2)).include({});
  publish();
  EXPECT_THAT(watcher->heard, ElementsAre("comes", "goes"));
  group(g2)->igmpHostChangedIs(true);
  publish();
  EXPECT_THAT(watcher->heard, ElementsAre("comes", "goes", "comes", "goes"))
      << "a record that nobody wants is made and removed";
}

TEST_F(SharedRecord, WatcherThatRemovesANewRecordIsHeeded) {
  struct Remover : Igmp::IgmpHost::NotifieeConst {
    explicit Remover(Kel::Ptr<Igmp::IgmpHost> host) : host_(host) { watch(std::move(host)); }
    void onV3group(IpAddr address) override { host_->v3groupDel(address); }
    Kel::Ptr<Igmp::IgmpHost> host_;
  };
  auto const remover = Kel::make<Remover>(host("up1"));
  port("swp1").reports(g2).include({s1});
  publish();
  EXPECT_FALSE(host("up1")->v3group().contains(g2));
  EXPECT_TRUE(host("up2")->v3group().contains(g2));
}

TEST_F(SharedRecord, WhoDoesNotHearOfRecordsSparesTheHostOneOfItsOwn) {
  struct Unconcerned : Igmp::IgmpHost::NotifieeConst {
    explicit Unconcerned(Kel::Ptr<Igmp::IgmpHost const> host) { watch(std::move(host)); }
    void onV3group(IpAddr /*group*/) override { ++calls; }
    void onV3groupHeard(bool* /*heard*/) override {}
    int calls = 0;
  };
  auto const unconcerned = Kel::make<Unconcerned>(host("up1"));
  port("swp1").reports(g2).include({s1});
  publish();
  EXPECT_EQ(host("up1")->v3group().peek(g2), host("up2")->v3group().peek(g2));
  EXPECT_EQ(unconcerned->calls, 0);
}

/// Calls back when a host's record of g1 changes its list.
struct AtChange : Igmp::IgmpV3HostGroupSourceList::NotifieeConst {
  AtChange(Kel::Ptr<Igmp::IgmpHost> const& host, std::function<void()> action)
      : action_(std::move(action)) {
    watch(host->v3group(g1)->source());
  }
  void onSourceIp(IpAddr /*source*/) override {
    if (auto const action = std::exchange(action_, nullptr)) action();
  }
  std::function<void()> action_;
};

TEST_F(SharedRecord, HandlerFindsTheFormerOneInHostsThatComeLater) {
  std::vector<bool> isNew;
  auto const watcher = Kel::make<AtChange>(host("up2"), [&] {
    for (auto const* const name : {"up1", "up3"})
      isNew.push_back(peek(name)->source()->sourceIp().contains(s2));
  });
  reporter.include({s2});
  publish();
  EXPECT_THAT(isNew, ElementsAre(true, false));
  for (auto const* const name : {"up1", "up2", "up3"}) EXPECT_EQ(record(name), including({s2}));
}

TEST_F(SharedRecord, HandlerThatChangesMoreHasItWrittenIntoHostsThatComeLater) {
  auto const watcher =
      Kel::make<AtChange>(host("up2"), [&] { group()->recordIs()->includeIs(s4, 1); });
  reporter.include({s2});
  publish();
  EXPECT_EQ(record("up1"), including({s2}));
  EXPECT_EQ(record("up3"), including({s2, s4}));
}

TEST_F(SharedRecord, HandlerThatTakesAKeyLeavesItsHostWithoutRecords) {
  auto const watcher = Kel::make<AtChange>(host("up2"), [&] { config->hostKeyDel(key("up3")); });
  reporter.include({s2});
  publish();
  EXPECT_EQ(record("up1"), including({s2}));
  EXPECT_TRUE(host("up3")->v3group().empty());
}

TEST_F(SharedRecord, TracesThatBeginInTheMiddleHaveTheRestWrittenInFull) {
  std::optional<TraceCapture> trace;
  auto const watcher = Kel::make<AtChange>(host("up2"), [&] { trace.emplace({4}); });
  reporter.include({s2});
  publish();
  ASSERT_TRUE(trace);
  EXPECT_THAT(trace->texts(), ::testing::Contains(::testing::HasSubstr("up3")));
  EXPECT_EQ(record("up3"), including({s2}));
}

TEST_F(SharedRecord, ClearingThatFindsAHostMissingLeavesTheOnesBehindIt) {
  struct Remover : Igmp::IgmpHost::NotifieeConst {
    Remover(Kel::Ptr<Igmp::IgmpHost const> host, std::function<void()> action)
        : action_(std::move(action)) {
      watch(std::move(host));
    }
    void onV3group(IpAddr /*group*/) override { action_(); }
    std::function<void()> action_;
  };
  auto const remover =
      Kel::make<Remover>(host("up1"), [&] { hosts->igmpHostDel(key("up2").stringvalue()); });
  status->groupDel(g1);
  EXPECT_EQ(peek("up1"), nullptr);
  EXPECT_NE(peek("up3"), nullptr);
}

TEST_F(SharedRecord, TracedUpdatesWriteEachHostsOwn) {
  {
    TraceCapture const trace({4});
    reporter.include({s2});
    publish();
  }
  EXPECT_NE(peek("up1"), peek("up2"));
  for (auto const* const name : {"up1", "up2", "up3"}) EXPECT_EQ(record(name), including({s2}));
}

TEST_F(SharedRecord, FollowsARenewedRecordOfTheGroup) {
  group()->recordDel();
  group()->recordIs()->includeIs(s4, 1);
  group()->igmpHostChangedIs(true);
  publish();
  EXPECT_EQ(record("up1"), including({s4}));
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
