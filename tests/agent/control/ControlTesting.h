#pragma once

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/control/Descriptor.h"
#include "platform/horix/EventLoop.h"
#include "tests/agent/Addresses.h"
#include "tests/agent/SwitchTesting.h"

namespace Agent {

/// A client that never blocks: the test turns the loop between what it does.
class TestClient {
 public:
  TestClient(Horix::EventLoop& loop, std::string const& path)
      : loop_(&loop), descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    EXPECT_EQ(connect(descriptor_.value(), reinterpret_cast<sockaddr*>(&address), sizeof address),
              0)
        << std::strerror(errno);
  }

  /// @param descriptor connected.
  TestClient(Horix::EventLoop& loop, Descriptor descriptor)
      : loop_(&loop), descriptor_(std::move(descriptor)) {
    fcntl(descriptor_.value(), F_SETFL, O_NONBLOCK);
  }

  TestClient&& say(std::string const& text) && {
    say(text);
    return std::move(*this);
  }
  void say(std::string const& text) & {
    send(descriptor_.value(), text.data(), text.size(), MSG_NOSIGNAL);
  }
  TestClient&& endOfInput() && {
    shutdown(descriptor_.value(), SHUT_WR);
    return std::move(*this);
  }

  /// Reads what is there, once. Returns whether the other side has ended.
  bool readOnce() {
    char bytes[65536];
    ssize_t const count = recv(descriptor_.value(), bytes, sizeof bytes, 0);
    if (count > 0) heard_.append(bytes, static_cast<std::size_t>(count));
    return count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR);
  }

  /// Turns the loop and reads until the other side ends, or nothing moves any more.
  std::string hear() {
    for (int idle = 0; idle < 50;) {
      std::size_t const before = heard_.size();
      loop_->turn(loop_->now());
      ++turns_;
      if (readOnce()) {
        ended_ = true;
        break;
      }
      idle = heard_.size() == before ? idle + 1 : 0;
    }
    return heard_;
  }

  std::string const& heard() const { return heard_; }
  bool ended() const { return ended_; }
  int turns() const { return turns_; }
  void forgetHeard() { heard_.clear(); }

  /// The lines heard, each of which must be JSON.
  std::vector<nlohmann::ordered_json> lines() {
    std::vector<nlohmann::ordered_json> lines;
    std::string const text = hear();
    for (std::size_t begin = 0; begin < text.size();) {
      std::size_t const end = text.find('\n', begin);
      EXPECT_NE(end, std::string::npos) << "half a line";
      if (end == std::string::npos) break;
      lines.push_back(nlohmann::ordered_json::parse(text.substr(begin, end - begin)));
      begin = end + 1;
    }
    return lines;
  }

 private:
  Horix::EventLoop* loop_;
  Descriptor descriptor_;
  std::string heard_;
  bool ended_ = false;
  int turns_ = 0;
};

/// A VLAN 10 of three ports in which nothing is sent again, so that counts do not depend on time.
inline std::string sendingOnce() {
  return vlan10("swp[1-3]",
                "robustness-variable = 1\nsend-query = true\n"
                "static-bridge-mrouter-interface = [\"swp[2-3]\"]\n");
}

/// Has the queries of every kind and reports and leaves of two versions sent there.
inline void haveSent(TestSwitch& test) {
  using namespace IgmpTest;
  IpAddr const lateGroup(239, 3, 3, 3);
  test.hear("swp1", FrameBuilder::reportV3({isIn(group, {a}), toEx(otherGroup)}));
  test.hear("swp1", FrameBuilder::reportV3({block(group, {a})}));
  test.hear("swp1", FrameBuilder::leave(otherGroup));
  test.hear("swp2", FrameBuilder::reportV2(otherGroup));
  test.hear("swp2", FrameBuilder::leave(otherGroup));
  test.hear("swp3", FrameBuilder::queryV2(IpAddr(), 100).from(IpAddr(10, 0, 0, 254)));
  test.hear("swp1", FrameBuilder::reportV2(lateGroup));
  test.hear("swp1", FrameBuilder::reportV3({toIn(lateGroup)}));
}

}  // namespace Agent
