#include "agent/ctl/ControlClient.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <grp.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr int patienceInMilliseconds = 10000;

template <class... Parts>
[[noreturn]] void fail(Parts const&... parts) {
  throw std::runtime_error(message(parts...));
}

std::string groupOf(std::string const& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return "the agent's group";
  group const* const entry = getgrgid(status.st_gid);
  return entry ? message("group ", entry->gr_name) : message("group ", status.st_gid);
}

/// "; beside it there are east and west": what else is in the socket's directory.
std::string othersBeside(std::string const& path) {
  std::vector<std::string> names;
  std::error_code unreadable;
  std::filesystem::path const asked(path);
  for (auto const& entry : std::filesystem::directory_iterator(asked.parent_path(), unreadable))
    if (std::error_code gone; entry.is_socket(gone) && entry.path() != asked)
      names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  if (names.empty()) return {};
  return message("; beside it there ", names.size() == 1 ? "is " : "are ",
                 enumerated(names, "and"));
}

[[noreturn]] void failToConnect(std::string const& path, int error) {
  if (error == ENOENT || error == ECONNREFUSED)
    fail("no igmpsnoopd listens on ", path,
         "; start one with igmpsnoopd live --config FILE, or name its socket: --socket NAME, or "
         "ctl:NAME in igmpsnoopd diff",
         othersBeside(path));
  if (error == EACCES || error == EPERM)
    fail("you may not use ", path, "; become root or a member of ", groupOf(path));
  fail("cannot connect to ", path, ": ", std::generic_category().message(error),
       "; try again later");
}

}  // namespace

ControlClient::ControlClient(std::string path, Request const& request)
    : path_(std::move(path)), descriptor_(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path_.empty() || path_.size() >= sizeof address.sun_path)
    fail("socket path ", Agent::quoted(path_), " has ", path_.size(), " bytes; it takes 1 to ",
         sizeof address.sun_path - 1);
  std::memcpy(address.sun_path, path_.data(), path_.size());
  if (connect(descriptor_.value(), reinterpret_cast<sockaddr const*>(&address), sizeof address) !=
      0)
    failToConnect(path_, errno);
  // An agent that refuses may have gone already: what it said is read all the same.
  std::string const line = requestLine(request);
  send(descriptor_.value(), line.data(), line.size(), MSG_NOSIGNAL);
}

std::optional<std::string> ControlClient::nextLine(bool patient) {
  std::size_t end = received_.find('\n', taken_);
  while (end == std::string::npos) {
    received_.erase(0, std::exchange(taken_, 0));
    std::size_t const searched = received_.size();
    if (!receive(patient)) return std::nullopt;
    end = received_.find('\n', searched);
  }
  std::size_t const begin = std::exchange(taken_, end + 1);
  return received_.substr(begin, end - begin);
}

/// Returns whether there was more. Whoever waits for long also ends when nobody reads the output.
bool ControlClient::receive(bool patient) {
  std::array<pollfd, 2> waiting{{{descriptor_.value(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}}};
  int ready = 0;
  do ready = poll(waiting.data(), patient ? 2 : 1, patient ? -1 : patienceInMilliseconds);
  while (ready < 0 && errno == EINTR);
  if (ready == 0) fail("igmpsnoopd on ", path_, " does not answer; see its log, or restart it");
  if (waiting[1].revents != 0)
    fail("nobody reads standard output any more; keep its reader running");
  std::array<char, 65536> bytes;
  ssize_t const count = recv(descriptor_.value(), bytes.data(), bytes.size(), 0);
  if (count <= 0) return false;
  received_.append(bytes.data(), static_cast<std::size_t>(count));
  return true;
}

}  // namespace Agent
