#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>

#include "tests/agent/config/ConfigurationTesting.h"

namespace Agent {
namespace {

using Bridging::AllowedTrafficDirection;
using Bridging::VlanId;
using Bridging::VlanType;
using Bridging::VlanTypeAndPrimaryVlan;
using Igmp::IgmpVersion;
using testing::ElementsAre;
using testing::IsEmpty;
using Wirex::IntfId;

char const documentedExample[] = R"([defaults]
robustness-variable        = 2       # 1..7
query-interval             = 125     # seconds
query-max-response-time    = 10      # seconds
last-member-query-interval = 1       # seconds
fast-leave                 = false
require-router-alert       = false
send-query                 = false
querier-source             = "auto"
sender-source-address      = "auto"
report-on                  = "mrouters"
ssm-range                  = "232.0.0.0/8"
max-groups                 = 4096
max-interface-groups       = 2048
max-interface-memberships  = 16384
max-group-sources          = 512
max-interface-sources      = 16384

[[interface]]
name    = "swp[1-5]"
blocked = false
direction = "both"

[[vlan]]
id       = 10
proxy    = true
querier  = { igmp-version = 3 }
interfaces        = ["swp1", "swp2"]
tagged-interfaces = ["swp[3-4]"]
static-bridge-mrouter-interface = ["swp4"]

[[vlan]]
id      = 20
private = { type = "isolated", primary = 10 }
querier = { igmp-version = 3 }
interfaces = ["swp5"]
)";

Configuration exampleConfiguration() {
  Configuration configuration;
  for (char const* const name : {"swp1", "swp2", "swp3", "swp4", "swp5"}) {
    configuration.interfaces.push_back(
        InterfaceConfig{IntfId(name), false, AllowedTrafficDirection::both});
  }
  VlanConfig primary;
  primary.vlanId = VlanId(10);
  primary.querierVersion = IgmpVersion::v3;
  primary.members = {{IntfId("swp1"), false, false},
                     {IntfId("swp2"), false, false},
                     {IntfId("swp3"), true, false},
                     {IntfId("swp4"), true, true}};
  VlanConfig isolated;
  isolated.vlanId = VlanId(20);
  isolated.querierVersion = IgmpVersion::v3;
  isolated.privateRole = VlanTypeAndPrimaryVlan(VlanType::isolated, VlanId(10));
  isolated.members = {{IntfId("swp5"), false, false}};
  configuration.vlans = {primary, isolated};
  return configuration;
}

/// A directory that goes with the test.
class TemporaryDirectory {
 public:
  TemporaryDirectory() : path_(testing::TempDir() + "configuration-XXXXXX") {
    EXPECT_NE(::mkdtemp(path_.data()), nullptr);
  }
  TemporaryDirectory(TemporaryDirectory const&) = delete;
  TemporaryDirectory& operator=(TemporaryDirectory const&) = delete;
  ~TemporaryDirectory() { std::filesystem::remove_all(path_); }

  std::string file(std::string const& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

class ConfigurationFile : public testing::Test {
 protected:
  std::string path(std::string const& name) const { return directory_.file(name); }

  std::string fileWith(std::string_view text) const {
    std::ofstream(path("igmpsnoopd.toml"), std::ios::binary) << text;
    return path("igmpsnoopd.toml");
  }

  static ConfigurationErrors errorsInFile(std::string const& fileName) {
    auto result = readConfigurationFile(fileName);
    auto* const errors = std::get_if<ConfigurationErrors>(&result);
    return errors ? std::move(*errors) : ConfigurationErrors{};
  }

  static void expectUnreadable(std::string const& fileName, std::string const& why) {
    try {
      readConfigurationFile(fileName);
      ADD_FAILURE() << fileName << " is read";
    } catch (UnreadableConfiguration const& error) {
      EXPECT_EQ(error.what(), "cannot read configuration " + fileName + ": " + why +
                                  "; give the name of a readable file");
    }
  }

 private:
  TemporaryDirectory directory_;
};

/// Root reads everything, so a test of permissions runs as somebody else.
class WithoutRootRights {
 public:
  WithoutRootRights() : user_(::geteuid()) {
    if (user_ == 0) changed_ = ::seteuid(65534) == 0;
  }
  ~WithoutRootRights() { EXPECT_EQ(changed_ ? ::seteuid(user_) : 0, 0); }

 private:
  uid_t user_;
  bool changed_ = false;
};

TEST(Configuration, DocumentedExampleIsRead) {
  EXPECT_EQ(configurationIn(documentedExample), exampleConfiguration());
}

TEST(Configuration, EmptyFileConfiguresNothing) {
  EXPECT_EQ(configurationIn(""), Configuration{});
  EXPECT_EQ(configurationIn("# nothing yet\n[defaults]\n"), Configuration{});
}

TEST(Configuration, ErrorsComeInTheOrderOfTheFile) {
  EXPECT_THAT(errorsIn(R"([[vlan]]
tagged-interfaces = ["swp1"]
id = 0
[[interface]]
name = "swp2"
[defaults]
fast-leave = 1
colour = "red"
)"),
              ElementsAre("test.toml:2:22: interface swp1 is not defined; "
                          "add an [[interface]] with name = \"swp1\"",
                          "test.toml:3:6: id 0 is out of range; give a VLAN number from 1 to "
                          "4094, or a range in quotes, as in \"10-19\"",
                          "test.toml:7:14: fast-leave is an integer; give true or false",
                          "test.toml:8:1: unknown key \"colour\" in [defaults]; the known keys "
                          "are robustness-variable, query-interval, query-max-response-time, "
                          "last-member-query-interval, fast-leave, require-router-alert, "
                          "send-query, querier-source, sender-source-address, report-on, "
                          "ssm-range, max-groups, max-interface-groups, "
                          "max-interface-memberships, max-group-sources and "
                          "max-interface-sources"));
}

TEST(Configuration, UnknownTableIsRefused) {
  EXPECT_THAT(errorsIn("[[vlans]]\nid = 10"),
              ElementsAre("test.toml:1:3: unknown key \"vlans\"; did you mean \"vlan\"?"));
  EXPECT_THAT(errorsIn("fast-leave = true"),
              ElementsAre("test.toml:1:1: unknown key \"fast-leave\"; "
                          "the known keys are agent, defaults, forwarding, interface and vlan"));
}

TEST(Configuration, UnknownKeyIsPrintedOnOneLine) {
  EXPECT_THAT(errorsIn("\"a\\n\\\"b\\u0007\" = 1"),
              ElementsAre("test.toml:1:1: unknown key \"a\\x0a\\\"b\\x07\"; "
                          "the known keys are agent, defaults, forwarding, interface and vlan"));
}

TEST(Configuration, DefaultsAreOneTable) {
  EXPECT_THAT(errorsIn("[[defaults]]\nfast-leave = true"),
              ElementsAre("test.toml:1:1: defaults is a list; "
                          "write [defaults] in single brackets"));
}

TEST(Configuration, SyntaxErrorNamesItsPlace) {
  EXPECT_THAT(errorsIn("[defaults]\nfast-leave = yes\n"),
              ElementsAre("test.toml:2:14: not valid TOML: Error while parsing value: could not "
                          "determine value type; correct the syntax"));
  EXPECT_THAT(errorsIn("[defaults]\nfast-leave = true\nfast-leave = true\n"),
              ElementsAre("test.toml:3:14: not valid TOML: Error while parsing key-value pair: "
                          "cannot redefine existing boolean 'fast-leave'; correct the syntax"));
}

TEST(Configuration, SyntaxErrorIsPrintedOnOneLine) {
  EXPECT_THAT(errorsIn("[defaults]\nfast-leave = fals\nsend-query = true"),
              ElementsAre("test.toml:2:18: not valid TOML: Error while parsing boolean: expected "
                          "'false', saw 'fals\\x0a'; correct the syntax"));
}

TEST(Configuration, ColumnsCountCharacters) {
  EXPECT_THAT(errorsIn("defaults = { \"\u00fc\u00f6\" = 1, fast-leave = 1 }"),
              testing::Contains("test.toml:1:37: fast-leave is an integer; give true or false"));
}

TEST(Configuration, ByteOrderMarkIsSkipped) {
  EXPECT_THAT(errorsIn("\xef\xbb\xbf[defaults]\n"), IsEmpty());
}

TEST(Configuration, TextThatIsNotUtf8IsRefused) {
  EXPECT_THAT(errorsIn("[defaults]\nreport-on = \"\xff\"\n"),
              ElementsAre("test.toml:2:13: not valid TOML: Encountered invalid utf-8 sequence; "
                          "correct the syntax"));
}

TEST_F(ConfigurationFile, IsRead) {
  auto const result = readConfigurationFile(fileWith(documentedExample));
  ASSERT_TRUE(std::holds_alternative<Configuration>(result));
  EXPECT_EQ(std::get<Configuration>(result), exampleConfiguration());
}

TEST_F(ConfigurationFile, LargerThanTheReadBufferIsReadWhole) {
  std::string const comments(100'000, '\n');
  EXPECT_THAT(errorsInFile(fileWith(comments + "x = 1")),
              ElementsAre(path("igmpsnoopd.toml") +
                          ":100001:1: unknown key \"x\"; "
                          "the known keys are agent, defaults, forwarding, interface and vlan"));
}

TEST_F(ConfigurationFile, MustExist) {
  expectUnreadable(path("absent.toml"), "No such file or directory");
}

TEST_F(ConfigurationFile, IsNotADirectory) {
  expectUnreadable(path(""), "Is a directory");
}

TEST_F(ConfigurationFile, MustBeReadable) {
  std::string const fileName = fileWith(documentedExample);
  std::filesystem::permissions(fileName, std::filesystem::perms::none);
  WithoutRootRights const user;
  expectUnreadable(fileName, "Permission denied");
}

}  // namespace
}  // namespace Agent
