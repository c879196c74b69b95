#include <array>
#include <cstring>
#include <list>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "agent/control/ControlServer.h"
#include "agent/control/MetricsServer.h"
#include "fuzz/FuzzSwitch.h"
#include "tests/agent/Addresses.h"
#include "tests/platform/igmp/FrameBuilder.h"

/// Clients of both sockets say anything, byte by byte and several at a time, half of it correct
/// requests, and leave when they like. The sockets go on answering.
namespace {

constexpr std::string_view configuration = R"(
[[interface]]
name = "swp[1-3]"
[[vlan]]
id = 10
querier = { igmp-version = 3 }
interfaces = ["swp[1-3]"]
)";

constexpr std::array<std::string_view, 10> requests{
    R"({"command":"show","what":"groups"})",
    R"({"command":"show","what":"hosts","vlan":10})",
    R"({"command":"show","what":"statistics"})",
    R"({"command":"explain","vlan":10,"interface":"swp2","group":"239.1.1.1"})",
    R"({"command":"monitor"})",
    R"({"command":"clear","what":"groups"})",
    R"({"command":"metrics"})",
    R"({"command":"trace","handle":"IgmpSnoopingProxyAdapter","levels":"0-9"})",
    "GET /metrics HTTP/1.0\r\n\r\n",
    "\n",
};

std::string socketPath(std::string_view name) {
  return "/tmp/fuzz-" + std::to_string(getpid()) + '-' + std::string(name);
}

class Client {
 public:
  explicit Client(std::string const& path)
      : socket_(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK, 0)) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
    // A full backlog is no finding: the client then talks to nobody.
    static_cast<void>(connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address));
  }
  Client(Client const&) = delete;
  Client& operator=(Client const&) = delete;
  ~Client() { close(socket_); }

  void say(std::string_view text) const {
    static_cast<void>(send(socket_, text.data(), text.size(), MSG_NOSIGNAL));
  }
  void sayNoMore() const { shutdown(socket_, SHUT_WR); }

  /// Reads what is there. Returns whether anything was.
  bool hears() const {
    std::array<char, 65536> answer{};
    return recv(socket_, answer.data(), answer.size(), 0) > 0;
  }

 private:
  int socket_;
};

/// One switch for all inputs, which keeps what the former clients did to it.
struct Served : Fuzz::FuzzSwitch {
  Served() : FuzzSwitch(Fuzz::configurationIn(configuration)) {
    using namespace IgmpTest;
    devices.receive(Wirex::IntfId("swp1"),
                    FrameBuilder::reportV3({isIn(Agent::group, {Agent::a, Agent::b})}).bytes());
    loop.endBatch();
  }

  Agent::ControlServer control{loop, agent, socketPath("control")};
  Agent::MetricsServer metrics{loop, agent, control, socketPath("metrics")};
};

void turn(Served& served, unsigned turns = 1) {
  for (; turns > 0; --turns) served.loop.turn(served.loop.now());
}

void requireAnswer(Served& served) {
  Client const client(served.control.path());
  client.say("{\"command\":\"show\",\"what\":\"vlans\"}\n");
  for (int i = 0; i < 200; ++i) {
    turn(served);
    if (client.hears()) return;
  }
  Fuzz::require(false, "the control socket answers when the clients have gone");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  static Served served;
  Fuzz::FuzzInput input(bytes, size);
  {
    std::list<Client> clients;
    while (!input.empty()) {
      unsigned const what = input.below(8);
      if (what == 0 || clients.empty()) {
        if (clients.size() >= 32) clients.pop_front();
        clients.emplace_back(input.below(4) == 0 ? served.metrics.path() : served.control.path());
        continue;
      }
      auto client = clients.begin();
      std::advance(client, input.below(static_cast<unsigned>(clients.size())));
      switch (what) {
        case 1:
          client->say(input.text(input.byte()));
          break;
        case 2:
          client->say(requests.at(input.below(requests.size())));
          break;
        case 3:
          client->say("\n");
          break;
        case 4:
          client->sayNoMore();
          break;
        case 5:
          client->hears();
          break;
        case 6:
          clients.erase(client);
          break;
        default:
          turn(served, 1 + input.below(16));
      }
    }
  }
  turn(served, 4);
  requireAnswer(served);
  return 0;
}
