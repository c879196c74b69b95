#include <algorithm>
#include <cerrno>
#include <limits>
#include <linux/netlink.h>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/live/KernelInterfaces.h"
#include "agent/text/Wording.h"
#include "tests/agent/live/FakeNetlink.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Le;
using Wirex::IntfId;

/// What there is, by name; its number, and "down" where it is.
using Interfaces = std::map<std::string, std::string>;

class KernelInterfacesTest : public testing::Test {
 protected:
  static std::string describe(InterfaceState const& state) {
    if (!state.present) return "gone";
    return message(state.kernelIndex, state.operational() ? "" : " down");
  }

  void add(std::uint32_t first, std::uint32_t last) {
    for (std::uint32_t index = first; index <= last; ++index) add(index);
  }
  void add(std::uint32_t index, std::string const& name, bool up = true) {
    kernel.add(index, name, up);
    there[name] = message(index, up ? "" : " down");
  }
  void add(std::uint32_t index) { add(index, message("swp", index)); }
  void del(std::uint32_t index, std::string const& name) {
    kernel.del(index);
    there.erase(name);
  }
  void del(std::uint32_t index) { del(index, message("swp", index)); }

  void follow() {
    interfaces.emplace(
        loop,
        [this](IntfId const& intf, InterfaceState const& state) {
          std::string const name = message(intf);
          if (state.present)
            known[name] = describe(state);
          else
            known.erase(name);
          told.push_back(message(name, ' ', describe(state)));
        },
        kernel.socket());
    told.clear();
  }

  /// Turns until nothing is left to be read and told, but lets no pause pass.
  void turn() {
    for (int turns = 0; turns < 100; ++turns) loop.turn(loop.now());
  }
  void pass(Horix::Time time) {
    for (auto const end = loop.now() + time; loop.now() < end;) {
      loop.timerWheel()->advanceTo(loop.now() + 1ms);
      loop.turn(loop.now());
    }
  }

  FakeNetlink kernel;
  Horix::EventLoop loop{Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>())};
  Interfaces there;
  Interfaces known;
  std::vector<std::string> told;
  std::optional<KernelInterfaces> interfaces;
};

TEST_F(KernelInterfacesTest, InterfacesThatThereAreAreToldBeforeAnythingElse) {
  add(1, 30);
  follow();
  EXPECT_EQ(known, there);
}

TEST_F(KernelInterfacesTest, ChangesAreTold) {
  add(1, 3);
  follow();
  add(4);
  add(2, "swp2", false);
  del(3);
  pass(5ms);
  EXPECT_EQ(known, there);
  EXPECT_EQ(kernel.requests, 1u);
}

// ---- What is lost

TEST_F(KernelInterfacesTest, WhatWasLostIsAskedForWhenTheQueueIsEmpty) {
  kernel.queueSize = 5;
  follow();
  add(1, 20);  // of which 15 are lost
  kernel.onReceive = [&] {
    if (kernel.requests == 1) add(21);  // dropped: the queue is not empty yet
    kernel.onReceive = nullptr;
  };
  pass(20ms);
  EXPECT_EQ(kernel.dropped, 16u);
  EXPECT_EQ(known, there);
  EXPECT_EQ(kernel.requests, 2u);
}

TEST_F(KernelInterfacesTest, LinkThatWentWhileNotificationsWereLostIsGone) {
  add(1, 20);
  follow();
  kernel.overrun();
  for (std::uint32_t index = 5; index <= 15; ++index) del(index);
  pass(20ms);
  EXPECT_EQ(known, there);
}

struct Overruns {
  char const* when;
  std::vector<unsigned> datagrams;  ///< of the answer, before which the kernel begins to drop
};

class KernelInterfacesOverrun : public KernelInterfacesTest,
                                public testing::WithParamInterface<Overruns> {};

TEST_P(KernelInterfacesOverrun, InTheAnswerToALossIsMadeUpForToo) {
  add(1, 20);
  follow();
  std::uint32_t next = 100;
  kernel.onAnswer = [&](unsigned datagram) {
    if (kernel.requests > 2) return;
    for (unsigned const when : GetParam().datagrams)
      if (datagram == when) {
        kernel.overrun();
        add(next++);  // beyond what the answer has come to, and before
        del(next - 99);
      }
  };
  kernel.overrun();
  pass(200ms);
  EXPECT_EQ(kernel.dropped, 2 * GetParam().datagrams.size());
  EXPECT_EQ(known, there);
  EXPECT_EQ(kernel.opened, 1u);
}

INSTANTIATE_TEST_SUITE_P(, KernelInterfacesOverrun,
                         testing::Values(Overruns{"AtItsBeginning", {0}},
                                         Overruns{"InItsMiddle", {5}}, Overruns{"AtItsEnd", {10}},
                                         Overruns{"Twice", {3, 7}}),
                         [](auto const& each) { return each.param.when; });

TEST_F(KernelInterfacesTest, AnswerThatChangesInterruptedIsAskedForAgain) {
  add(1, 5);
  kernel.interruptedAnswers = 2;
  follow();
  EXPECT_EQ(known, there);
  EXPECT_EQ(kernel.requests, 3u);
}

TEST_F(KernelInterfacesTest, InterruptedAnswersAreFollowedByGrowingPauses) {
  add(1, 5);
  follow();
  kernel.interruptedAnswers = 1000;
  kernel.overrun();
  pass(1s);
  EXPECT_THAT(kernel.requests, Le(10u));
  kernel.interruptedAnswers = 0;
  pass(5s);
  unsigned const requests = kernel.requests;
  pass(20s);
  EXPECT_EQ(kernel.requests, requests) << "a whole answer is enough";
}

TEST_F(KernelInterfacesTest, MessageThatGoesBeyondItsDatagramIsPassedOver) {
  add(1, 2);
  follow();
  kernel.claim(NLMSG_HDRLEN + 1);
  kernel.claim(0x80000010);
  add(3, 3);
  turn();
  EXPECT_EQ(known, there);
}

TEST_F(KernelInterfacesTest, RefusalOfTheLeastNumberIsARefusalToo) {
  add(1, 2);
  follow();
  kernel.refuse(std::numeric_limits<int>::min());
  turn();
  EXPECT_EQ(known, there);
}

TEST_F(KernelInterfacesTest, LastLinkInALongTurnIsFollowedByTheRequestAllTheSame) {
  follow();
  kernel.onReceive = [&] { loop.timerWheel()->advanceTo(loop.now() + 3ms); };  // a turn is over
  kernel.overrun();
  add(1, 3);
  pass(100ms);
  EXPECT_EQ(known, there);
}

// ---- What fails

struct Fault {
  char const* name;
  void (*happen)(FakeNetlink&);
};

void startAnswering(FakeNetlink& kernel) {
  kernel.onAnswer = [&kernel](unsigned datagram) {
    if (datagram == 2 && kernel.opened == 1) kernel.receiveErrors = {ENOMEM};
  };
  kernel.overrun();
}

constexpr Fault faults[] = {
    {"NoMemoryToReceive", [](FakeNetlink& kernel) { kernel.receiveErrors = {ENOMEM}; }},
    {"NoMemoryInTheMiddleOfAnAnswer", startAnswering},
    {"RequestThatTheQueueDoesNotTake",
     [](FakeNetlink& kernel) {
       kernel.sendErrors = {EAGAIN, ENOBUFS, ENOMEM};
       kernel.overrun();
     }},
    {"RequestThatIsRefused", [](FakeNetlink& kernel) { kernel.refuse(EBUSY); }},
    {"AnswerThatFails",
     [](FakeNetlink& kernel) {
       kernel.nextAnswerEndsWith = ENOMEM;
       kernel.overrun();
     }},
    {"AnswerThatFailsWithTheLeastNumber",
     [](FakeNetlink& kernel) {
       kernel.nextAnswerEndsWith = std::numeric_limits<int>::min();
       kernel.overrun();
     }},
    {"SocketThatCannotBeOpened",
     [](FakeNetlink& kernel) {
       kernel.openErrors = {EMFILE, ENFILE, ENOBUFS};
       kernel.receiveErrors = {ENOMEM};
     }},
    {"AnswerThatDoesNotCome",
     [](FakeNetlink& kernel) {
       kernel.answers = false;
       kernel.overrun();
     }},
};

class KernelInterfacesFault : public KernelInterfacesTest,
                              public testing::WithParamInterface<Fault> {};

TEST_P(KernelInterfacesFault, IsOvercome) {
  add(1, 10);
  follow();
  GetParam().happen(kernel);
  pass(1ms);
  add(11);
  del(4);
  pass(1s);
  kernel.answers = true;
  pass(6s);
  EXPECT_EQ(known, there);
}

INSTANTIATE_TEST_SUITE_P(, KernelInterfacesFault, testing::ValuesIn(faults),
                         [](auto const& each) { return each.param.name; });

TEST_F(KernelInterfacesTest, FaultAtTheStartIsOvercomeBeforeAnythingIsTold) {
  kernel.sendErrors = {EAGAIN, EAGAIN};
  kernel.receiveErrors = {ENOMEM};
  add(1, 5);
  follow();
  EXPECT_EQ(known, there);
}

TEST_F(KernelInterfacesTest, KernelThatNeverAnswersDoesNotHoldTheStartUp) {
  kernel.answers = false;
  add(1, 5);
  follow();
  EXPECT_THAT(known, IsEmpty());
  kernel.answers = true;
  pass(10s);
  EXPECT_EQ(known, there);
}

TEST_F(KernelInterfacesTest, SocketThatCannotBeOpenedAtTheStartIsAnError) {
  kernel.openErrors = {EAFNOSUPPORT};
  EXPECT_THROW(follow(), std::system_error);
}

TEST_F(KernelInterfacesTest, FaultThatStaysIsTriedWithGrowingPausesAndToldOnce) {
  follow();
  kernel.receiveErrors = {ENOMEM};
  kernel.openErrors.assign(1000, EMFILE);
  add(1);
  testing::internal::CaptureStderr();
  pass(60s);
  std::string const log = testing::internal::GetCapturedStderr();
  EXPECT_THAT(kernel.openErrors.size(), testing::AllOf(Le(985u), testing::Ge(975u)));
  EXPECT_THAT(log, testing::HasSubstr("cannot follow the kernel's interfaces"));
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);
  kernel.openErrors.clear();
  pass(6s);
  EXPECT_EQ(known, there);
}

// ---- What is told

TEST_F(KernelInterfacesTest, ChangesBetweenTwoTurnsAreToldAsOne) {
  add(1);
  follow();
  for (unsigned round = 0; round < 5; ++round) {
    kernel.del(1 + round);
    kernel.add(2 + round, "swp1");
  }
  turn();
  EXPECT_THAT(told, ElementsAre("swp1 gone", "swp1 6"));
}

TEST_F(KernelInterfacesTest, InterfaceThatReturnsUnderItsNumberWasGone) {
  add(1);
  follow();
  kernel.del(1);
  kernel.add(1, "swp1");
  turn();
  EXPECT_THAT(told, ElementsAre("swp1 gone", "swp1 1"));
}

TEST_F(KernelInterfacesTest, InterfaceThatWasDownMeanwhileIsToldSo) {
  add(1);
  follow();
  kernel.add(1, "swp1", false);
  kernel.add(1, "swp1");
  turn();
  EXPECT_THAT(told, ElementsAre("swp1 1 down", "swp1 1"));
}

TEST_F(KernelInterfacesTest, InterfaceThatCameAndWentIsNotTold) {
  follow();
  kernel.add(1, "swp1");
  kernel.del(1);
  turn();
  EXPECT_THAT(told, IsEmpty());
}

TEST_F(KernelInterfacesTest, InterfaceThatWasMadeAgainWhileNotificationsWereLostWasGone) {
  add(1);
  follow();
  kernel.overrun();
  kernel.del(1);
  kernel.add(2, "swp1");
  pass(20ms);
  EXPECT_THAT(told, ElementsAre("swp1 gone", "swp1 2"));
}

TEST_F(KernelInterfacesTest, NameGoesToWhoHasItNow) {
  add(1);
  add(2);
  follow();
  kernel.add(1, "swp3");
  kernel.add(2, "swp1");
  turn();
  EXPECT_EQ(known, (Interfaces{{"swp1", "2"}, {"swp3", "1"}}));
}

TEST_F(KernelInterfacesTest, OthersGetTheirTurnWhileManyAreTold) {
  follow();
  add(1, 50);
  std::size_t most = 0;
  for (std::size_t before = 0; told.size() < 50; before = told.size()) {
    loop.timerWheel()->advanceTo(loop.now() + 1ms);
    loop.turn(loop.now());
    most = std::max(most, told.size() - before);
  }
  EXPECT_LE(most, 16u) << "of the socket, and of the timer";
  EXPECT_EQ(known, there);
}

TEST_F(KernelInterfacesTest, OthersGetTheirTurnWhileMuchIsRead) {
  kernel.queueSize = 10000;
  follow();
  for (int i = 0; i < 1000; ++i) kernel.add(1, "swp1");
  int received = 0;
  kernel.onReceive = [&] {
    ++received;
    loop.timerWheel()->advanceTo(loop.now() + 100us);
  };
  loop.turn(loop.now());
  EXPECT_THAT(received, Le(50));
}

}  // namespace
}  // namespace Agent
