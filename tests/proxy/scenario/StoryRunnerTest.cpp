#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/proxy/scenario/StoryRunner.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {
namespace {

using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// "line: text" of everything that is wrong with a story.
Lines wrongIn(std::string const& text) {
  std::vector<Failure> failures;
  try {
    failures = StoryRunner::run(Story::fromText(text));
  } catch (Failure const& failure) {
    failures = {failure};
  }
  Lines lines;
  for (auto const& failure : failures)
    lines.push_back(std::to_string(failure.line) + ": " + failure.text);
  return lines;
}

/// The same, after a VLAN with one served port, from line 8 on.
Lines wrongAfter(std::string const& statements) {
  return wrongIn(
      "title A served port\n"
      "topology 10 swp1\n"
      "kernel swp1 as eth0\n"
      "proxy 10 on\n"
      "querier 10 version 2\n"
      "start\n"
      "topology 10 swp2  # which the kernel does not have\n" +
      statements);
}

TEST(WrongStory, ARightOneHasNothingWrong) {
  EXPECT_THAT(wrongAfter("expect vlans 10\n"
                         "expect host Vlan10swp1 version 2 device eth0 pam no\n"
                         "# a comment\n"
                         "\n"
                         "expect ports 10 swp1 # another\n"),
              IsEmpty());
}

TEST(WrongStory, NeedsATitleAndStatements) {
  EXPECT_THAT(wrongIn(""), ElementsAre("1: a story begins with its title"));
  EXPECT_THAT(wrongIn("# nothing\n\nstart\n"), ElementsAre("3: a story begins with its title"));
  EXPECT_THAT(wrongIn("title\nstart\n"), ElementsAre("1: a story begins with its title"));
  EXPECT_THAT(wrongIn("title Nothing happens\n"), ElementsAre("1: a story without statements"));
}

TEST(WrongStory, KeepsItsTitleAsWritten) {
  EXPECT_EQ(Story::fromText("title  A  title, \"quoted\"\nstart\n").title, "A  title, \"quoted\"");
}

TEST(WrongStory, UnknownStatementsAreNamed) {
  EXPECT_THAT(wrongAfter("reboot\n"),
              ElementsAre("8: expected something that happens instead of reboot"));
  EXPECT_THAT(wrongAfter("no start\n"),
              ElementsAre("8: expected something that happens instead of start"));
  EXPECT_THAT(wrongAfter("expect luck\n"),
              ElementsAre("8: expected something that can be expected instead of luck"));
  EXPECT_THAT(wrongAfter("expect\n"), ElementsAre("8: expected something that can be expected"));
}

TEST(WrongStory, MissingAndWrongWordsAreNamed) {
  EXPECT_THAT(wrongAfter("kernel swp1\n"), ElementsAre("8: expected as"));
  EXPECT_THAT(wrongAfter("kernel swp1 as\n"), ElementsAre("8: expected a device"));
  EXPECT_THAT(wrongAfter("topology 10\n"), ElementsAre("8: expected a port"));
  EXPECT_THAT(wrongAfter("topology x swp1\n"), ElementsAre("8: expected a VLAN instead of x"));
  EXPECT_THAT(wrongAfter("topology 4095 swp1\n"),
              ElementsAre("8: expected a VLAN instead of 4095"));
  EXPECT_THAT(wrongAfter("proxy 10 perhaps\n"), ElementsAre("8: expected off"));
  EXPECT_THAT(wrongAfter("querier 10 version 4\n"), ElementsAre("8: expected 1, 2 or 3"));
  EXPECT_THAT(wrongAfter("port 10 swp1 direction up\n"),
              ElementsAre("8: expected both, ingress, egress or none"));
  EXPECT_THAT(wrongAfter("port 10 swp9 blocked yes\n"),
              ElementsAre("8: expected a member port of the VLAN"));
  EXPECT_THAT(wrongAfter("report 10 swp1 from nobody include 239.1.1.1\n"),
              ElementsAre("8: expected a reporter instead of nobody"));
  EXPECT_THAT(wrongAfter("expect host Vlan10swp1 colour red\n"),
              ElementsAre("8: expected what the host has instead of colour"));
  EXPECT_THAT(wrongAfter("expect ports 10\n"), ElementsAre("8: expected a list, or none"));
  EXPECT_THAT(wrongAfter("stop now\n"),
              ElementsAre("8: expected the end of the statement instead of now"));
  EXPECT_THAT(wrongAfter("expect trace 9 \"open\n"),
              ElementsAre("8: a text without closing quote"));
}

TEST(WrongStory, EndsWhereItMakesNoSense) {
  EXPECT_THAT(wrongAfter("reboot\nexpect vlans none\n"), ElementsAre(HasSubstr("reboot")));
}

TEST(WrongStory, ReportsThatNobodyLearnsFromAreRefused) {
  EXPECT_THAT(wrongAfter("report 10 swp1 from 10.0.0.1 exclude 224.0.0.1\n"),
              ElementsAre(HasSubstr("8: expected a report that is learned from")));
}

TEST(WrongStory, TellsWhatWasExpectedAndWhatFound) {
  EXPECT_THAT(wrongAfter("expect vlans 10 20\n"
                         "expect hosts none\n"
                         "expect ports 10 swp1 swp2\n"
                         "expect watched 10 swp1\n"
                         "expect keys 10 none\n"
                         "expect adapters none\n"
                         "expect mapping swp1 11\n"
                         "expect devices swp1\n"),
              ElementsAre("8: expected vlans 10 20, found vlans 10",
                          "9: expected hosts none, found hosts Vlan10swp1",
                          "10: expected ports swp1 swp2, found ports swp1",
                          "11: expected watched swp1, found watched swp1 swp2",
                          "12: expected keys none, found keys Vlan10swp1",
                          "13: expected adapters none, found adapters 10",
                          "14: expected mapping 11, found mapping 10",
                          "15: expected devices swp1, found devices none"));
}

TEST(WrongStory, TellsOfEachAttributeOfAHost) {
  EXPECT_THAT(
      wrongAfter("expect host Vlan10swp1 vlan 11 port swp2 version 3 device eth1\n"
                 "expect host Vlan10swp1 blocked yes direction none pam yes enabled no\n"
                 "expect host Vlan10swp1 external no mux yes tagged yes configured 2\n"
                 "expect host Vlan10swp9 vlan 10\n"),
      ElementsAre("8: expected vlan 11, found vlan 10", "8: expected port swp2, found port swp1",
                  "8: expected version 3, found version 2",
                  "8: expected device eth1, found device eth0",
                  "9: expected blocked yes, found blocked no",
                  "9: expected direction none, found direction both",
                  "9: expected pam yes, found pam no", "9: expected enabled no, found enabled yes",
                  "10: expected external no, found external yes",
                  "10: expected mux yes, found mux no", "10: expected tagged yes, found tagged no",
                  "10: expected configured 2, found configured 1",
                  "11: expected host Vlan10swp9, found none of that name"));
}

TEST(WrongStory, TellsOfAnotherAdapter) {
  EXPECT_THAT(wrongAfter("expect vlan 10 adapter none\n"
                         "expect vlan 10 adapter 11\n"
                         "expect vlan 11 adapter none\n"),
              ElementsAre("8: expected adapter none, found adapter 10",
                          "9: expected adapter 11, found adapter 10",
                          "10: expected adapter none, found a VLAN that is not proxied"));
}

TEST(WrongStory, TellsOfAFormerAdapter) {
  EXPECT_THAT(wrongAfter("private 20 isolated 10\n"
                         "querier 20 version 3\n"
                         "expect vlan 20 adapter 10\n"
                         "proxy 10 off\n"
                         "expect vlan 20 adapter 10\n"),
              ElementsAre("12: expected adapter 10, found a former adapter 10"));
}

TEST(WrongStory, TellsOfOtherTagging) {
  EXPECT_THAT(
      wrongAfter("bridging 10 swp1 untagged\n"
                 "expect egress 10 swp1 tagged\n"
                 "expect untagged swp1 none\n"
                 "expect untagged swp2 10\n"),
      ElementsAre("9: expected tagged, found untagged", "10: expected VLAN none, found VLAN 10",
                  "11: expected VLAN 10, found VLAN none"));
}

TEST(WrongStory, ProxyIsStartedOnceAndAskedWhileItRuns) {
  EXPECT_THAT(wrongAfter("start\n"), ElementsAre("8: expected a proxy that does not run"));
  EXPECT_THAT(wrongAfter("stop\nexpect adapters none\nexpect vlans none\n"), IsEmpty());
  EXPECT_THAT(wrongAfter("stop\nexpect untagged swp1 none\n"),
              ElementsAre("9: expected a proxy that runs"));
}

TEST(WrongStory, TellsOfOtherRecords) {
  EXPECT_THAT(wrongAfter("kernel swp2 as eth1\n"
                         "report 10 swp1 from 10.0.0.1 include 239.1.1.1 192.0.2.1\n"
                         "expect records Vlan10swp2 none\n"
                         "expect records Vlan10swp1 239.1.1.1 exclude\n"
                         "expect records Vlan10swp2 239.1.1.1 include 192.0.2.1, 239.1.1.2 "
                         "exclude\n"
                         "expect records Vlan10swp3 none\n"),
              ElementsAre("10: expected no records, found 239.1.1.1 include 192.0.2.1",
                          "11: expected 239.1.1.1 exclude, found no records",
                          "12: expected 239.1.1.1 include 192.0.2.1, 239.1.1.2 exclude, found "
                          "239.1.1.1 include 192.0.2.1",
                          "13: expected host Vlan10swp3, found none of that name"));
}

TEST(WrongStory, TellsOfMissingTracesAndOfTheirOrder) {
  std::string const blocked =
      "void Bridging::IgmpSnooping::Proxy::ProxyVlanSm::KelProxyTopoPort::handleTopoPortBlocked()"
      " blocked is 1";
  std::string const handle =
      "void Bridging::IgmpSnooping::Proxy::ProxyPortSm::handleBlocked() 10 swp1";
  EXPECT_THAT(wrongAfter("port 10 swp1 blocked yes\n"
                         "expect trace 8 \"" +
                         handle +
                         "\"\n"
                         "expect trace 8 \"" +
                         blocked + "\"\n"),
              ElementsAre("10: expected trace 8 " + blocked + ", found no further traces"));
  EXPECT_THAT(wrongAfter("port 10 swp1 blocked yes\n"
                         "expect trace 9 \"" +
                         handle + "\"\n"),
              ElementsAre(AllOf(HasSubstr("9: expected trace 9 " + handle + ", found traces\n"),
                                HasSubstr("\n    8 " + blocked), HasSubstr("\n    8 " + handle))));
}

TEST(WrongStory, TellsOfTracesThatAreNotToBe) {
  EXPECT_THAT(wrongAfter("proxy 10 on\n"
                         "expect no trace\n"
                         "renotify kernel\n"
                         "expect no trace \"handlePort\"\n"
                         "expect no trace \"swp3\"\n"
                         "expect no trace\n"),
              ElementsAre(AllOf(HasSubstr("11: expected no trace with \"handlePort\""),
                                HasSubstr("ProxyVlanSm::handlePort()")),
                          HasSubstr("13: expected no trace, found 9 10:void")));
}

TEST(WrongStory, TellsWhatChangedThoughNothingShould) {
  EXPECT_THAT(
      wrongAfter("port 10 swp1 blocked yes\n"
                 "expect nothing changed\n"),
      ElementsAre(AllOf(HasSubstr("9: expected nothing changed, found \n  - host"),
                        HasSubstr("blocked 0"), HasSubstr("\n  + host"), HasSubstr("blocked 1"))));
}

TEST(WrongStory, TellsOfOtherObjectsThoughAllReadsAsBefore) {
  EXPECT_THAT(wrongAfter("topology 10 -swp1 swp1\n"
                         "expect nothing changed\n"),
              ElementsAre("9: expected nothing changed, found other objects in place"));
}

TEST(WrongStory, ExceptionsAreToBeExpectedAtOnce) {
  std::string const text = "VlanId::value < 1 or > 4094 not allowed";
  EXPECT_THAT(wrongAfter("querier abc version 3\n"
                         "expect vlans 10\n"),
              ElementsAre("8: expected no exception, found \"" + text + '"'));
  EXPECT_THAT(wrongAfter("querier abc version 3\n"),
              ElementsAre("8: expected no exception, found \"" + text + '"'));
  EXPECT_THAT(wrongAfter("querier abc version 3\n"
                         "querier 10 version 3\n"),
              ElementsAre("8: expected no exception, found \"" + text + '"'));
  EXPECT_THAT(wrongAfter("querier abc version 3\n"
                         "expect throws \"no\"\n"),
              ElementsAre("9: expected exception \"no\", found \"" + text + '"'));
  EXPECT_THAT(wrongAfter("querier 10 version 3\n"
                         "expect throws \"" +
                         text + "\"\n"),
              ElementsAre("9: expected exception \"" + text + "\", found no exception"));
}

}  // namespace
}  // namespace Bridging::IgmpSnooping::Proxy::Testing
