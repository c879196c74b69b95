#include <chrono>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/CommandLine.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Command parse(std::vector<char const*> arguments) {
  arguments.insert(arguments.begin(), "igmpsnoopd");
  return parseCommandLine(static_cast<int>(arguments.size()), arguments.data());
}

std::string wrongUsage(std::vector<char const*> const& arguments) {
  try {
    parse(arguments);
  } catch (WrongUsage const& error) {
    return error.what();
  }
  return "right usage";
}

ReplayCommand replayed(std::vector<char const*> arguments) {
  arguments.insert(arguments.begin(), {"replay", "--config", "switch.toml", "swp1=one.pcap"});
  return std::get<ReplayCommand>(parse(arguments));
}

std::string wrongReplay(std::vector<char const*> arguments) {
  arguments.insert(arguments.begin(), {"replay", "--config", "switch.toml"});
  return wrongUsage(arguments);
}

TEST(CommandLine, ReplayTakesAConfigurationAndCaptures) {
  auto const command =
      std::get<ReplayCommand>(parse({"replay", "a=b=c.pcap", "--config", "switch.toml", "a=d"}));
  EXPECT_EQ(command.configuration, "switch.toml");
  ASSERT_EQ(command.captures.size(), 2u);
  EXPECT_EQ(command.captures[0].port, Wirex::IntfId("a"));
  EXPECT_EQ(command.captures[0].fileName, "b=c.pcap");
  EXPECT_EQ(command.captures[1].port, Wirex::IntfId("a")) << "a port may have several";
  EXPECT_EQ(command.captures[1].fileName, "d");
  EXPECT_EQ(command.until, std::nullopt);
  EXPECT_FALSE(command.events);
  EXPECT_FALSE(command.json);
  EXPECT_THAT(command.traces, IsEmpty());
}

TEST(CommandLine, ReplayTakesADirectoryToWriteTo) {
  EXPECT_EQ(replayed({}).write, std::nullopt);
  EXPECT_EQ(replayed({"--write", "sent"}).write, "sent");
}

TEST(CommandLine, ReplayTakesAFileForTheReportPage) {
  EXPECT_EQ(replayed({}).report, std::nullopt);
  EXPECT_EQ(replayed({"--report", "page.html"}).report, "page.html");
}

TEST(CommandLine, LiveTakesAConfigurationAndSockets) {
  auto const usual = std::get<LiveCommand>(parse({"live", "--config", "switch.toml"}));
  EXPECT_EQ(usual.configuration, "switch.toml");
  EXPECT_EQ(usual.control, "/run/igmpsnoopd/control");
  EXPECT_EQ(usual.metrics, "");
  EXPECT_FALSE(usual.busyPoll);
  auto const other = std::get<LiveCommand>(
      parse({"live", "--config", "switch.toml", "--control", "./a", "--metrics", "b"}));
  EXPECT_EQ(other.control, "./a");
  EXPECT_EQ(other.metrics, "b");
  EXPECT_TRUE(
      std::get<LiveCommand>(parse({"live", "--config", "switch.toml", "--busy-poll"})).busyPoll);
  EXPECT_EQ(wrongUsage({"live"}),
            "--config FILE is required, as in igmpsnoopd live --config switch.toml; try igmpsnoopd "
            "live --help");
}

TEST(CommandLine, ReplayTakesOptionsAnywhere) {
  auto const command = replayed({"--events", "swp2=two.pcap", "-j", "swp3=three.pcap"});
  EXPECT_TRUE(command.events);
  EXPECT_TRUE(command.json);
  EXPECT_EQ(command.captures.size(), 3u);
}

TEST(CommandLine, TheSwitchsOwnAddressesMayBeNamed) {
  EXPECT_EQ(replayed({"--own", "02:00:00:00:00:01", "--own", "192.0.2.1"}).own,
            (std::vector<StationAddress>{Wirex::MacAddress{2, 0, 0, 0, 0, 1},
                                         Wirex::IpAddr(192, 0, 2, 1)}));
  EXPECT_EQ(wrongReplay({"swp1=one.pcap", "--own", "swp1"}),
            "--own \"swp1\" is neither a MAC nor an IPv4 address, as in 02:00:00:00:00:01 or "
            "192.0.2.1; try igmpsnoopd replay --help");
}

TEST(CommandLine, UntilIsANumberOfSecondsWithFractions) {
  EXPECT_EQ(replayed({"--until", "12.5"}).until, 12500ms);
  EXPECT_EQ(replayed({"--until", "0"}).until, 0s);
  EXPECT_EQ(replayed({"--until=46.293556001"}).until, 46'293'556'001ns);
  EXPECT_EQ(replayed({"--until", "1000000000"}).until, 1'000'000'000s);
  for (char const* const text :
       {"-1", "1e3", "1x", "x", "", "nan", "inf", "1000000000.1", "1,5", "0x10", " 1"})
    EXPECT_EQ(wrongReplay({"swp1=one.pcap", "--until", text}),
              std::string("--until \"") + text +
                  "\" is no number of seconds from 0 to 1000000000, as in 12.5; "
                  "try igmpsnoopd replay --help");
}

TEST(CommandLine, ReplayTakesAPortAndGroupToExplain) {
  EXPECT_FALSE(replayed({}).explain);
  auto const place = replayed({"--explain", "10/swp1/239.1.1.1"}).explain;
  ASSERT_TRUE(place);
  EXPECT_EQ(place->vlan, Bridging::VlanId(10));
  EXPECT_EQ(place->interface, Wirex::IntfId("swp1"));
  EXPECT_EQ(place->group, Wirex::IpAddr(239, 1, 1, 1));
  EXPECT_EQ(replayed({"--explain", "10/Ethernet3/1/239.1.1.1"}).explain->interface,
            Wirex::IntfId("Ethernet3/1"));
}

TEST(CommandLine, WhatCannotBeExplainedIsWrongUsage) {
  for (char const* const text : {"", "10", "10/swp1", "10/239.1.1.1", "10//239.1.1.1", "//",
                                 "0/swp1/239.1.1.1", "4095/swp1/239.1.1.1", "10-11/swp1/239.1.1.1",
                                 "x/swp1/239.1.1.1", "10/swp1/10.0.0.1", "10/swp1/239.1.1"})
    EXPECT_EQ(wrongReplay({"swp1=one.pcap", "--explain", text}),
              std::string("--explain \"") + text +
                  "\" is not of the form VLAN/INTERFACE/GROUP, as in 10/swp1/239.1.1.1; "
                  "try igmpsnoopd replay --help");
  EXPECT_EQ(wrongReplay({"swp1=one.pcap", "--explain", "10/swp1/239.1.1.1", "--events"}),
            "--events excludes --explain; try igmpsnoopd replay --help");
}

TEST(CommandLine, ReplayTakesListsToShow) {
  EXPECT_THAT(replayed({}).show, IsEmpty());
  EXPECT_THAT(replayed({"--show", "groups"}).show, ElementsAre("groups"));
  EXPECT_THAT(replayed({"--show", "mrouters,groups,mrouters"}).show,
              ElementsAre("mrouters", "groups"));
}

TEST(CommandLine, ListThatThereIsNotIsAnsweredWithThoseThatThereAre) {
  for (std::string const word : {"group", ""})
    EXPECT_EQ(wrongReplay({"swp1=one.pcap", "--show", ("hosts," + word).c_str()}),
              "\"" + word +
                  "\" is no list; there are vlans, interfaces, groups, hosts, mrouters "
                  "and statistics; try igmpsnoopd replay --help");
}

TEST(CommandLine, TraceTakesAHandleAndLevels) {
  Kel::TraceHandle& handle = Kel::traceHandle("CommandLineTest");
  auto const traces =
      replayed({"--trace", "CommandLineTest=0,4-6", "--trace", "CommandLineTest=9"}).traces;
  ASSERT_EQ(traces.size(), 2u);
  EXPECT_EQ(traces[0].handle, &handle);
  EXPECT_THAT(traces[0].levels, ElementsAre(0, 4, 5, 6));
  EXPECT_THAT(traces[1].levels, ElementsAre(9));
}

TEST(CommandLine, WrongTraceIsWrongUsage) {
  Kel::traceHandle("CommandLineTest");
  auto const wrongTrace = [](char const* trace) {
    return wrongReplay({"swp1=one.pcap", "--trace", trace});
  };
  EXPECT_THAT(wrongTrace("Nobody=1"),
              testing::AllOf(HasSubstr("there is no trace handle \"Nobody\", but "),
                             HasSubstr("CommandLineTest")));
  EXPECT_THAT(wrongTrace("CommandLineTest"), HasSubstr("is not of the form HANDLE=LEVELS"));
  EXPECT_THAT(wrongTrace("CommandLineTest=16"), HasSubstr("trace level 16 is above 15"));
  EXPECT_THAT(wrongTrace("CommandLineTest=x"), HasSubstr("\"x\" is no number"));
}

TEST(CommandLine, CaptureWithoutPortOrFileIsWrongUsage) {
  for (char const* const text : {"swp1", "=one.pcap", "swp1=", "="})
    EXPECT_EQ(wrongReplay({text}), std::string("\"") + text +
                                       "\" is not of the form PORT=CAPTURE, as in "
                                       "swp1=swp1.pcap; try igmpsnoopd replay --help");
}

TEST(CommandLine, MissingArgumentsAreNamed) {
  std::string const replay =
      " required, as in igmpsnoopd replay --config switch.toml swp1=swp1.pcap swp2=swp2.pcap; try "
      "igmpsnoopd replay --help";
  EXPECT_EQ(wrongReplay({}), "PORT=CAPTURE is" + replay);
  EXPECT_EQ(wrongUsage({"replay", "swp1=one.pcap"}), "--config FILE is" + replay);
  EXPECT_EQ(wrongUsage({"replay"}), "--config FILE and PORT=CAPTURE are" + replay);
  EXPECT_EQ(wrongUsage({"check"}),
            "--config FILE is required, as in igmpsnoopd check --config switch.toml; try "
            "igmpsnoopd check --help");
  EXPECT_EQ(wrongUsage({}),
            "live, replay, check, diff or guess is required; try igmpsnoopd --help");
}

TEST(CommandLine, UnknownArgumentsAreNamed) {
  EXPECT_EQ(wrongUsage({"reply"}), "unknown command \"reply\"; try igmpsnoopd --help");
  EXPECT_EQ(wrongUsage({"--verbose"}), "unexpected argument \"--verbose\"; try igmpsnoopd --help");
  EXPECT_EQ(wrongReplay({"swp1=one.pcap", "--rewrite", "directory"}),
            "unexpected argument \"--rewrite\"; try igmpsnoopd replay --help");
  EXPECT_EQ(wrongUsage({"check", "--config", "switch.toml", "-j"}),
            "unexpected argument \"-j\"; try igmpsnoopd check --help");
}

TEST(CommandLine, CheckTakesAConfiguration) {
  EXPECT_EQ(std::get<CheckCommand>(parse({"check", "--config", "switch.toml"})).configuration,
            "switch.toml");
}

TEST(CommandLine, DiffTakesTwoStates) {
  auto const command = std::get<DiffCommand>(parse({"diff", "a.json", "ctl:/run/socket", "-j"}));
  EXPECT_EQ(command.a, "a.json");
  EXPECT_EQ(command.b, "ctl:/run/socket");
  EXPECT_TRUE(command.json);
  EXPECT_EQ(wrongUsage({"diff", "a.json"}),
            "B is required, as in igmpsnoopd diff before.json after.json; try igmpsnoopd diff "
            "--help");
}

TEST(CommandLine, GuessNamesAPortByItsCaptureWhereNothingElseDoes) {
  auto const command = std::get<GuessCommand>(
      parse({"guess", "swp7=a.pcap", "captures/swp2.pcap", "/dev/null:eth1", "swp3=b.pcap"}));
  std::vector<std::string> ports;
  for (PortCapture const& each : command.captures)
    ports.emplace_back(each.port.stringValue().view());
  EXPECT_THAT(ports, ElementsAre("swp7", "swp2", "eth1", "swp3"));
  EXPECT_EQ(command.captures[1].fileName, "captures/swp2.pcap");
  EXPECT_EQ(command.captures[2].fileName, "/dev/null:eth1");
  EXPECT_THAT(wrongUsage({"guess", "-"}), HasSubstr("\"-\" names no port; put PORT= before it"));
  EXPECT_THAT(
      wrongUsage({"guess", "lab/the-hall-of-tuesday.pcap"}),
      HasSubstr("\"lab/the-hall-of-tuesday.pcap\" names no port: interface name "
                "\"the-hall-of-tuesday\" is longer than the 15 bytes that Linux allows; put "
                "PORT= before it, as in swp1=lab/the-hall-of-tuesday.pcap"));
}

TEST(CommandLine, HelpAndVersionAreInformation) {
  auto const help = std::get<Information>(parse({"--help"})).text;
  EXPECT_THAT(help, HasSubstr("replay"));
  EXPECT_THAT(help, HasSubstr("check"));
  EXPECT_THAT(std::get<Information>(parse({"replay", "--help"})).text, HasSubstr("PORT=CAPTURE"));
  EXPECT_THAT(std::get<Information>(parse({"--version"})).text,
              testing::MatchesRegex("igmpsnoopd [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

}  // namespace
}  // namespace Agent
