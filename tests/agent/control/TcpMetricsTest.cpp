#include <chrono>
#include <cstring>
#include <memory>
#include <net/if.h>
#include <netinet/in.h>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/control/MetricsServer.h"
#include "agent/control/TcpSocket.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/SwitchTesting.h"
#include "tests/agent/control/ControlTesting.h"
#include "tests/agent/replay/CaptureTesting.h"

namespace Agent {
namespace {

using namespace std::chrono_literals;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr char const* scrapeRequest = "GET /metrics HTTP/1.1\r\nHost: x\r\n\r\n";

/// A port that the kernel chooses.
TcpAddress anyPort() {
  TcpAddress address = tcpAddressIn("127.0.0.1:1").value();
  reinterpret_cast<sockaddr_in&>(address.socketAddress).sin_port = 0;
  return address;
}

TcpAddress anyPortOfIpv6(std::string const& host) {
  TcpAddress address = tcpAddressIn("[" + host + "]:1").value();
  reinterpret_cast<sockaddr_in6&>(address.socketAddress).sin6_port = 0;
  return address;
}

/// A kernel may be without IPv6, and a container without its loopback address.
bool hasIpv6() {
  Descriptor const probe(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
  TcpAddress const address = anyPortOfIpv6("::1");
  return probe.value() >= 0 &&
         bind(probe.value(), reinterpret_cast<sockaddr const*>(&address.socketAddress),
              address.size) == 0;
}

TcpAddress addressOf(int descriptor) {
  TcpAddress address;
  address.size = sizeof address.socketAddress;
  EXPECT_EQ(
      getsockname(descriptor, reinterpret_cast<sockaddr*>(&address.socketAddress), &address.size),
      0);
  return address;
}

bool isLoopbackUp() {
  Descriptor const probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq loopback{};
  std::strncpy(loopback.ifr_name, "lo", sizeof loopback.ifr_name - 1);
  return ioctl(probe.value(), SIOCGIFFLAGS, &loopback) == 0 && (loopback.ifr_flags & IFF_UP) != 0;
}

class TcpMetricsTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!isLoopbackUp()) GTEST_SKIP() << "the loopback interface is down (ip link set lo up)";
  }

  TestClient connect() { return connectTo(metrics); }

  TestClient connectTo(MetricsServer const& server) {
    TcpAddress const address = addressOf(server.descriptor());
    Descriptor client(socket(address.socketAddress.ss_family, SOCK_STREAM | SOCK_CLOEXEC, 0));
    EXPECT_EQ(::connect(client.value(), reinterpret_cast<sockaddr const*>(&address.socketAddress),
                        address.size),
              0);
    return {test.loop, std::move(client)};
  }

  TemporaryDirectory directory;
  TestSwitch test{vlan10("swp[1-3]")};
  ControlServer control{test.loop, test.snooping, directory.file("control")};
  MetricsServer metrics{test.loop, test.snooping, control,
                        std::make_unique<TcpSocket>(anyPort(), "127.0.0.1:0"),
                        MetricsServer::limitsOfStrangers()};
};

TEST_F(TcpMetricsTest, AreWhatTheUnixSocketServes) {
  std::string const response = connect().say(scrapeRequest).hear();
  EXPECT_THAT(response, StartsWith("HTTP/1.0 200 OK\r\n"));
  EXPECT_THAT(response, HasSubstr("\nigmpsnoop_hosts{vlan=\"10\"} 3\n"));
}

TEST_F(TcpMetricsTest, AreServedOverIpv6) {
  if (!hasIpv6()) GTEST_SKIP() << "::1 cannot be had here";
  MetricsServer const its(test.loop, test.snooping, control,
                          std::make_unique<TcpSocket>(anyPortOfIpv6("::1"), "[::1]:0"),
                          MetricsServer::limitsOfStrangers());
  std::string const response = connectTo(its).say(scrapeRequest).hear();
  EXPECT_THAT(response, StartsWith("HTTP/1.0 200 OK\r\n"));
  EXPECT_THAT(response, HasSubstr("\nigmpsnoop_hosts{vlan=\"10\"} 3\n"));
}

TEST_F(TcpMetricsTest, SlowHeadersGoUnanswered) {
  auto client = connect();
  client.say("GET /metrics HTTP/1.1\r\n");
  for (int second = 0; second < 10; ++second) {
    client.hear();
    test.advance(1s);
    client.say("X: y\r\n");
  }
  EXPECT_EQ(client.hear(), "");
  EXPECT_TRUE(client.ended());
}

TEST_F(TcpMetricsTest, ManyClientsThatSayNothingKeepNobodyOut) {
  std::vector<TestClient> silent;
  for (int i = 0; i < 40; ++i) {
    silent.push_back(connect());
    silent.back().hear();
  }
  EXPECT_LE(metrics.clients(), 16u);
  EXPECT_THAT(connect().say(scrapeRequest).hear(), StartsWith("HTTP/1.0 200 OK\r\n"));
}

TEST_F(TcpMetricsTest, WhoReadsSlowlyIsCutOffInTheEnd) {
  TestSwitch large(
      "[[vlan]]\nid = \"1-100\"\nquerier = { igmp-version = 3 }\n"
      "tagged-interfaces = [\"swp[1-20]\"]\n[[interface]]\nname = \"swp[1-20]\"\n");
  ControlServer const its(large.loop, large.snooping, directory.file("its"));
  MetricsServer const slow(large.loop, large.snooping, its, directory.file("slow"),
                           MetricsServer::limitsOfStrangers());
  TestClient client(large.loop, slow.path());
  client.say(scrapeRequest);
  for (int i = 0; i < 7; ++i) {
    large.loop.turn(large.loop.now());
    EXPECT_FALSE(client.readOnce()) << i;
    large.advance(4900ms);
  }
  EXPECT_EQ(slow.clients(), 0u);
  EXPECT_EQ(slow.counters().timedOut, 1u);
  EXPECT_THAT(client.heard(), Not(HasSubstr("igmpsnoop_turns_total ")));
}

TEST(TcpSocketTest, AnotherProgramOnTheSamePortIsTold) {
  TcpSocket const first(anyPort(), "first");
  try {
    TcpSocket const second(addressOf(first.descriptor()), "127.0.0.1:9");
    ADD_FAILURE() << "two listen";
  } catch (std::runtime_error const& error) {
    EXPECT_STREQ(error.what(),
                 "cannot listen on 127.0.0.1:9: Address already in use; another program listens "
                 "there: stop it or choose another port");
  }
}

TEST(TcpSocketTest, UnitThatForbidsTheFamilyIsTold) {
  TcpAddress address = anyPort();
  address.socketAddress.ss_family = AF_MAX;  // refused as the unit refuses AF_INET
  try {
    TcpSocket const refused(address, "127.0.0.1:9");
    ADD_FAILURE() << "it listens";
  } catch (std::runtime_error const& error) {
    EXPECT_THAT(error.what(), HasSubstr("Address family not supported"));
    EXPECT_THAT(error.what(), HasSubstr("metrics.conf"));
  }
}

TEST(TcpSocketTest, AddressMayComeLater) {
  TcpAddress address = anyPort();
  reinterpret_cast<sockaddr_in&>(address.socketAddress).sin_addr.s_addr = htonl(0xc0000201);
  EXPECT_NO_THROW(TcpSocket(address, "192.0.2.1:0"));
}

TEST(TcpSocketTest, AddressOfIpv6MayComeLater) {
  if (!hasIpv6()) GTEST_SKIP() << "::1 cannot be had here";
  EXPECT_NO_THROW(TcpSocket(anyPortOfIpv6("2001:db8::1"), "[2001:db8::1]:0"));
}

}  // namespace
}  // namespace Agent
