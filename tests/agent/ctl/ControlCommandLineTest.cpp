#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/ctl/ControlCommandLine.h"

namespace Agent {
namespace {

using testing::HasSubstr;

std::variant<ControlCommand, Information> parsed(std::vector<char const*> arguments) {
  arguments.insert(arguments.begin(), "igmpsnoopctl");
  return parseControlCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

ControlCommand commandIn(std::vector<char const*> const& arguments) {
  return std::get<ControlCommand>(parsed(arguments));
}

/// The request as it goes to the agent.
std::string requestIn(std::vector<char const*> const& arguments) {
  std::string line = requestLine(commandIn(arguments).request);
  line.pop_back();
  return line;
}

std::string problemOf(std::vector<char const*> const& arguments) {
  try {
    parsed(arguments);
  } catch (WrongUsage const& error) {
    return error.what();
  }
  return "none";
}

TEST(ControlCommandLine, EachCommandIsARequest) {
  for (char const* const what :
       {"vlans", "interfaces", "groups", "hosts", "mrouters", "forwarding", "statistics"}) {
    std::string const request = std::string(R"({"command":"show","what":")") + what + '"';
    EXPECT_EQ(requestIn({"show", what}), request + '}');
    EXPECT_EQ(
        requestIn({"show", what, "--vlan", "10", "--interface", "swp1", "--group", "239.1.1.1"}),
        request + R"(,"vlan":10,"interface":"swp1","group":"239.1.1.1"})");
  }
  EXPECT_EQ(requestIn({"explain", "--vlan", "10", "--interface", "swp1", "--group", "239.1.1.1"}),
            R"({"command":"explain","vlan":10,"interface":"swp1","group":"239.1.1.1"})");
  EXPECT_EQ(requestIn({"monitor"}), R"({"command":"monitor"})");
  EXPECT_EQ(requestIn({"monitor", "--vlan", "10", "--interface", "swp1", "--group", "239.1.1.1",
                       "--kind", "record"}),
            R"({"command":"monitor","what":"record","vlan":10,"interface":"swp1",)"
            R"("group":"239.1.1.1"})");
  EXPECT_EQ(requestIn({"clear", "groups", "--vlan", "10"}),
            R"({"command":"clear","what":"groups","vlan":10})");
  EXPECT_EQ(requestIn({"trace", "Handle", "0,4-9"}),
            R"({"command":"trace","handle":"Handle","levels":"0,4-9"})");
  EXPECT_EQ(requestIn({"trace"}), R"({"command":"trace"})");
  EXPECT_EQ(requestIn({"metrics"}), R"({"command":"metrics"})");
}

TEST(ControlCommandLine, SocketMayStandAnywhere) {
  EXPECT_EQ(commandIn({"metrics"}).socket, "/run/igmpsnoopd/control");
  EXPECT_EQ(commandIn({"--socket", "./here", "show", "vlans"}).socket, "./here");
  EXPECT_EQ(commandIn({"show", "vlans", "--socket", "/run/here"}).socket, "/run/here");
}

TEST(ControlCommandLine, SocketMayBeCalledByItsName) {
  EXPECT_EQ(commandIn({"--socket", "east", "show", "vlans"}).socket, "/run/igmpsnoopd/east");
  EXPECT_EQ(commandIn({"--socket", "control", "show", "vlans"}).socket,
            commandIn({"metrics"}).socket);
}

TEST(ControlCommandLine, WhatIsShownMayBeAskedForAgainAndAgain) {
  EXPECT_FALSE(commandIn({"show", "vlans"}).interval);
  EXPECT_EQ(commandIn({"show", "vlans", "--watch", "2"}).interval, std::chrono::seconds(2));
  EXPECT_EQ(commandIn({"explain", "--vlan", "10", "--interface", "swp1", "--group", "239.1.1.1",
                       "--watch", "0.5"})
                .interval,
            std::chrono::milliseconds(500));
  for (char const* const wrong : {"0", "-1", "1e3", "often", "90000"})
    EXPECT_THAT(problemOf({"show", "vlans", "--watch", wrong}), HasSubstr("0.1 to 86400"));
  EXPECT_THAT(problemOf({"monitor", "--watch", "1"}), HasSubstr("\"--watch\""));
}

TEST(ControlCommandLine, JsonIsAskedForPerCommand) {
  EXPECT_FALSE(commandIn({"show", "vlans"}).json);
  EXPECT_TRUE(commandIn({"show", "vlans", "-j"}).json);
  EXPECT_TRUE(commandIn({"monitor", "--json"}).json);
  EXPECT_EQ(commandIn({"report", "page.html"}).reportFile, "page.html");
}

TEST(ControlCommandLine, WrongUsageIsToldWithWhereToRead) {
  EXPECT_THAT(problemOf({}), HasSubstr("try igmpsnoopctl --help"));
  EXPECT_THAT(problemOf({"show"}), HasSubstr("try igmpsnoopctl show --help"));
  EXPECT_THAT(problemOf({"jump"}), HasSubstr("\"jump\""));
  EXPECT_THAT(problemOf({"clear", "groups", "--interface", "swp1"}), HasSubstr("\"--interface\""));
  EXPECT_THAT(problemOf({"show", "groups", "--vlan", "4095"}), HasSubstr("1 to 4094"));
  EXPECT_THAT(problemOf({"show", "groups", "--vlan", "10-11"}), HasSubstr("1 to 4094"));
  EXPECT_THAT(problemOf({"monitor", "--kind", "all"}), HasSubstr("--kind"));
  EXPECT_THAT(problemOf({"show", "groups", "--group", "10.0.0.1"}), HasSubstr("multicast"));
}

TEST(ControlCommandLine, WhatIsMissingIsNamedWithAnExample) {
  EXPECT_EQ(problemOf({"explain", "--vlan", "10"}),
            "--interface NAME and --group ADDRESS are required, as in igmpsnoopctl explain --vlan "
            "10 --interface swp1 --group 239.1.1.1; try igmpsnoopctl explain --help");
  EXPECT_EQ(problemOf({"report"}),
            "FILE.html is required, as in igmpsnoopctl report switch.html; try igmpsnoopctl report "
            "--help");
  EXPECT_THAT(problemOf({"show"}), testing::StartsWith("version, vlans, interfaces, groups, "));
  EXPECT_THAT(std::get<Information>(parsed({"explain", "--help"})).text,
              HasSubstr("--group ADDRESS REQUIRED"));
}

TEST(ControlCommandLine, ExamplesOfTheHelpAreRight) {
  for (char const* const command : {"show", "explain", "monitor", "report", "clear", "trace"}) {
    std::string const help = std::get<Information>(parsed({command, "--help"})).text;
    std::string const heading = "Example: igmpsnoopctl ";
    std::size_t const begin = help.find(heading);
    ASSERT_NE(begin, std::string::npos) << help;
    std::istringstream line(help.substr(begin + heading.size()));
    std::vector<std::string> const words{std::istream_iterator<std::string>(line), {}};
    std::vector<char const*> arguments;
    for (std::string const& word : words) arguments.push_back(word.c_str());
    EXPECT_EQ(problemOf(arguments), "none") << help;
    EXPECT_EQ(commandIn(arguments).request.command, command);
  }
}

TEST(ControlCommandLine, HelpAndVersionAreInformation) {
  EXPECT_THAT(std::get<Information>(parsed({"--help"})).text, HasSubstr("explain"));
  EXPECT_THAT(std::get<Information>(parsed({"--version"})).text, HasSubstr("igmpsnoopctl "));
}

}  // namespace
}  // namespace Agent
