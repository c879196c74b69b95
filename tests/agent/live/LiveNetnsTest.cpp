#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <optional>
#include <poll.h>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <variant>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/text/Wording.h"
#include "platform/igmp/wire/PacketReader.h"
#include "tests/agent/live/RunningAgent.h"
#include "tests/platform/igmp/FrameBuilder.h"

/// Runs the real igmpsnoopd on kernel interfaces, between a kernel that listens and a router.
namespace Agent {
namespace {

using namespace InterfaceTest;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using Wirex::IpAddr;

constexpr char const* group = "239.1.1.1";
constexpr char const* source = "192.0.2.1";

/// A socket in a namespace that joins groups there.
class Listener {
 public:
  explicit Listener(NetworkNamespace const& space) {
    NetworkNamespace::Inside const inside(space);
    descriptor_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    interface_ = if_nametoindex("eth0");
  }
  Listener(Listener const&) = delete;
  Listener& operator=(Listener const&) = delete;
  ~Listener() { close(descriptor_); }

  void join(char const* address) const {
    group_source_req request{};
    request.gsr_interface = interface_;
    fill(request.gsr_group, address);
    fill(request.gsr_source, source);
    if (setsockopt(descriptor_, IPPROTO_IP, MCAST_JOIN_SOURCE_GROUP, &request, sizeof request) < 0)
      throw std::system_error(errno, std::generic_category(), "MCAST_JOIN_SOURCE_GROUP");
  }

 private:
  static void fill(sockaddr_storage& storage, char const* address) {
    auto& internet = reinterpret_cast<sockaddr_in&>(storage);
    internet.sin_family = AF_INET;
    inet_pton(AF_INET, address, &internet.sin_addr);
  }

  int descriptor_;
  unsigned interface_;
};

/// A packet socket in a namespace that says whatever it is told.
class Talker {
 public:
  explicit Talker(NetworkNamespace const& space) {
    NetworkNamespace::Inside const inside(space);
    descriptor_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    address_.sll_family = AF_PACKET;
    address_.sll_ifindex = static_cast<int>(if_nametoindex("eth0"));
  }
  Talker(Talker const&) = delete;
  Talker& operator=(Talker const&) = delete;
  ~Talker() { close(descriptor_); }

  void say(IgmpTest::FrameBuilder const& frame) const {
    auto const bytes = frame.bytes();
    if (sendto(descriptor_, bytes.data(), bytes.size(), 0,
               reinterpret_cast<sockaddr const*>(&address_), sizeof address_) < 0)
      throw std::system_error(errno, std::generic_category(), "sendto");
  }

 private:
  int descriptor_;
  sockaddr_ll address_{};
};

/// A packet socket in a namespace that tells what reports come in.
class Router {
 public:
  explicit Router(NetworkNamespace const& space) {
    NetworkNamespace::Inside const inside(space);
    descriptor_ = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL));
    int const yes = 1;
    setsockopt(descriptor_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &yes, sizeof yes);
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex("eth0"));
    bind(descriptor_, reinterpret_cast<sockaddr const*>(&address), sizeof address);
  }
  Router(Router const&) = delete;
  Router& operator=(Router const&) = delete;
  ~Router() { close(descriptor_); }

  /// Waits for a record, "TYPE GROUP SOURCE...". Returns after how long it came, or nothing.
  std::optional<std::chrono::milliseconds> await(std::string const& record,
                                                 std::chrono::milliseconds longest = 10s) const {
    auto const begin = Clock::now();
    for (auto now = begin; now < begin + longest; now = Clock::now()) {
      pollfd ready{descriptor_, POLLIN, 0};
      auto const left = std::chrono::ceil<std::chrono::milliseconds>(begin + longest - now);
      if (poll(&ready, 1, static_cast<int>(left.count())) <= 0) break;
      auto const records = receive();
      if (std::find(records.begin(), records.end(), record) != records.end())
        return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin);
    }
    return std::nullopt;
  }

 private:
  std::vector<std::string> receive() const {
    std::vector<std::uint8_t> frame(2048);
    ssize_t const size = recv(descriptor_, frame.data(), frame.size(), 0);
    frame.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
    std::vector<std::string> texts;
    auto const ethernet = Igmp::parseEthernet(frame);
    if (!ethernet) return texts;
    auto const packet = Igmp::parsePacket(*ethernet, Igmp::ReceivePolicy{true});
    if (!packet || !std::holds_alternative<Igmp::ReportV3>(packet->message)) return texts;
    for (Igmp::GroupRecord const& each : std::get<Igmp::ReportV3>(packet->message).records) {
      std::string text = message(static_cast<unsigned>(each.type), ' ', each.group);
      for (IpAddr const address : each.sources) text += message(' ', address);
      texts.push_back(text);
    }
    return texts;
  }

  int descriptor_;
};

std::string allow(char const* address) {
  return message("5 ", address, ' ', source);
}
std::string block(char const* address) {
  return message("6 ", address, ' ', source);
}

class LiveNetnsTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { impossible = VethCable::impossible(); }

  void SetUp() override {
    if (impossible) GTEST_SKIP() << *impossible;
    space.emplace();
    listening.emplace();
    routing.emplace();
    plug("swp1", *listening, "10.0.0.1/24");
    plug("swp2", *routing, "10.0.0.254/24");
    listener.emplace(*listening);
    router.emplace(*routing);
  }

  void plug(std::string const& port, NetworkNamespace const& far, std::string const& address) {
    ip(*space, "link add " + port + " type veth peer name eth0 netns " + far.path());
    ip(far, "link set eth0 up");
    ip(far, "address add " + address + " dev eth0");
    ip(*space, "link set " + port + " up");
  }

  void start(RunningAgent::Start const& how = {}) {
    agent.emplace(*space, configuration(), how);
    EXPECT_TRUE(agent->awaitNotification("READY=1")) << agent->log();
    // What a listener says before is not heard.
    EXPECT_TRUE(awaitLog("interface swp1 is up") && awaitLog("interface swp2 is up"));
  }

  static std::string configuration(std::string const& more = "") {
    return "[[interface]]\nname = \"swp[1-3]\"\n[[vlan]]\nid = 10\n"
           "querier = { igmp-version = 3 }\ninterfaces = [\"swp[1-3]\"]\n"
           "static-bridge-mrouter-interface = [\"swp2\"]\n" +
           more;
  }

  bool awaitLog(std::string const& text) const {
    for (auto const end = Clock::now() + 10s; Clock::now() < end; std::this_thread::sleep_for(2ms))
      if (agent->log().find(text) != std::string::npos) return true;
    return false;
  }

  /// What igmpsnoopctl shows.
  std::string shown(char const* what) const {
    TemporaryDirectory const directory;
    std::string const file = directory.file("shown");
    EXPECT_EQ(std::system(
                  message(IGMPSNOOPCTL, " --socket ", agent->control(), " show ", what, " >", file)
                      .c_str()),
              0);
    return message(std::ifstream(file).rdbuf());
  }

  std::string ofProcess(std::string const& field) const {
    return ofStatus("/proc/" + std::to_string(agent->process()) + "/status", field);
  }
  static std::string ofStatus(std::string const& fileName, std::string const& field) {
    std::ifstream status(fileName);
    for (std::string line; std::getline(status, line);)
      if (line.starts_with(field + ":\t")) return line.substr(field.size() + 2);
    return "none";
  }

  static inline std::optional<std::string> impossible;
  std::optional<NetworkNamespace> space;
  std::optional<NetworkNamespace> listening;
  std::optional<NetworkNamespace> routing;
  std::optional<Listener> listener;
  std::optional<Router> router;
  std::optional<RunningAgent> agent;
};

// ---- Reports

TEST_F(LiveNetnsTest, JoinIsOnTheRouterPortWithin50Milliseconds) {
  start();
  std::vector<std::chrono::milliseconds> times;
  for (char const* const each : {"239.1.1.1", "239.1.1.2", "239.1.1.3", "239.1.1.4", "239.1.1.5"}) {
    listener->join(each);
    auto const time = router->await(allow(each));
    ASSERT_TRUE(time) << agent->log();
    times.push_back(*time);
  }
  std::sort(times.begin(), times.end());
  EXPECT_LT(times[times.size() / 2], 50ms) << "the median: the machine may be busy";
}

TEST_F(LiveNetnsTest, BusyPollingServesAsEverAndDoesNotSleep) {
  start({.options = {"--busy-poll"}});
  listener->join(group);
  EXPECT_TRUE(router->await(allow(group))) << agent->log();
  auto const before = agent->processorTime();
  std::this_thread::sleep_for(200ms);
  EXPECT_GT(agent->processorTime() - before, 20ms) << "a busy machine leaves it less than 200 ms";
  agent->signal(SIGTERM);
  EXPECT_TRUE(router->await(block(group)));
  EXPECT_EQ(agent->awaitExit(), 0) << agent->log();
}

// ---- Interfaces

TEST_F(LiveNetnsTest, PortThatLosesItsCarrierHasNoMembersAnyMore) {
  start();
  listener->join(group);
  ASSERT_TRUE(router->await(allow(group)));
  ip(*listening, "link set eth0 down");
  EXPECT_TRUE(router->await(block(group)));
  EXPECT_TRUE(awaitLog("interface swp1 is down")) << agent->log();
}

TEST_F(LiveNetnsTest, InterfaceThatIsDeletedAndMadeAgainIsServedAgain) {
  start();
  listener->join(group);
  ASSERT_TRUE(router->await(allow(group)));
  ip(*space, "link del swp1");
  EXPECT_TRUE(router->await(block(group)));
  plug("swp1", *listening, "10.0.0.1/24");
  Listener const again(*listening);
  ASSERT_TRUE(
      awaitLog("is gone\nigmpsnoopd: interface swp1 is there\nigmpsnoopd: interface swp1 is up"))
      << agent->log();
  again.join(group);
  EXPECT_TRUE(router->await(allow(group))) << agent->log();
}

TEST_F(LiveNetnsTest, RouterPortThatIsMadeAgainIsToldEverything) {
  start();
  listener->join(group);
  ASSERT_TRUE(router->await(allow(group)));
  ip(*space, "link del swp2");
  ip(*space, "link add swp2 type veth peer name eth0 netns " + routing->path());
  Router const again(*routing);  // hears the first word that is said
  ip(*routing, "link set eth0 up");
  ip(*space, "link set swp2 up");
  EXPECT_TRUE(again.await(allow(group))) << agent->log();
}

TEST_F(LiveNetnsTest, InterfaceIsFoundByTheNameThatItGets) {
  start();
  ip(*space, "link set swp1 down");
  ip(*space, "link set swp1 name swp3");
  ip(*space, "link set swp3 up");
  ASSERT_TRUE(awaitLog("interface swp3 is up")) << agent->log();
  EXPECT_THAT(agent->log(), HasSubstr("interface swp1 is gone"));
  listener->join(group);
  EXPECT_TRUE(router->await(allow(group)));
}

TEST_F(LiveNetnsTest, PortThatItsBridgeBlocksIsBlocked) {
  start();
  ip(*space, "link add br0 type bridge stp_state 0 mcast_snooping 0");
  ip(*space, "link set swp1 master br0");
  ip(*space, "link set br0 up");
  listener->join(group);
  ASSERT_TRUE(router->await(allow(group))) << agent->log();
  auto const bridge = [&](char const* arguments) {
    NetworkNamespace::Inside const inside(*space);
    return std::system(message("bridge link set dev swp1 ", arguments).c_str());
  };
  ASSERT_EQ(bridge("state 1"), 0);
  EXPECT_TRUE(router->await(block(group))) << agent->log();
  EXPECT_TRUE(awaitLog("interface swp1 is kept from forwarding by its bridge")) << agent->log();
  ASSERT_EQ(bridge("state 3"), 0);
  ASSERT_TRUE(awaitLog("interface swp1 forwards again"));
  ip(*space, "link set swp1 nomaster");
  listener->join("239.1.1.2");
  EXPECT_TRUE(router->await(allow("239.1.1.2")));
}

TEST_F(LiveNetnsTest, ChangesThatTheKernelCouldNotTellAreMadeUpFor) {
  start();
  agent->signal(SIGSTOP);
  TemporaryDirectory const directory;
  std::ofstream batch(directory.file("batch"));
  batch << "link set lo up\n";  // of one that is down an alias is not told
  for (int i = 0; i < 8000; ++i) batch << "link set lo alias a" << i << '\n';
  batch << "link set swp1 down\nlink set swp1 name swp3\nlink set swp3 up\n";
  batch.close();
  ip(*space, "-batch " + directory.file("batch"));
  agent->signal(SIGCONT);
  ASSERT_TRUE(awaitLog("interface swp3 is up")) << agent->log();
  EXPECT_THAT(agent->log(), HasSubstr("interface swp1 is gone"));
  listener->join(group);
  EXPECT_TRUE(router->await(allow(group)));
}

TEST_F(LiveNetnsTest, InterfaceThatDoesNotExistIsWarnedOfOnce) {
  start();
  agent->signal(SIGHUP);
  ASSERT_TRUE(agent->awaitNotification("READY=1"));
  std::string const log = agent->log();
  std::string const warning = "interface swp3 is configured but does not exist";
  EXPECT_THAT(log, HasSubstr(warning));
  EXPECT_EQ(log.find(warning), log.rfind(warning)) << log;
}

// ---- Standing still

TEST_F(LiveNetnsTest, ConfigurationWithoutVlansIsServedAndWarnedOf) {
  start();
  agent->configurationIs("# nothing yet\n");
  agent->signal(SIGHUP);
  ASSERT_TRUE(agent->awaitNotification("READY=1"));
  EXPECT_THAT(agent->log(), HasSubstr("switch.toml has no [[vlan]], so nothing is served"));
  agent->configurationIs(configuration());
  agent->signal(SIGHUP);
  ASSERT_TRUE(agent->awaitNotification("READY=1"));
  listener->join(group);
  EXPECT_TRUE(router->await(allow(group)));
}

TEST_F(LiveNetnsTest, StoppedForLongerThanAMembershipLivesItForgetsNobodyWhoHasSpoken) {
  agent.emplace(*space,
                configuration("robustness-variable = 1\nquery-interval = 2\n"
                              "query-max-response-time = 1\n"),
                RunningAgent::Start{});
  ASSERT_TRUE(agent->awaitNotification("READY=1")) << agent->log();
  ASSERT_TRUE(awaitLog("interface swp1 is up") && awaitLog("interface swp2 is up"));
  Talker const talker(*listening);
  IpAddr const wanted(239, 1, 1, 1);
  IpAddr const address(192, 0, 2, 1);
  auto const report = [&](IpAddr of) {
    return IgmpTest::FrameBuilder::reportV3({IgmpTest::isIn(of, {address})})
        .from(IpAddr(10, 0, 0, 7));
  };
  talker.say(report(wanted));
  ASSERT_TRUE(router->await(allow(group))) << agent->log();
  agent->signal(SIGSTOP);
  std::this_thread::sleep_for(4s);
  for (int i = 0; i < 400; ++i) talker.say(report(IpAddr(239, 1, 1, 2)));
  talker.say(report(wanted));
  agent->signal(SIGCONT);
  EXPECT_TRUE(router->await(allow("239.1.1.2"))) << "it goes on";
  EXPECT_FALSE(router->await(block(group), 1s)) << agent->log();
}

// ---- Its log

TEST_F(LiveNetnsTest, LinesInTheJournalCarryTheirSeverity) {
  start({.journal = true});
  EXPECT_TRUE(awaitLog("<6>running: ")) << agent->log();
  EXPECT_TRUE(awaitLog("<4>interface swp3 is configured but ")) << agent->log();
}

TEST_F(LiveNetnsTest, TracesThatAreSwitchedOnWhileItRunsAreLogged) {
  start();
  auto const trace = [&](char const* levels) {
    return std::system(message(IGMPSNOOPCTL, " --socket ", agent->control(),
                               " trace IgmpSnoopingProxyAdapter ", levels)
                           .c_str());
  };
  ASSERT_EQ(trace("8"), 0);
  listener->join(group);
  EXPECT_TRUE(
      awaitLog("IgmpSnoopingProxyAdapter 8: KelIgmpIntf::processSplitHorizon() "
               "g: 239.1.1.1"))
      << agent->log();
  ASSERT_EQ(trace("none"), 0);
  listener->join("239.1.1.2");
  ASSERT_TRUE(router->await(allow("239.1.1.2")));
  EXPECT_THAT(agent->log(), Not(HasSubstr("239.1.1.2")));
}

// ---- Signals

TEST_F(LiveNetnsTest, ConfigurationThatIsReadAgainTakesEffect) {
  start();
  listener->join(group);
  ASSERT_TRUE(router->await(allow(group)));
  std::string other = configuration();
  other.replace(other.find("swp2"), 4, "swp1");
  agent->configurationIs(other);
  agent->signal(SIGHUP);
  EXPECT_TRUE(agent->awaitNotification("RELOADING=1"));
  EXPECT_TRUE(agent->awaitNotification("READY=1"));
  EXPECT_THAT(agent->log(), HasSubstr("switch.toml read again: VLAN 10 changed"));
  listener->join("239.1.1.2");
  EXPECT_FALSE(router->await(allow("239.1.1.2"), 300ms)) << "swp2 is no router port any more";
}

TEST_F(LiveNetnsTest, WrongConfigurationChangesNothing) {
  start();
  agent->configurationIs(configuration("fast-leave = 3\n"));
  agent->signal(SIGHUP);
  EXPECT_TRUE(agent->awaitNotification("RELOADING=1"));
  EXPECT_THAT(agent->notification(10s).value_or("nothing"),
              AllOf(StartsWith("READY=1\n"), HasSubstr("; configuration refused at ")));
  EXPECT_THAT(agent->log(), HasSubstr("switch.toml:8:14: "));
  EXPECT_THAT(agent->log(), HasSubstr("changes nothing"));
  listener->join(group);
  EXPECT_TRUE(router->await(allow(group)));
}

TEST_F(LiveNetnsTest, ConfigurationThatIsGoneChangesNothing) {
  start();
  agent->removeConfiguration();
  agent->signal(SIGHUP);
  ASSERT_TRUE(agent->awaitNotification("READY=1"));
  EXPECT_THAT(agent->log(), HasSubstr("cannot read configuration "));
  EXPECT_THAT(agent->log(), HasSubstr("switch.toml is unusable and changes nothing"));
  listener->join(group);
  EXPECT_TRUE(router->await(allow(group)));
}

TEST_F(LiveNetnsTest, HostsLeaveTheirGroupsAtTheEnd) {
  start();
  listener->join(group);
  ASSERT_TRUE(router->await(allow(group)));
  agent->signal(SIGTERM);
  EXPECT_TRUE(router->await(block(group)));
  EXPECT_TRUE(agent->awaitNotification("STOPPING=1"));
  EXPECT_EQ(agent->awaitExit(), 0) << agent->log();
}

// ---- Service manager

TEST_F(LiveNetnsTest, WatchdogIsFedTwiceInItsTime) {
  agent.emplace(*space, configuration(),
                RunningAgent::Start{.prefix = {}, .environment = {{"WATCHDOG_USEC", "100000"}}});
  ASSERT_TRUE(agent->awaitNotification("READY=1")) << agent->log();
  for (int beat = 0; beat < 4; ++beat) {
    auto const begin = Clock::now();
    EXPECT_EQ(agent->notification(5s), "WATCHDOG=1");
    EXPECT_LT(Clock::now() - begin, 100ms);
  }
}

TEST_F(LiveNetnsTest, ServiceManagerThatDoesNotReadHoldsNothingUp) {
  agent.emplace(*space, configuration(),
                RunningAgent::Start{.environment = {{"WATCHDOG_USEC", "2000"}}});
  ASSERT_TRUE(awaitLog("interface swp1 is up") && awaitLog("interface swp2 is up"));
  std::this_thread::sleep_for(1500ms);  // its queue takes some hundred messages
  listener->join(group);
  EXPECT_TRUE(router->await(allow(group))) << agent->log();
}

// ---- Privileges

TEST_F(LiveNetnsTest, StartedAsRootRunsOnAsTheUserThatItIsTold) {
  start({.options = {"--user", "nobody"}});
  EXPECT_EQ(ofProcess("Uid"), "65534\t65534\t65534\t65534");
  EXPECT_EQ(ofProcess("Gid"), "65534\t65534\t65534\t65534");
  EXPECT_EQ(ofProcess("Groups"), " ");
  std::string const rawOnly = "0000000000002000";
  EXPECT_EQ(ofProcess("CapPrm"), rawOnly);
  EXPECT_EQ(ofProcess("CapEff"), rawOnly);
  EXPECT_EQ(ofProcess("CapBnd"), "0000000000000000");
  EXPECT_EQ(ofProcess("NoNewPrivs"), "1");
  struct stat status {};
  ASSERT_EQ(stat(agent->control().c_str(), &status), 0);
  EXPECT_EQ(status.st_uid, 65534u);
  EXPECT_EQ(status.st_gid, 65534u);
}

TEST_F(LiveNetnsTest, ServesAnInterfaceThatComesAfterItHasChangedItsUser) {
  start({.options = {"--user", "nobody"}});
  ip(*space, "link del swp1");
  ASSERT_TRUE(awaitLog("interface swp1 is gone"));
  plug("swp1", *listening, "10.0.0.1/24");
  Listener const again(*listening);
  ASSERT_TRUE(awaitLog("interface swp1 is there\nigmpsnoopd: interface swp1 is up"));
  again.join(group);
  EXPECT_TRUE(router->await(allow(group))) << agent->log();
}

TEST_F(LiveNetnsTest, ThreadsThatOpenDevicesMayDoNoMoreThanTheProcess) {
  start();
  ip(*space, "link set swp1 name swp9");
  ip(*space, "link set swp9 name swp1");
  ASSERT_TRUE(awaitLog("interface swp1 is gone\nigmpsnoopd: interface swp1 is there"));
  std::size_t threads = 0;
  for (auto const& each :
       std::filesystem::directory_iterator("/proc/" + std::to_string(agent->process()) + "/task")) {
    ++threads;
    EXPECT_EQ(ofStatus(each.path() / "status", "CapPrm"), "0000000000002000");
    EXPECT_EQ(ofStatus(each.path() / "status", "CapBnd"), "0000000000000000");
    EXPECT_EQ(ofStatus(each.path() / "status", "NoNewPrivs"), "1");
  }
  EXPECT_GT(threads, 1u);
}

TEST_F(LiveNetnsTest, UserOfTheConfigurationRemovesTheDirectorysSocketInTheEnd) {
  TemporaryDirectory const directory;
  chmod(directory.file("").c_str(), 0755);
  std::string const socket = directory.file("run/metrics");
  agent.emplace(*space, configuration() + "[agent]\nuser = \"nobody\"\n",
                RunningAgent::Start{.options = {"--metrics", socket}});
  ASSERT_TRUE(agent->awaitNotification("READY=1")) << agent->log();
  EXPECT_EQ(ofProcess("Uid"), "65534\t65534\t65534\t65534");
  EXPECT_EQ(access(socket.c_str(), F_OK), 0);
  agent->signal(SIGTERM);
  EXPECT_EQ(agent->awaitExit(), 0) << agent->log();
  EXPECT_NE(access(socket.c_str(), F_OK), 0);
}

TEST_F(LiveNetnsTest, UserThatDoesNotExistIsRefused) {
  agent.emplace(*space, configuration(), RunningAgent::Start{.options = {"--user", "noone"}});
  EXPECT_EQ(agent->awaitExit(), 1);
  EXPECT_THAT(agent->log(), HasSubstr("there is no user \"noone\" to run as"));
}

TEST_F(LiveNetnsTest, KeepsOneCapabilityOnly) {
  start();
  std::string const rawOnly = "0000000000002000";
  EXPECT_EQ(ofProcess("CapPrm"), rawOnly);
  EXPECT_EQ(ofProcess("CapEff"), rawOnly);
  EXPECT_EQ(ofProcess("CapBnd"), "0000000000000000");
  EXPECT_EQ(ofProcess("NoNewPrivs"), "1");
}

TEST_F(LiveNetnsTest, RunsAsAnybodyWithOneAmbientCapability) {
  if (std::system("setpriv --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "setpriv is missing";
  start({.prefix = {"setpriv", "--reuid=65534", "--clear-groups", "--inh-caps=-all,+net_raw",
                    "--ambient-caps=-all,+net_raw"},
         .environment = {}});
  listener->join(group);
  EXPECT_TRUE(router->await(allow(group))) << agent->log();
}

TEST_F(LiveNetnsTest, SaysWhichCapabilityIsMissing) {
  if (std::system("setpriv --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "setpriv is missing";
  agent.emplace(
      *space, configuration(),
      RunningAgent::Start{.prefix = {"setpriv", "--bounding-set=-net_raw"}, .environment = {}});
  EXPECT_EQ(agent->awaitExit(), 1);
  EXPECT_THAT(agent->log(), HasSubstr("CAP_NET_RAW is missing"));
  EXPECT_THAT(agent->log(), HasSubstr("AmbientCapabilities=CAP_NET_RAW"));
}

TEST_F(LiveNetnsTest, DeviceWithoutADescriptorIsDeafAndTheAgentSaysSo) {
#ifdef SANITIZED
  GTEST_SKIP() << "the sanitizers need the descriptors that this takes away";
#endif
  agent.emplace(*space, configuration(), RunningAgent::Start{.prefix = {"prlimit", "--nofile=34"}});
  ASSERT_TRUE(agent->awaitNotification("READY=1")) << agent->log();
  EXPECT_THAT(agent->log(), HasSubstr("swp1 is deaf: cannot open device swp1: socket: Too many "
                                      "open files; each device needs a descriptor"));
  EXPECT_THAT(shown("interfaces"), HasSubstr("swp1: deaf: cannot open device swp1"));
}

TEST_F(LiveNetnsTest, SaysWhatToDoWhereTheSystemRefusesACall) {
#ifdef SANITIZED
  GTEST_SKIP() << "the sanitizers need the descriptors that this takes away";
#endif
  // One descriptor beyond the standard ones, which is free whatever the tests were started with.
  std::string const oneDescriptor = "exec 3>&-; exec prlimit --nofile=4 \"$@\"";
  agent.emplace(*space, configuration(),
                RunningAgent::Start{.prefix = {"sh", "-c", oneDescriptor, "sh"}});
  EXPECT_EQ(agent->awaitExit(), 1);
  EXPECT_THAT(agent->log(), HasSubstr(": Too many open files; the system refused this: see the "
                                      "limits and permissions that igmpsnoopd is started with"));
}

}  // namespace
}  // namespace Agent
