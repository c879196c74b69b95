#include <array>
#include <cstdint>
#include <cstring>
#include <exception>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <nlohmann/json.hpp>

#include "agent/control/Descriptor.h"
#include "agent/ctl/ControlClient.h"
#include "agent/ctl/ControlOutput.h"
#include "fuzz/FuzzInput.h"

/// An agent answers anything: the control client prints it or refuses it.
namespace {

using Agent::Json;

/// Where an agent would listen.
class Listener {
 public:
  Listener() : path_("/tmp/fuzz-client-" + std::to_string(getpid())) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof address.sun_path - 1);
    unlink(path_.c_str());
    Fuzz::require(bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                      listen(socket_, 1) == 0,
                  "the fuzzer can listen");
  }
  Listener(Listener const&) = delete;
  Listener& operator=(Listener const&) = delete;
  ~Listener() {
    close(socket_);
    unlink(path_.c_str());
  }

  std::string const& path() const { return path_; }

  /// Says all of an answer to the client that is connected, and ends.
  void answer(std::string_view text) const {
    int const connection = accept(socket_, nullptr, nullptr);
    static_cast<void>(send(connection, text.data(), text.size(), MSG_NOSIGNAL));
    close(connection);
  }

 private:
  std::string path_;
  int socket_ = socket(AF_UNIX, SOCK_STREAM, 0);
};

Agent::Request request(Fuzz::FuzzInput& input) {
  constexpr std::array<char const*, 6> lists{"vlans", "interfaces", "groups",
                                             "hosts", "mrouters",   "statistics"};
  Agent::Request request;
  unsigned const which = input.below(lists.size() + 1);
  request.command = which == lists.size() ? "monitor" : "show";
  if (which < lists.size()) request.what = lists.at(which);
  return request;
}

void read(Agent::ControlClient& client, Agent::Request const& request) {
  Agent::ShownLists lists;
  std::ostringstream out;
  while (auto const text = client.nextLine()) {
    Json line = Json::parse(*text, nullptr, /* allow_exceptions */ false);
    if (!line.is_object() || line.contains("error") || line.contains("end")) break;
    if (request.command == "monitor") {
      out << Agent::monitorText(line) << Agent::oneLine(Agent::monitorObject(line));
    } else {
      lists.add(std::move(line));
    }
  }
  Json const document = lists.takeDocument();
  if (request.command == "show") Agent::printShown(out, request, document);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  static Listener const agent;
  Fuzz::FuzzInput input(bytes, size);
  Agent::Request const asked = request(input);
  try {
    Agent::ControlClient client(agent.path(), asked);
    agent.answer(input.text(size));
    read(client, asked);
  } catch (std::exception const&) {
    // Refused: that is what the user is told.
  }
  return 0;
}
