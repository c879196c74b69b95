#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <pty.h>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/agent/Addresses.h"
#include "tests/agent/replay/CaptureTesting.h"

/// Runs the real igmpsnoopd: exit status, standard output, standard error.
namespace Agent {
namespace {

using namespace std::chrono_literals;
using namespace IgmpTest;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class ProgramTest : public testing::Test {
 protected:
  struct Outcome {
    int status;
    std::string out;
    std::string err;
  };

  /// @param arguments as a shell reads them.
  /// @param before what the shell does first.
  Outcome run(std::string const& arguments, std::string const& before = "") const {
    std::string const err = directory.file("err");
    std::string const out = directory.file("out");
    int const status =
        std::system((before + IGMPSNOOPD + " >" + out + " 2>" + err + " " + arguments).c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(out), contents(err)};
  }

  Outcome replay(std::string const& arguments) const {
    return run("replay --config " + configuration(twoPorts) + " " + arguments);
  }

  std::string configuration(std::string const& text) const {
    std::ofstream(directory.file("switch.toml")) << text;
    return directory.file("switch.toml");
  }

  /// A report at the first packet's time, and something else 1.5 s later.
  std::string capture() const {
    return CaptureBuilder()
        .at(someTime, FrameBuilder::reportV2(group))
        .at(someTime + 1500ms, FrameBuilder::queryV3({}))
        .write(directory.file("swp1.pcap"));
  }

  static std::string contents(std::string const& fileName) {
    std::ostringstream text;
    text << std::ifstream(fileName).rdbuf();
    return text.str();
  }

  static constexpr char const* twoPorts =
      "[[interface]]\nname = \"swp[1-2]\"\n[[vlan]]\nid = 10\nquerier = { igmp-version = 3 }\n"
      "interfaces = [\"swp[1-2]\"]\n";

  TemporaryDirectory directory;
};

bool isOneLine(std::string const& text) {
  return !text.empty() && text.find('\n') == text.size() - 1;
}

TEST_F(ProgramTest, MemoryThatRunsOutIsToldInOneLine) {
#ifdef SANITIZED
  GTEST_SKIP() << "the sanitizers need the address space that this takes away";
#endif
  std::string interfaces;
  for (int card = 0; card < 1000; ++card)
    interfaces += "[[interface]]\nname = \"card" + std::to_string(card) + "p[1-4094]\"\n";
  auto const outcome = run("check --config " + configuration(interfaces), "ulimit -v 150000;");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(isOneLine(outcome.err)) << outcome.err;
  EXPECT_THAT(outcome.err, StartsWith("igmpsnoopd: out of memory with "));
  EXPECT_THAT(outcome.err, HasSubstr("and a limit of 146 MB of address space; give it more"));
}

TEST_F(ProgramTest, ReplayWritesTheReportPage) {
  auto const outcome = replay("swp1=" + capture() + " --report " + directory.file("page.html"));
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  std::string const page = contents(directory.file("page.html"));
  EXPECT_THAT(page, HasSubstr("A replay, 1.50 s after the first packet."));
  EXPECT_THAT(page, HasSubstr("239.1.1.1: swp2 reports every source, from swp1."));
  EXPECT_THAT(page, HasSubstr("</html>"));
}

TEST_F(ProgramTest, ReplayDoesNotReplaceACaptureByTheReportPage) {
  std::string const swp1 = capture();
  std::string const before = contents(swp1);
  auto const outcome = replay("swp1=" + swp1 + " --report " + swp1);
  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(isOneLine(outcome.err)) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr("would destroy"));
  EXPECT_EQ(contents(swp1), before);
}

TEST_F(ProgramTest, ReplayPrintsATable) {
  auto const outcome = replay("swp1=" + capture());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out,
            "Records at 1.500000 s\n"
            "\n"
            "VLAN  INTERFACE  IGMP  BLOCKED  DIRECTION  GROUP      MODE     SOURCES\n"
            "  10  swp1          3  no       both       -\n"
            "  10  swp2          3  no       both       239.1.1.1  exclude  -\n");
  EXPECT_EQ(outcome.err, "");
}

/// The merges of who listens at the end, as captures/README.md lists it.
TEST_F(ProgramTest, ReplayOfTheBundledCapturesShowsWhatTheStoryEndsWith) {
  std::string arguments = "replay --config " CAPTURES "switch.toml";
  for (char const* const port : {"swp1", "swp2", "swp3", "swp4"})
    arguments += std::string(" ") + port + "=" CAPTURES + port + ".pcap";
  auto const outcome = run(arguments);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(
      outcome.out,
      "Records at 46.293556 s\n"
      "\n"
      "VLAN  INTERFACE  IGMP  BLOCKED  DIRECTION  GROUP       MODE     SOURCES\n"
      "  10  swp1          3  no       both       232.1.1.1   include  192.0.2.2, 198.51.100.7\n"
      "                                           239.1.1.1   exclude  -\n"
      "                                           239.2.2.2   exclude  192.0.2.9, 198.51.100.9\n"
      "                                           239.3.3.3   exclude  192.0.2.31, 192.0.2.40\n"
      "                                           239.4.4.4   exclude  -\n"
      "                                           239.5.5.5   exclude  -\n"
      "  10  swp2          3  no       both       232.1.1.1   include  192.0.2.1, 192.0.2.3\n"
      "                                           239.1.1.1   exclude  -\n"
      "                                           239.2.2.2   exclude  192.0.2.9\n"
      "                                           239.3.3.3   include  192.0.2.31, 192.0.2.32\n"
      "                                           239.4.4.4   exclude  -\n"
      "  10  swp3          3  no       both       232.1.1.1   include  192.0.2.1, 192.0.2.2, "
      "192.0.2.3,\n"
      "                                                                198.51.100.7\n"
      "                                           239.1.1.1   exclude  -\n"
      "                                           239.2.2.2   exclude  192.0.2.9\n"
      "                                           239.3.3.3   exclude  -\n"
      "                                           239.5.5.5   exclude  -\n"
      "  10  swp4          3  no       both       232.1.1.1   include  192.0.2.1, 192.0.2.2, "
      "192.0.2.3,\n"
      "                                                                198.51.100.7\n"
      "                                           239.1.1.1   exclude  -\n"
      "                                           239.2.2.2   exclude  192.0.2.9\n"
      "                                           239.3.3.3   exclude  -\n"
      "                                           239.4.4.4   exclude  -\n"
      "                                           239.5.5.5   exclude  -\n"
      "  20  swp2          3  no       both       -\n"
      "  20  swp4          3  no       both       232.20.1.1  include  192.0.2.21\n"
      "                                           239.20.1.1  exclude  -\n"
      "\n"
      "INTERFACE  IGNORED  CAUSE\n"
      "swp4             4  group-link-local\n");
}

TEST_F(ProgramTest, ReplayPrintsEventsBeforeTheTable) {
  auto const outcome = replay("--events --until 300.5 swp1=" + capture());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out,
              StartsWith("0.000000 vlan 10 swp2 239.1.1.1 added: exclude nothing; by swp1 "
                         "192.0.2.10 (frame 1)\n"
                         "270.000000 vlan 10 swp2 239.1.1.1 removed (was exclude nothing); by swp1 "
                         "192.0.2.10 (timer)\n"
                         "\n"
                         "Records at 300.500000 s\n"));
}

TEST_F(ProgramTest, ReplayPrintsOneJsonDocument) {
  auto const outcome = replay("-j --events swp1=" + capture());
  EXPECT_EQ(outcome.status, 0);
  auto const document = nlohmann::ordered_json::parse(outcome.out);
  EXPECT_EQ(document.at("time"), 1.5);
  EXPECT_EQ(document.at("events").size(), 1u);
  EXPECT_EQ(document.at("hosts").at(1).at("name"), "Vlan10swp2");
  EXPECT_EQ(document.at("hosts").at(1).at("group").at(0).at("address"), "239.1.1.1");
}

TEST_F(ProgramTest, ReplayShowsAListInPlaceOfTheRecords) {
  auto const outcome = replay("swp1=" + capture() + " --show groups");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, StartsWith("VLAN  GROUP      INTERFACE  REPORTER"));
  EXPECT_THAT(outcome.out, HasSubstr("239.1.1.1  swp1"));
  EXPECT_THAT(outcome.out, testing::Not(HasSubstr("Vlan10swp2")));
}

TEST_F(ProgramTest, ReplayShowsSinceWhenByTheTimeThatIsChosen) {
  std::string const swp1 = CaptureBuilder()
                               .at(someTime, FrameBuilder::queryV3({}).from(IpAddr(10, 0, 0, 254)))
                               .at(someTime + 7s, FrameBuilder::reportV2(group))
                               .write(directory.file("swp1.pcap"));
  std::string const show = "--show groups,mrouters swp1=" + swp1;
  std::string const relative = replay(show).out;
  EXPECT_THAT(relative, HasSubstr("  192.0.2.10  7 s  "));
  EXPECT_THAT(relative, HasSubstr("  10  swp1       0 s    no "));
  std::string const absolute = replay("--time absolute " + show).out;
  EXPECT_THAT(absolute, HasSubstr("  192.0.2.10  22:13:27  "));
  EXPECT_THAT(absolute, HasSubstr("  10  swp1       22:13:20  no "));
}

TEST_F(ProgramTest, ReplayShowsSinceWhenInJsonAsTimeOfDay) {
  auto const document =
      nlohmann::json::parse(replay("-j --show groups,mrouters swp1=" + capture()).out);
  EXPECT_EQ(document.at("date"), "2023-11-14T22:13:21Z");
  EXPECT_EQ(document.at("groups").at(0).at("since"), "2023-11-14T22:13:20Z");
}

TEST_F(ProgramTest, ReplayShowsSeveralListsUnderHeadings) {
  auto const outcome = replay("swp1=" + capture() + " --show mrouters,statistics");
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_THAT(outcome.out, StartsWith("Multicast router ports\n\nVLAN  INTERFACE"));
  EXPECT_THAT(outcome.out, HasSubstr("\nStatistics\n\nReceived\n\n"));
}

TEST_F(ProgramTest, ReplayShowsOneListInJsonAsTheAgentDoes) {
  auto const outcome = replay("-j --show hosts swp1=" + capture());
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(nlohmann::json::parse(outcome.out).at("hosts"),
            nlohmann::json::parse(replay("-j swp1=" + capture()).out).at("hosts"));
}

TEST_F(ProgramTest, ReplayShowsSeveralListsInOneJsonDocumentAfterTheEvents) {
  auto const outcome = replay("-j --events --show groups,statistics,interfaces swp1=" + capture());
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  auto const document = nlohmann::json::parse(outcome.out);
  EXPECT_EQ(document.at("events").size(), 1u);
  EXPECT_EQ(document.at("time"), 1.5);
  EXPECT_EQ(document.at("groups").at(0).at("interface"), "swp1");
  EXPECT_EQ(document.at("statistics").at("interfaces").at(0).at("name"), "swp1");
  EXPECT_EQ(document.at("interfaces").at(1).at("state"), "up");
}

TEST_F(ProgramTest, ReplayExplainsInPlaceOfTheRecords) {
  auto const outcome = replay("--explain 10/swp2/239.1.1.1 swp1=" + capture());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out, StartsWith("The host on swp2 in VLAN 10 would report 239.1.1.1: every "
                                      "source (exclude nothing), but has sent\nnothing so far.\n"));
  EXPECT_THAT(outcome.out, HasSubstr("swp1 wants every source"));

  auto const document =
      nlohmann::ordered_json::parse(replay("-j --explain 10/swp2/239.1.1.1 swp1=" + capture()).out);
  EXPECT_EQ(document.at("time"), 1.5);
  EXPECT_EQ(document.at("rule"), "every-source");
}

TEST_F(ProgramTest, ExplainTellsWhatTheReplaysHostSentForTheGroup) {
  std::string const router =
      CaptureBuilder()
          .at(someTime - 1s, FrameBuilder::queryV3({}).from(IpAddr(10, 0, 0, 254)))
          .write(directory.file("swp2.pcap"));
  std::string const captures = "swp1=" + capture() + " swp2=" + router;
  auto const document =
      nlohmann::json::parse(replay("-j --explain 10/swp2/239.1.1.1 " + captures).out);
  auto const& sent = document.at("sending").at("of-group");
  EXPECT_EQ(sent.at("records-v3"), 2);  // a change is said as often as the robustness variable says
  EXPECT_EQ(sent.at("reports-v2"), 0);
  EXPECT_EQ(sent.at("latest"), "v3 TO_EX of no source");

  EXPECT_THAT(replay("--explain 10/swp2/239.9.9.9 " + captures).out,
              HasSubstr("Nothing of it was for 239.9.9.9.\n"));
}

TEST_F(ProgramTest, ExplainRefusesWhatIsNotConfigured) {
  auto const vlan = replay("--explain 99/swp2/239.1.1.1 swp1=" + capture());
  EXPECT_EQ(vlan.status, 1);
  EXPECT_EQ(vlan.err, "igmpsnoopd: VLAN 99 is not configured; there is 10\n");
  auto const interface = replay("--explain 10/swp9/239.1.1.1 swp1=" + capture());
  EXPECT_EQ(interface.status, 1);
  EXPECT_EQ(interface.err,
            "igmpsnoopd: interface \"swp9\" is not configured; there are swp1 and swp2\n");
}

/// What a command of the shell writes to a terminal.
std::string shownOnTerminal(std::string const& command) {
  int terminal = -1;
  pid_t const child = forkpty(&terminal, nullptr, nullptr, nullptr);
  if (child == 0) {
    execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
    _exit(127);
  }
  std::string shown;
  std::array<char, 4096> bytes;
  for (ssize_t count = 0; (count = read(terminal, bytes.data(), bytes.size())) > 0;)
    shown.append(bytes.data(), static_cast<std::size_t>(count));
  close(terminal);
  waitpid(child, nullptr, 0);
  return shown;
}

/// Makes a replay take longer than a second, also one that a busy machine starts late: the second
/// half of its capture comes late.
class SlowReplayTest : public ProgramTest {
 protected:
  std::string command(std::string const& arguments) const {
    CaptureBuilder builder;
    for (int i = 0; i < 400; ++i) builder.at(someTime, FrameBuilder::reportV2(group));
    std::string const file = builder.write(directory.file("swp1.pcap"));
    std::string const half = std::to_string(std::filesystem::file_size(file) / 2);
    return "{ head -c " + half + " " + file + "; sleep 4; tail -c +" + half + " " + file +
           " | tail -c +2; } | " + IGMPSNOOPD + " replay --config " + configuration(twoPorts) +
           " swp1=- " + arguments;
  }
};

TEST_F(SlowReplayTest, TellsItsProgressOnATerminalAndTakesItBack) {
  std::string const shown = shownOnTerminal(command(">" + directory.file("out")));
  EXPECT_THAT(shown, StartsWith("\r\x1b[K"));
  EXPECT_THAT(shown, HasSubstr(" packets read\r\x1b[K"));
  EXPECT_THAT(contents(directory.file("out")), HasSubstr("239.1.1.1"));
}

TEST_F(SlowReplayTest, TellsNothingInAFile) {
  ASSERT_EQ(std::system((command(">/dev/null 2>") + directory.file("err")).c_str()), 0);
  EXPECT_EQ(contents(directory.file("err")), "");
}

TEST_F(SlowReplayTest, TellsNothingBetweenTheEventsOnATerminal) {
  EXPECT_THAT(shownOnTerminal(command("--events")), Not(HasSubstr("read")));
}

TEST_F(ProgramTest, GuessFromAFileWhoseNameIsNoUtf8IsAConfigurationThatCanBeUsed) {
  std::string const name = directory.file("swp1\xff\xfe.pcap");
  std::filesystem::rename(capture(), name);
  for (std::string const& given : {name, "swp1=" + name}) {
    std::string const guess = run("guess '" + given + "'").out;
    auto const outcome = run("check --config " + configuration(guess));
    EXPECT_EQ(outcome.status, 0) << given << '\n' << guess << outcome.err;
  }
}

TEST_F(ProgramTest, TracesGoToStandardErrorWithTheReplaysTime) {
  auto const outcome = replay("--trace IgmpSnoopingProxyAdapter=8 swp1=" + capture());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.err,
              StartsWith("0.000000 IgmpSnoopingProxyAdapter 8: "
                         "KelIgmpIntf::processSplitHorizon() g: 239.1.1.1 hostKey Vlan10swp1\n"));
  EXPECT_EQ(outcome.out, replay("swp1=" + capture()).out);
}

TEST_F(ProgramTest, ReplayReadsStandardInputAndPipes) {
  std::string const whole = replay("swp1=" + capture()).out;
  EXPECT_EQ(replay("swp1=- <" + capture()).out, whole);
  auto const piped =
      run("replay --config " + configuration(twoPorts) + " swp1=-", "cat " + capture() + " | ");
  EXPECT_EQ(piped.out, whole) << piped.err;
  auto const twice = replay("swp1=- swp2=- <" + capture());
  EXPECT_EQ(twice.status, 2);
  EXPECT_THAT(twice.err, HasSubstr("one capture alone"));
}

TEST_F(ProgramTest, ReplaySaysWhatItLeavesOut) {
  auto const outcome = replay("swp1=" + capture() + " swp2=" + capture());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, replay("swp1=" + capture()).out);
  EXPECT_EQ(outcome.err,
            "igmpsnoopd: swp2: 2 frames left out that the switch itself had sent (2 heard on "
            "another port before); capture what is heard alone: tcpdump -Q in\n");
}

TEST_F(ProgramTest, TracesOfWhatTheReplayBeginsWithAreWritten) {
  auto const outcome = replay("--trace IgmpSnooping::Proxy::ProxySm=0-15 swp1=" + capture());
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.err, StartsWith("0.000000 IgmpSnooping::Proxy::ProxySm "));
}

TEST_F(ProgramTest, CheckSaysThatAConfigurationIsUsable) {
  std::string const file = configuration(twoPorts + std::string("[[vlan]]\nid = 20\n"));
  auto const outcome = run("check --config " + file);
  EXPECT_EQ(outcome.status, 0);
  EXPECT_THAT(outcome.out,
              StartsWith(file + " is usable: 2 VLANs, 1 proxied, 2 interfaces; at most "));
  EXPECT_THAT(outcome.out, EndsWith(" MB of memory\n"));
  EXPECT_EQ(outcome.err, "");
}

TEST_F(ProgramTest, CheckAndReplayPrintEveryErrorOfAConfiguration) {
  std::string const file = configuration("colour = 1\n[defaults]\nrobustness-variable = 8\n");
  for (std::string const& arguments :
       {"check --config " + file, "replay --config " + file + " swp1=" + capture()}) {
    auto const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, StartsWith(file + ":1:1: "));
    EXPECT_THAT(outcome.err, HasSubstr("\n" + file + ":3:"));
  }
}

TEST_F(ProgramTest, ErrorsInTheJournalCarryTheirSeverity) {
  std::ofstream(directory.file("err")).flush();
  struct stat status {};
  ASSERT_EQ(stat(directory.file("err").c_str(), &status), 0);
  setenv("JOURNAL_STREAM",
         (std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino)).c_str(), 1);
  std::string const file = configuration("colour = 1\n");
  EXPECT_THAT(run("check --config " + file).err, StartsWith("<3>" + file + ":1:1: "));
  EXPECT_THAT(run("check --config " + directory.file("none.toml")).err, StartsWith("<3>cannot"));
  EXPECT_THAT(replay("swp1=" + directory.file("none.pcap")).err, StartsWith("<3>cannot"));
  unsetenv("JOURNAL_STREAM");
}

TEST_F(ProgramTest, ConfigurationThatCannotBeReadIsToldInTheProgramsName) {
  std::string const none = directory.file("none.toml");
  for (std::string const& command : {"live --config " + none, "check --config " + none,
                                     "replay --config " + none + " swp1=" + capture()}) {
    auto const outcome = run(command);
    EXPECT_EQ(outcome.status, 1) << command;
    EXPECT_EQ(outcome.out, "") << command;
    EXPECT_EQ(outcome.err, "igmpsnoopd: cannot read configuration " + none +
                               ": No such file or directory; give the name of a readable file\n");
  }
}

TEST_F(ProgramTest, EarlyErrorsOfAllCommandsAreOneLineInTheProgramsName) {
  std::string const none = directory.file("none");
  struct Case {
    std::string arguments;
    int status;
  };
  for (Case const& each :
       {Case{"", 2}, Case{"listen", 2}, Case{"live", 2}, Case{"replay", 2}, Case{"check", 2},
        Case{"diff", 2}, Case{"guess", 2}, Case{"check --config a b", 2},
        Case{"diff " + none + " " + none, 2}, Case{"guess " + none, 1},
        Case{"guess swp1=" + none, 1}, Case{"check --config " + directory.file(""), 1}}) {
    auto const outcome = run(each.arguments);
    EXPECT_EQ(outcome.status, each.status) << each.arguments;
    EXPECT_EQ(outcome.out, "") << each.arguments;
    EXPECT_THAT(outcome.err, StartsWith("igmpsnoopd: ")) << each.arguments;
    EXPECT_TRUE(isOneLine(outcome.err)) << outcome.err;
  }
}

TEST_F(ProgramTest, BadCaptureIsOneLineAndNothingIsPrinted) {
  std::string const cut = capture();
  std::filesystem::resize_file(cut, std::filesystem::file_size(cut) - 1);
  std::string const wireless =
      CaptureBuilder().linkType(DLT_IEEE802_11_RADIO).write(directory.file("wireless.pcap"));
  for (std::string const& arguments :
       {"swp1=" + cut, "--events -j swp1=" + cut, "swp1=" + wireless,
        "swp1=" + directory.file("none.pcap"), "swp1=" + directory.file(""),
        "swp1=" + configuration(twoPorts), "swp3=" + cut}) {
    auto const outcome = replay(arguments);
    EXPECT_EQ(outcome.status, 1) << arguments;
    EXPECT_EQ(outcome.out, "") << arguments;
    EXPECT_THAT(outcome.err, StartsWith("igmpsnoopd: "));
    EXPECT_TRUE(isOneLine(outcome.err)) << outcome.err;
  }
}

TEST_F(ProgramTest, PortThatIsNotConfiguredIsToldWithTheConfiguration) {
  EXPECT_EQ(replay("swp3=swp3.pcap").err, "igmpsnoopd: " + directory.file("switch.toml") +
                                              " has no interface \"swp3\" for capture swp3.pcap; "
                                              "it has swp1 and swp2\n");
}

TEST_F(ProgramTest, ReplayRunsWithTheConfigurationGuessedFromTheBundledCaptures) {
  std::string captures;
  for (char const* const port : {"swp1", "swp2", "swp3", "swp4"})
    captures += std::string(" ") + CAPTURES + port + ".pcap";
  auto const guessed = run("guess" + captures);
  EXPECT_EQ(guessed.status, 0) << guessed.err;
  auto const guess = configuration(guessed.out);
  EXPECT_EQ(run("check --config " + guess).status, 0);
  std::string const swp1 = std::string("swp1=") + CAPTURES + "swp1.pcap";
  EXPECT_THAT(run("replay --config " + guess + " --show groups " + swp1).out,
              HasSubstr("239.1.1.1  swp1       10.0.10.11"));
}

TEST_F(ProgramTest, DiffOfTheSameReplayFindsNothing) {
  std::string const a = directory.file("a.json");
  std::ofstream(a) << replay("-j swp1=" + capture()).out;
  auto const outcome = run("diff " + a + " - <" + a);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "No difference in hosts.\n");
}

TEST_F(ProgramTest, DiffOfReplaysThatDifferEndsWithOne) {
  std::string const a = directory.file("a.json");
  std::string const b = directory.file("b.json");
  std::ofstream(a) << replay("-j --show hosts,mrouters swp1=" + capture()).out;
  std::ofstream(b) << replay("-j --show hosts,mrouters --until 1 swp1=" + capture()).out;
  auto const outcome = run("diff " + a + " " + b);
  EXPECT_EQ(outcome.status, 1) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("\n  10  swp1       querier 192.0.2.10  -"));
  EXPECT_EQ(run("diff -j " + a + " " + b).status, 1);
}

TEST_F(ProgramTest, DiffThatCannotBeMadeEndsWithTwoAndOneLine) {
  std::string const a = directory.file("a.json");
  std::ofstream(a) << "{}";
  for (std::string const& other : {directory.file("missing"), a, "ctl:" + a}) {
    auto const outcome = run("diff " + other + " " + other);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_TRUE(isOneLine(outcome.err)) << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr(other.substr(other.find('/'))));
  }
}

TEST_F(ProgramTest, WrongUsageIsOneLineWithAHint) {
  for (char const* const arguments :
       {"", "live", "replay", "check", "check --config", "--nothing", "check --config a --config b",
        "replay --config a swp1", "replay --config a swp1=b --until never"}) {
    auto const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << arguments;
    EXPECT_EQ(outcome.out, "") << arguments;
    EXPECT_THAT(outcome.err, StartsWith("igmpsnoopd: "));
    EXPECT_THAT(outcome.err, HasSubstr("--help"));
    EXPECT_TRUE(isOneLine(outcome.err)) << outcome.err;
  }
}

TEST_F(ProgramTest, HelpAndVersionAreDone) {
  for (char const* const arguments : {"--help", "--version", "replay --help", "check --help"}) {
    auto const outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0) << arguments;
    EXPECT_NE(outcome.out, "") << arguments;
    EXPECT_EQ(outcome.err, "") << arguments;
  }
}

TEST_F(ProgramTest, OutputThatCannotBeWrittenIsAnError) {
  for (char const* const redirection : {">/dev/full", ">&-"}) {
    auto const outcome = replay("swp1=" + capture() + " " + redirection);
    EXPECT_EQ(outcome.status, 1) << redirection;
    EXPECT_THAT(outcome.err, StartsWith("igmpsnoopd: cannot write to standard output: "));
    EXPECT_TRUE(isOneLine(outcome.err)) << outcome.err;
  }
}

TEST_F(ProgramTest, ReaderThatWentAwayIsAnError) {
  // The reader is gone before the program starts: it closes its end, and then lets it start.
  std::string const gone = directory.file("gone");
  std::string const arguments = " check --config " + configuration(twoPorts);
  std::string const script = "{ while [ ! -e " + gone + " ]; do :; done; " + IGMPSNOOPD +
                             arguments + " 2>" + directory.file("err") + "; echo $? >" +
                             directory.file("status") + "; } | { exec <&-; : >" + gone + "; }";
  ASSERT_EQ(std::system(script.c_str()), 0);
  EXPECT_EQ(contents(directory.file("status")), "1\n");
  EXPECT_THAT(contents(directory.file("err")), HasSubstr("Broken pipe"));
}

}  // namespace
}  // namespace Agent
