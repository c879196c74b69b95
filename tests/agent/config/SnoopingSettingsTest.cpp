#include <functional>
#include <ostream>
#include <string>

#include "tests/agent/config/ConfigurationTesting.h"

namespace Agent {
namespace {

using Bridging::IgmpSnooping::GroupRange;
using std::chrono::seconds;
using testing::ElementsAre;
using Wirex::IpAddr;

TEST(SnoopingSettings, DefaultsWhenTheFileIsSilent) {
  SnoopingSettings const settings = configurationIn("[[vlan]]\nid = 10").vlans.at(0).settings;
  EXPECT_EQ(settings.robustnessVariable, 2u);
  EXPECT_EQ(settings.queryInterval, seconds(125));
  EXPECT_EQ(settings.queryMaxResponseTime, seconds(10));
  EXPECT_EQ(settings.lastMemberQueryInterval, seconds(1));
  EXPECT_FALSE(settings.fastLeave);
  EXPECT_FALSE(settings.requireRouterAlert);
  EXPECT_FALSE(settings.sendQuery);
  EXPECT_EQ(settings.querierSource, std::nullopt);
  EXPECT_EQ(settings.senderSourceAddress, std::nullopt);
  EXPECT_EQ(settings.reportOn, ReportOn::mrouters);
  EXPECT_EQ(settings.ssmRange, GroupRange(IpAddr(232, 0, 0, 0), 8));
  EXPECT_EQ(settings.maxGroups, 4096u);
  EXPECT_EQ(settings.maxInterfaceGroups, 2048u);
  EXPECT_EQ(settings.maxInterfaceMemberships, 16384u);
  EXPECT_EQ(settings.maxGroupSources, 512u);
  EXPECT_EQ(settings.maxInterfaceSources, 16384u);
}

struct Setting {
  std::string line;
  std::function<void(SnoopingSettings&)> effect;
};

void PrintTo(Setting const& setting, std::ostream* out) {
  *out << setting.line;
}

class EverySetting : public testing::TestWithParam<Setting> {
 protected:
  /// What the defaults become by the line under test.
  static SnoopingSettings changedSettings() {
    SnoopingSettings settings;
    GetParam().effect(settings);
    return settings;
  }
};

TEST_P(EverySetting, InDefaultsHoldsForAllVlans) {
  auto const vlans =
      configurationIn("[defaults]\n" + GetParam().line + "\n[[vlan]]\nid = 1\n[[vlan]]\nid = 2")
          .vlans;
  ASSERT_EQ(vlans.size(), 2u);
  EXPECT_EQ(vlans[0].settings, changedSettings());
  EXPECT_EQ(vlans[1].settings, changedSettings());
}

TEST_P(EverySetting, InAVlanHoldsThereOnly) {
  auto const vlans =
      configurationIn("[[vlan]]\nid = 1\n" + GetParam().line + "\n[[vlan]]\nid = 2").vlans;
  ASSERT_EQ(vlans.size(), 2u);
  EXPECT_EQ(vlans[0].settings, changedSettings());
  EXPECT_EQ(vlans[1].settings, SnoopingSettings{});
}

INSTANTIATE_TEST_SUITE_P(
    SnoopingSettings, EverySetting,
    testing::Values(
        Setting{"robustness-variable = 1", [](auto& s) { s.robustnessVariable = 1; }},
        Setting{"robustness-variable = 7", [](auto& s) { s.robustnessVariable = 7; }},
        Setting{"query-interval = 11", [](auto& s) { s.queryInterval = seconds(11); }},
        Setting{"query-interval = 31744", [](auto& s) { s.queryInterval = seconds(31744); }},
        Setting{"query-max-response-time = 1",
                [](auto& s) { s.queryMaxResponseTime = seconds(1); }},
        Setting{"query-max-response-time = 124",
                [](auto& s) { s.queryMaxResponseTime = seconds(124); }},
        Setting{"last-member-query-interval = 2",
                [](auto& s) { s.lastMemberQueryInterval = seconds(2); }},
        Setting{"last-member-query-interval = 1023",
                [](auto& s) { s.lastMemberQueryInterval = seconds(1023); }},
        Setting{"fast-leave = true", [](auto& s) { s.fastLeave = true; }},
        Setting{"require-router-alert = true", [](auto& s) { s.requireRouterAlert = true; }},
        Setting{"send-query = true", [](auto& s) { s.sendQuery = true; }},
        Setting{"querier-source = \"192.0.2.1\"",
                [](auto& s) { s.querierSource = IpAddr(192, 0, 2, 1); }},
        Setting{"querier-source = \"0.0.0.0\"", [](auto& s) { s.querierSource = IpAddr(); }},
        Setting{"sender-source-address = \"auto\"", [](auto&) {}},
        Setting{"sender-source-address = \"223.255.255.255\"",
                [](auto& s) { s.senderSourceAddress = IpAddr(223, 255, 255, 255); }},
        Setting{"report-on = \"all\"", [](auto& s) { s.reportOn = ReportOn::all; }},
        Setting{"ssm-range = \"239.1.0.0/16\"",
                [](auto& s) { s.ssmRange = GroupRange(IpAddr(239, 1, 0, 0), 16); }},
        Setting{"ssm-range = \"none\"", [](auto& s) { s.ssmRange = GroupRange(); }},
        Setting{"max-interface-groups = 0", [](auto& s) { s.maxInterfaceGroups = 0; }},
        Setting{"max-interface-memberships = 7", [](auto& s) { s.maxInterfaceMemberships = 7; }},
        Setting{"max-interface-sources = 8", [](auto& s) { s.maxInterfaceSources = 8; }},
        Setting{"max-groups = 1000", [](auto& s) { s.maxGroups = 1000; }},
        Setting{"max-groups = 4294967295", [](auto& s) { s.maxGroups = 4294967295; }},
        Setting{"max-group-sources = 4294967295",
                [](auto& s) { s.maxGroupSources = 4294967295; }}));

TEST(SnoopingSettings, VlanRestoresWhatDefaultsChanged) {
  auto const configuration = configurationIn(R"([defaults]
fast-leave = true
report-on = "all"
querier-source = "192.0.2.1"
[[vlan]]
id = 10
fast-leave = false
report-on = "mrouters"
querier-source = "auto"
)");
  EXPECT_EQ(configuration.vlans.at(0).settings, SnoopingSettings{});
}

TEST(SnoopingSettings, DefaultsMayFollowTheVlans) {
  auto const configuration =
      configurationIn("[[vlan]]\nid = 10\n[defaults]\nrobustness-variable = 3");
  EXPECT_EQ(configuration.vlans.at(0).settings.robustnessVariable, 3u);
}

TEST(SnoopingSettings, VlanOfARangeHasTheSettingsOfItsTable) {
  auto const vlans = configurationIn("[[vlan]]\nid = \"10-11\"\nmax-groups = 5").vlans;
  ASSERT_EQ(vlans.size(), 2u);
  EXPECT_EQ(vlans[0].settings.maxGroups, 5u);
  EXPECT_EQ(vlans[1].settings.maxGroups, 5u);
}

struct BadSetting {
  std::string line;
  std::string place;
  std::string text;
};

void PrintTo(BadSetting const& setting, std::ostream* out) {
  *out << setting.line;
}

class EveryBadSetting : public testing::TestWithParam<BadSetting> {};

TEST_P(EveryBadSetting, IsRefusedInDefaults) {
  auto const& [line, column, text] = GetParam();
  EXPECT_THAT(errorsIn("[defaults]\n" + line), ElementsAre("test.toml:2:" + column + ": " + text));
}

TEST_P(EveryBadSetting, IsRefusedInAVlan) {
  auto const& [line, column, text] = GetParam();
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 10\n" + line),
              ElementsAre("test.toml:3:" + column + ": " + text));
}

INSTANTIATE_TEST_SUITE_P(
    OutOfRange, EveryBadSetting,
    testing::Values(
        BadSetting{"robustness-variable = 0", "23",
                   "robustness-variable = 0 is out of range; give an integer from 1 to 7"},
        BadSetting{"robustness-variable = 8", "23",
                   "robustness-variable = 8 is out of range; give an integer from 1 to 7"},
        BadSetting{"query-interval = 0", "18",
                   "query-interval = 0 is out of range; give whole seconds from 1 to 31744"},
        BadSetting{"query-interval = 31745", "18",
                   "query-interval = 31745 is out of range; give whole seconds from 1 to 31744"},
        BadSetting{"query-max-response-time = 0", "27",
                   "query-max-response-time = 0 is out of range; "
                   "give whole seconds from 1 to 3174"},
        BadSetting{"query-max-response-time = 3175", "27",
                   "query-max-response-time = 3175 is out of range; "
                   "give whole seconds from 1 to 3174"},
        BadSetting{"last-member-query-interval = 0", "30",
                   "last-member-query-interval = 0 is out of range; "
                   "give whole seconds from 1 to 1023"},
        BadSetting{"last-member-query-interval = 1024", "30",
                   "last-member-query-interval = 1024 is out of range; "
                   "give whole seconds from 1 to 1023"},
        BadSetting{"ssm-range = \"232.0.0.0\"", "13",
                   "ssm-range \"232.0.0.0\" is not a range of group addresses; give one in "
                   "quotes, as in \"232.0.0.0/8\", or \"none\""},
        BadSetting{"ssm-range = \"10.0.0.0/8\"", "13",
                   "ssm-range \"10.0.0.0/8\" is not a range of group addresses; give one in "
                   "quotes, as in \"232.0.0.0/8\", or \"none\""},
        BadSetting{"ssm-range = \"232.0.0.0/33\"", "13",
                   "ssm-range \"232.0.0.0/33\" is not a range of group addresses; give one in "
                   "quotes, as in \"232.0.0.0/8\", or \"none\""},
        BadSetting{"ssm-range = 232", "13",
                   "ssm-range is an integer; give one in quotes, as in \"232.0.0.0/8\", or "
                   "\"none\""},
        BadSetting{"max-groups = -1", "14",
                   "max-groups = -1 is out of range; give an integer from 0 to 4294967295"},
        BadSetting{"max-group-sources = 4294967296", "21",
                   "max-group-sources = 4294967296 is out of range; "
                   "give an integer from 0 to 4294967295"},
        BadSetting{"report-on = \"some\"", "13",
                   "report-on = \"some\" is unknown; give \"mrouters\" or \"all\""},
        BadSetting{"report-on = \"All\"", "13",
                   "report-on = \"All\" is unknown; give \"mrouters\" or \"all\""},
        BadSetting{"querier-source = \"300.0.2.1\"", "18",
                   "querier-source \"300.0.2.1\" is not an IPv4 address; "
                   "give an IPv4 address in quotes, as in \"192.0.2.1\", or \"auto\""},
        BadSetting{"sender-source-address = \"2001:db8::1\"", "25",
                   "sender-source-address \"2001:db8::1\" is not an IPv4 address; "
                   "give an IPv4 address in quotes, as in \"192.0.2.1\", or \"auto\""},
        BadSetting{"querier-source = \"\"", "18",
                   "querier-source \"\" is not an IPv4 address; "
                   "give an IPv4 address in quotes, as in \"192.0.2.1\", or \"auto\""},
        BadSetting{"querier-source = \"224.0.0.1\"", "18",
                   "querier-source 224.0.0.1 cannot be the source of a packet; "
                   "give a unicast address, 0.0.0.0 or \"auto\""},
        BadSetting{"querier-source = \"0.0.0.1\"", "18",
                   "querier-source 0.0.0.1 cannot be the source of a packet; "
                   "give a unicast address, 0.0.0.0 or \"auto\""},
        BadSetting{"sender-source-address = \"255.255.255.255\"", "25",
                   "sender-source-address 255.255.255.255 cannot be the source of a packet; "
                   "give a unicast address, 0.0.0.0 or \"auto\""},
        BadSetting{"sender-source-address = \"127.0.0.1\"", "25",
                   "sender-source-address 127.0.0.1 cannot be the source of a packet; "
                   "give a unicast address, 0.0.0.0 or \"auto\""}));

INSTANTIATE_TEST_SUITE_P(
    WrongType, EveryBadSetting,
    testing::Values(
        BadSetting{"robustness-variable = \"2\"", "23",
                   "robustness-variable is a text; give an integer from 1 to 7"},
        BadSetting{"query-interval = 12.5", "18",
                   "query-interval is a floating-point number; "
                   "give whole seconds from 1 to 31744"},
        BadSetting{"query-max-response-time = 00:00:10", "27",
                   "query-max-response-time is a date or time; give whole seconds from 1 to 3174"},
        BadSetting{"last-member-query-interval = [1]", "30",
                   "last-member-query-interval is a list; give whole seconds from 1 to 1023"},
        BadSetting{"fast-leave = 1", "14", "fast-leave is an integer; give true or false"},
        BadSetting{"require-router-alert = \"true\"", "24",
                   "require-router-alert is a text; give true or false"},
        BadSetting{"send-query = {}", "14", "send-query is a table; give true or false"},
        BadSetting{"querier-source = 0", "18",
                   "querier-source is an integer; "
                   "give an IPv4 address in quotes, as in \"192.0.2.1\", or \"auto\""},
        BadSetting{"sender-source-address = false", "25",
                   "sender-source-address is a boolean; "
                   "give an IPv4 address in quotes, as in \"192.0.2.1\", or \"auto\""},
        BadSetting{"report-on = [\"all\"]", "13",
                   "report-on is a list; give \"mrouters\" or \"all\""},
        BadSetting{"max-groups = true", "14",
                   "max-groups is a boolean; give an integer from 0 to 4294967295"},
        BadSetting{"max-group-sources = 1979-05-27", "21",
                   "max-group-sources is a date or time; give an integer from 0 to 4294967295"}));

TEST(SnoopingSettings, ResponseTimeStaysBelowTheQueryInterval) {
  std::string const remedy = "; shorten the one or lengthen the other";
  EXPECT_THAT(errorsIn("[defaults]\nquery-interval = 20\nquery-max-response-time = 20"),
              ElementsAre("test.toml:3:27: query-max-response-time (20) is not below "
                          "query-interval (20)" +
                          remedy));
  EXPECT_THAT(errorsIn("[defaults]\nquery-max-response-time = 125"),
              ElementsAre("test.toml:2:27: query-max-response-time (125) is not below "
                          "query-interval (125)" +
                          remedy));
  EXPECT_THAT(errorsIn("[defaults]\nquery-interval = 10"),
              ElementsAre("test.toml:2:18: query-max-response-time (10) is not below "
                          "query-interval (10)" +
                          remedy));
}

TEST(SnoopingSettings, VlanAndDefaultsTogetherKeepTheResponseTimeBelowTheQueryInterval) {
  EXPECT_THAT(errorsIn(R"([defaults]
query-max-response-time = 30
[[vlan]]
id = 10
query-interval = 25
)"),
              ElementsAre("test.toml:5:18: query-max-response-time (30) is not below "
                          "query-interval (25); shorten the one or lengthen the other"));
}

TEST(SnoopingSettings, RefusedValueIsNotComparedWithAnother) {
  EXPECT_THAT(errorsIn("[defaults]\nquery-interval = 0\nquery-max-response-time = 200"),
              ElementsAre("test.toml:2:18: query-interval = 0 is out of range; "
                          "give whole seconds from 1 to 31744"));
}

}  // namespace
}  // namespace Agent
