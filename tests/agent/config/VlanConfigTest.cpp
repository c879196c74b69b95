#include <string>
#include <vector>

#include "tests/agent/config/ConfigurationTesting.h"

namespace Agent {
namespace {

using Bridging::VlanId;
using Bridging::VlanType;
using Bridging::VlanTypeAndPrimaryVlan;
using Igmp::IgmpVersion;
using testing::ElementsAre;
using testing::IsEmpty;
using Wirex::IntfId;

// One line, so that a VLAN's own lines begin at line 2.
std::string const fivePorts = "interface = [ { name = \"swp[1-5]\" } ]\n";

std::vector<VlanId> idsIn(std::string const& id) {
  std::vector<VlanId> ids;
  for (VlanConfig const& vlan : configurationIn("[[vlan]]\nid = " + id).vlans) {
    ids.push_back(vlan.vlanId);
  }
  return ids;
}

TEST(VlanConfig, DefaultsWhenOnlyNumbered) {
  auto const vlans = configurationIn("[[vlan]]\nid = 10").vlans;
  ASSERT_EQ(vlans.size(), 1u);
  EXPECT_EQ(vlans[0].vlanId, VlanId(10));
  EXPECT_TRUE(vlans[0].proxy);
  EXPECT_EQ(vlans[0].querierVersion, std::nullopt);
  EXPECT_EQ(vlans[0].privateRole, VlanTypeAndPrimaryVlan{});
  EXPECT_THAT(vlans[0].members, IsEmpty());
}

TEST(VlanConfig, IdIsANumberOrARange) {
  EXPECT_THAT(idsIn("1"), ElementsAre(VlanId(1)));
  EXPECT_THAT(idsIn("4094"), ElementsAre(VlanId(4094)));
  EXPECT_THAT(idsIn("\"10\""), ElementsAre(VlanId(10)));
  EXPECT_THAT(idsIn("\"10-12\""), ElementsAre(VlanId(10), VlanId(11), VlanId(12)));
  EXPECT_THAT(idsIn("\"20,10-11\""), ElementsAre(VlanId(10), VlanId(11), VlanId(20)));
  EXPECT_EQ(idsIn("\"1-4094\"").size(), 4094u);
}

TEST(VlanConfig, VlansAreSortedByNumber) {
  auto const vlans = configurationIn("[[vlan]]\nid = 20\n[[vlan]]\nid = 9").vlans;
  ASSERT_EQ(vlans.size(), 2u);
  EXPECT_EQ(vlans[0].vlanId, VlanId(9));
  EXPECT_EQ(vlans[1].vlanId, VlanId(20));
}

TEST(VlanConfig, ProxyCanBeSwitchedOff) {
  EXPECT_FALSE(configurationIn("[[vlan]]\nid = 10\nproxy = false").vlans.at(0).proxy);
  EXPECT_TRUE(configurationIn("[[vlan]]\nid = 10\nproxy = true").vlans.at(0).proxy);
}

TEST(VlanConfig, QuerierSpeaksItsVersion) {
  auto const versionIn = [](std::string const& querier) {
    return configurationIn("[[vlan]]\nid = 10\nquerier = " + querier).vlans.at(0).querierVersion;
  };
  EXPECT_EQ(versionIn("{ igmp-version = 1 }"), IgmpVersion::v1);
  EXPECT_EQ(versionIn("{ igmp-version = 2 }"), IgmpVersion::v2);
  EXPECT_EQ(versionIn("{ igmp-version = 3 }"), IgmpVersion::v3);
  EXPECT_EQ(versionIn("{}"), IgmpVersion::v3);
}

TEST(VlanConfig, QuerierMayBeATableOfItsOwn) {
  EXPECT_EQ(configurationIn("[[vlan]]\nid = 10\n[vlan.querier]\nigmp-version = 2")
                .vlans.at(0)
                .querierVersion,
            IgmpVersion::v2);
}

TEST(VlanConfig, MembersAreTheUntaggedOnesThenTheTaggedOnes) {
  auto const vlans = configurationIn(fivePorts + R"([[vlan]]
id = 10
tagged-interfaces = ["swp[3-4]"]
interfaces = ["swp2", "swp1"]
static-bridge-mrouter-interface = ["swp4", "swp1"]
)")
                         .vlans;
  ASSERT_EQ(vlans.size(), 1u);
  EXPECT_THAT(
      vlans[0].members,
      ElementsAre(VlanMember{IntfId("swp2"), false, false}, VlanMember{IntfId("swp1"), false, true},
                  VlanMember{IntfId("swp3"), true, false}, VlanMember{IntfId("swp4"), true, true}));
}

TEST(VlanConfig, StaticMrouterInterfacesMayBeARange) {
  auto const vlans = configurationIn(fivePorts + R"([[vlan]]
id = 10
interfaces = ["swp[1-2]"]
static-bridge-mrouter-interface = ["swp[1-2]"]
)")
                         .vlans;
  ASSERT_EQ(vlans.size(), 1u);
  EXPECT_THAT(vlans[0].members, ElementsAre(VlanMember{IntfId("swp1"), false, true},
                                            VlanMember{IntfId("swp2"), false, true}));
}

TEST(VlanConfig, InterfaceMayBeTaggedInManyVlansAndUntaggedInOne) {
  EXPECT_THAT(errorsIn(fivePorts + R"([[vlan]]
id = "10-19"
tagged-interfaces = ["swp1"]
[[vlan]]
id = 20
interfaces = ["swp1"]
)"),
              IsEmpty());
}

TEST(VlanConfig, InterfacesMayBeDefinedAfterTheVlan) {
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 10\ninterfaces = [\"swp1\"]\n"
                       "[[interface]]\nname = \"swp1\""),
              IsEmpty());
}

TEST(VlanConfig, IdIsRequired) {
  EXPECT_THAT(errorsIn("[[vlan]]\nproxy = true"),
              ElementsAre("test.toml:1:1: [[vlan]] has no id; "
                          "add id = 10, or a range, id = \"10-19\""));
}

TEST(VlanConfig, IdIsAVlanNumber) {
  std::string const remedy =
      "; give a VLAN number from 1 to 4094, or a range in quotes, as in \"10-19\"";
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 0"),
              ElementsAre("test.toml:2:6: id 0 is out of range" + remedy));
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 4095"),
              ElementsAre("test.toml:2:6: id 4095 is out of range" + remedy));
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 65546"),
              ElementsAre("test.toml:2:6: id 65546 is out of range" + remedy));
  EXPECT_THAT(errorsIn("[[vlan]]\nid = -1"),
              ElementsAre("test.toml:2:6: id -1 is out of range" + remedy));
  EXPECT_THAT(errorsIn("[[vlan]]\nid = \"4090-4099\""),
              ElementsAre("test.toml:2:6: id 4095 is out of range" + remedy));
  EXPECT_THAT(errorsIn("[[vlan]]\nid = true"),
              ElementsAre("test.toml:2:6: id is a boolean" + remedy));
}

TEST(VlanConfig, BadIdRangeIsRefused) {
  EXPECT_THAT(errorsIn("[[vlan]]\nid = \"19-10\""),
              ElementsAre("test.toml:2:6: id: range \"19-10\" runs downwards; write 10-19"));
  EXPECT_THAT(errorsIn("[[vlan]]\nid = \"ten\""),
              ElementsAre("test.toml:2:6: id: \"ten\" is no number; "
                          "write ranges as in 1-5 or 1,3-5, without blanks"));
}

TEST(VlanConfig, VlanIsDefinedOnce) {
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 10\n[[vlan]]\nid = \"10\""),
              ElementsAre("test.toml:4:6: VLAN 10 is already defined in line 2; "
                          "define each VLAN once"));
}

TEST(VlanConfig, OverlappingRangesAreReportedOnce) {
  EXPECT_THAT(errorsIn("[[vlan]]\nid = \"10-19\"\n[[vlan]]\nid = \"15-30\""),
              ElementsAre("test.toml:4:6: VLAN 15 is already defined in line 2; "
                          "define each VLAN once"));
}

TEST(VlanConfig, ProxyIsTrueOrFalse) {
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 10\nproxy = 1"),
              ElementsAre("test.toml:3:9: proxy is an integer; give true or false"));
}

TEST(VlanConfig, QuerierIsATable) {
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 10\nquerier = 3"),
              ElementsAre("test.toml:3:11: querier is an integer; "
                          "write querier = { igmp-version = 3 }"));
}

TEST(VlanConfig, QuerierVersionIsOneToThree) {
  for (std::string const version : {"0", "4"}) {
    EXPECT_THAT(errorsIn("[[vlan]]\nid = 10\nquerier = { igmp-version = " + version + " }"),
                ElementsAre("test.toml:3:28: igmp-version = " + version +
                            " is out of range; give an integer from 1 to 3"));
  }
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 10\nquerier = { igmp-version = \"v3\" }"),
              ElementsAre("test.toml:3:28: igmp-version is a text; give an integer from 1 to 3"));
}

TEST(VlanConfig, UnknownQuerierKeyIsRefused) {
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 10\nquerier = { igmp-versoin = 3 }"),
              ElementsAre("test.toml:3:13: unknown key \"igmp-versoin\" in querier; "
                          "did you mean \"igmp-version\"?"));
}

TEST(VlanConfig, InterfaceListIsAListOfTexts) {
  EXPECT_THAT(errorsIn(fivePorts + "[[vlan]]\nid = 10\ninterfaces = \"swp1\""),
              ElementsAre("test.toml:4:14: interfaces is a text; "
                          "give a list, as in [\"swp1\", \"swp[3-4]\"]"));
  EXPECT_THAT(errorsIn(fivePorts + "[[vlan]]\nid = 10\ntagged-interfaces = { swp1 = true }"),
              ElementsAre("test.toml:4:21: tagged-interfaces is a table; "
                          "give a list, as in [\"swp1\", \"swp[3-4]\"]"));
  EXPECT_THAT(errorsIn(fivePorts + "[[vlan]]\nid = 10\ninterfaces = [\"swp1\", 2]"),
              ElementsAre("test.toml:4:23: interface name is an integer; "
                          "give a name in quotes, as in \"swp1\""));
  EXPECT_THAT(errorsIn(fivePorts + "[[vlan]]\nid = 10\nstatic-bridge-mrouter-interface = true"),
              ElementsAre("test.toml:4:35: static-bridge-mrouter-interface is a boolean; "
                          "give a list, as in [\"swp1\", \"swp[3-4]\"]"));
}

TEST(VlanConfig, BadInterfaceNameIsRefusedWhereItStands) {
  EXPECT_THAT(errorsIn(fivePorts + "[[vlan]]\nid = 10\ninterfaces = [\n  \"swp1\",\n  \"swp[\"\n]"),
              ElementsAre("test.toml:6:3: interface name \"swp[\" has a bracket without its "
                          "partner; write ranges as in \"swp[1-5]\""));
}

TEST(VlanConfig, MemberMustBeDefined) {
  EXPECT_THAT(errorsIn(fivePorts + "[[vlan]]\nid = 10\ninterfaces = [\"swp9\"]"),
              ElementsAre("test.toml:4:15: interface swp9 is not defined; "
                          "add an [[interface]] with name = \"swp9\""));
  EXPECT_THAT(errorsIn(fivePorts + "[[vlan]]\nid = 10\ntagged-interfaces = [\"swp[4-7]\"]"),
              ElementsAre("test.toml:4:22: interface swp6 is not defined; "
                          "add an [[interface]] with name = \"swp6\""));
}

TEST(VlanConfig, RefusedDefinitionDoesNotMakeItsUsersErrors) {
  EXPECT_THAT(errorsIn(R"([[interface]]
name = "swp[1-5"
[[vlan]]
id = 10
interfaces = ["swp1"]
)"),
              ElementsAre("test.toml:2:8: interface name \"swp[1-5\" has a bracket without its "
                          "partner; write ranges as in \"swp[1-5]\""));
}

TEST(VlanConfig, InterfaceIsListedOnce) {
  EXPECT_THAT(errorsIn(fivePorts + "[[vlan]]\nid = 10\ninterfaces = [\"swp1\", \"swp1\"]"),
              ElementsAre("test.toml:4:23: interface swp1 is listed twice; list it once"));
  EXPECT_THAT(errorsIn(fivePorts + "[[vlan]]\nid = 10\ntagged-interfaces = [\"swp[1,1]\"]"),
              ElementsAre("test.toml:4:22: interface swp1 is listed twice; list it once"));
}

TEST(VlanConfig, MemberIsEitherTaggedOrUntagged) {
  EXPECT_THAT(errorsIn(fivePorts + R"([[vlan]]
id = 10
tagged-interfaces = ["swp[1-5]"]
interfaces = ["swp2"]
)"),
              ElementsAre("test.toml:4:22: interface swp2 is both untagged and tagged in this "
                          "VLAN; take it out of one of the lists"));
}

TEST(VlanConfig, InterfaceIsUntaggedInOneVlan) {
  EXPECT_THAT(errorsIn(fivePorts + R"([[vlan]]
id = 10
interfaces = ["swp1"]
[[vlan]]
id = 20
interfaces = ["swp2", "swp1"]
)"),
              ElementsAre("test.toml:7:23: interface swp1 is untagged in VLAN 10 (line 4) and in "
                          "VLAN 20; make it a tagged member of all but one"));
}

TEST(VlanConfig, InterfaceIsUntaggedInOneVlanOfARange) {
  EXPECT_THAT(errorsIn(fivePorts + "[[vlan]]\nid = \"10-19\"\ninterfaces = [\"swp1\"]"),
              ElementsAre("test.toml:4:15: interface swp1 is untagged in VLAN 10 (line 4) and in "
                          "VLAN 11; make it a tagged member of all but one"));
}

TEST(VlanConfig, StaticMrouterInterfaceIsAMember) {
  EXPECT_THAT(errorsIn(fivePorts + R"([[vlan]]
id = 10
interfaces = ["swp1"]
static-bridge-mrouter-interface = ["swp2"]
)"),
              ElementsAre("test.toml:5:36: interface swp2 is not a member of this VLAN; "
                          "add it to interfaces or tagged-interfaces"));
}

TEST(VlanConfig, UnknownKeyIsRefusedWithTheNearestKnownOne) {
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 10\nquery_interval = 5"),
              ElementsAre("test.toml:3:1: unknown key \"query_interval\" in [[vlan]]; "
                          "did you mean \"query-interval\"?"));
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 10\nuntagged-interfaces = []"),
              ElementsAre("test.toml:3:1: unknown key \"untagged-interfaces\" in [[vlan]]; "
                          "did you mean \"tagged-interfaces\"?"));
}

TEST(VlanConfig, TablesNeedDoubleBrackets) {
  EXPECT_THAT(errorsIn("[vlan]\nid = 10"),
              ElementsAre("test.toml:1:1: vlan is a table; write [[vlan]] in double brackets"));
}

TEST(PrivateVlan, NamesItsPrimary) {
  auto const vlans = configurationIn(R"([[vlan]]
id = 20
private = { type = "isolated", primary = 10 }
[[vlan]]
id = "30-31"
private = { type = "community", primary = 10 }
[[vlan]]
id = 10
)")
                         .vlans;
  ASSERT_EQ(vlans.size(), 4u);
  EXPECT_EQ(vlans[0].privateRole, VlanTypeAndPrimaryVlan{});
  EXPECT_EQ(vlans[1].privateRole, VlanTypeAndPrimaryVlan(VlanType::isolated, VlanId(10)));
  EXPECT_EQ(vlans[2].privateRole, VlanTypeAndPrimaryVlan(VlanType::community, VlanId(10)));
  EXPECT_EQ(vlans[3].privateRole, VlanTypeAndPrimaryVlan(VlanType::community, VlanId(10)));
}

TEST(PrivateVlan, IsProxiedWhenItsPrimaryIs) {
  auto const proxyOfPrivate = [](std::string const& primaryProxy) {
    return configurationIn("[[vlan]]\nid = 10\n" + primaryProxy +
                           "\n[[vlan]]\nid = 20\nprivate = { type = \"isolated\", primary = 10 }")
        .vlans.at(1)
        .proxy;
  };
  EXPECT_TRUE(proxyOfPrivate(""));
  EXPECT_TRUE(proxyOfPrivate("proxy = true"));
  EXPECT_FALSE(proxyOfPrivate("proxy = false"));
}

TEST(PrivateVlan, MayRepeatTheProxySettingOfItsPrimary) {
  EXPECT_THAT(errorsIn(R"([[vlan]]
id = 10
proxy = false
[[vlan]]
id = 20
proxy = false
private = { type = "isolated", primary = 10 }
)"),
              IsEmpty());
}

TEST(PrivateVlan, CannotContradictTheProxySettingOfItsPrimary) {
  EXPECT_THAT(errorsIn(R"([[vlan]]
id = 10
[[vlan]]
id = 20
proxy = false
private = { type = "isolated", primary = 10 }
)"),
              ElementsAre("test.toml:5:9: proxy = false contradicts primary VLAN 10, whose proxy "
                          "setting holds here too; leave out proxy, or leave out querier to keep "
                          "this VLAN from being proxied"));
}

TEST(PrivateVlan, PrimaryMustBeDefined) {
  EXPECT_THAT(errorsIn("[[vlan]]\nid = \"20-29\"\nprivate = { type = \"isolated\", primary = 10 }"),
              ElementsAre("test.toml:3:42: primary VLAN 10 is not defined; "
                          "add a [[vlan]] with id = 10"));
}

TEST(PrivateVlan, PrimaryInARefusedRangeIsNotCalledUndefined) {
  EXPECT_THAT(errorsIn(R"([[vlan]]
id = "19-10"
[[vlan]]
id = 20
private = { type = "isolated", primary = 10 }
)"),
              ElementsAre("test.toml:2:6: id: range \"19-10\" runs downwards; write 10-19"));
}

TEST(PrivateVlan, PrimaryIsNotPrivateItself) {
  EXPECT_THAT(errorsIn(R"([[vlan]]
id = 10
[[vlan]]
id = 20
private = { type = "isolated", primary = 10 }
[[vlan]]
id = 30
private = { type = "community", primary = 20 }
)"),
              ElementsAre("test.toml:8:43: primary VLAN 20 is itself a private VLAN; "
                          "name a VLAN that is not private"));
}

TEST(PrivateVlan, IsNotItsOwnPrimary) {
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 10\nprivate = { type = \"isolated\", primary = 10 }"),
              ElementsAre("test.toml:3:42: primary VLAN 10 is itself a private VLAN; "
                          "name a VLAN that is not private"));
}

TEST(PrivateVlan, TypeAndPrimaryAreRequired) {
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 20\nprivate = {}"),
              ElementsAre("test.toml:3:11: private has no type; "
                          "add type = \"isolated\" or type = \"community\"",
                          "test.toml:3:11: private has no primary; "
                          "add the number of the primary VLAN, primary = 10"));
}

TEST(PrivateVlan, TypeIsIsolatedOrCommunity) {
  EXPECT_THAT(errorsIn(R"([[vlan]]
id = 10
[[vlan]]
id = 20
private = { type = "normal", primary = 10 }
)"),
              ElementsAre("test.toml:5:20: type = \"normal\" is unknown; "
                          "give \"isolated\" or \"community\""));
}

TEST(PrivateVlan, PrimaryIsAVlanNumber) {
  auto const errorsWithPrimary = [](std::string const& primary) {
    return errorsIn("[[vlan]]\nid = 20\nprivate = { type = \"isolated\", primary = " + primary +
                    " }");
  };
  EXPECT_THAT(errorsWithPrimary("0"), ElementsAre("test.toml:3:42: primary = 0 is out of range; "
                                                  "give an integer from 1 to 4094"));
  EXPECT_THAT(errorsWithPrimary("4095"),
              ElementsAre("test.toml:3:42: primary = 4095 is out of range; "
                          "give an integer from 1 to 4094"));
  EXPECT_THAT(errorsWithPrimary("\"10\""),
              ElementsAre("test.toml:3:42: primary is a text; give an integer from 1 to 4094"));
}

TEST(PrivateVlan, RoleIsATable) {
  EXPECT_THAT(errorsIn("[[vlan]]\nid = 20\nprivate = \"isolated\""),
              ElementsAre("test.toml:3:11: private is a text; "
                          "write private = { type = \"isolated\", primary = 10 }"));
}

TEST(PrivateVlan, UnknownKeyIsRefused) {
  EXPECT_THAT(errorsIn(R"([[vlan]]
id = 10
[[vlan]]
id = 20
private = { type = "isolated", primary = 10, vlan = 10 }
)"),
              ElementsAre("test.toml:5:46: unknown key \"vlan\" in private; "
                          "the known keys are type and primary"));
}

}  // namespace
}  // namespace Agent
