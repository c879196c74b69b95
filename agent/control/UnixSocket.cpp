#include "agent/control/UnixSocket.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr mode_t socketMode = 0660;
constexpr mode_t directoryMode = 0755;

std::string errorText(int error) {
  return std::generic_category().message(error);
}

template <class... Parts>
[[noreturn]] void fail(Parts const&... parts) {
  throw std::runtime_error(message(parts...));
}

[[noreturn]] void failToListen(std::string const& path, int error) {
  fail("cannot listen on ", path, ": ", errorText(error),
       "; choose another path or make its directory writable");
}

Descriptor newSocket() {
  Descriptor descriptor(socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (descriptor.value() < 0)
    fail("cannot make a Unix socket: ", errorText(errno),
         "; see the limits and permissions that igmpsnoopd is started with");
  return descriptor;
}

sockaddr_un addressOf(std::string const& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof address.sun_path)
    fail("socket path ", Agent::quoted(path), " has ", path.size(), " bytes; choose one of 1 to ",
         sizeof address.sun_path - 1);
  std::memcpy(address.sun_path, path.data(), path.size());
  return address;
}

std::string directoryOf(std::string const& path) {
  return std::filesystem::path(path).parent_path();
}

/// Returns 0 or the error.
int tryToBind(int descriptor, std::string const& path) {
  sockaddr_un const address = addressOf(path);
  auto const* const generic = reinterpret_cast<sockaddr const*>(&address);
  return bind(descriptor, generic, sizeof address) == 0 ? 0 : errno;
}

std::vector<Descriptor> inherited;

/// The one that listens at a path, if there is one and it is still found there.
Descriptor takeInherited(std::string const& path) {
  for (Descriptor& socket : inherited) {
    sockaddr_un address{};
    socklen_t size = sizeof address;
    if (getsockname(socket.value(), reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
        size > sizeof address.sun_family && address.sun_family == AF_UNIX &&
        path == address.sun_path && access(path.c_str(), F_OK) == 0)
      return std::move(socket);
  }
  return Descriptor();
}

}  // namespace

UnixSocket::UnixSocket(std::string path)
    : path_(std::move(path)), descriptor_(takeInherited(path_)) {
  struct stat status {};
  if (descriptor_.value() < 0) listen();
  if (stat(path_.c_str(), &status) != 0) return;
  device_ = status.st_dev;
  inode_ = status.st_ino;
}

void UnixSocket::inheritedAre(std::vector<Descriptor> sockets) {
  inherited = std::move(sockets);
}

void UnixSocket::listen() {
  descriptor_ = newSocket();
  int error = tryToBind(descriptor(), path_);
  if (error == EADDRINUSE) {
    removeStale();
    error = tryToBind(descriptor(), path_);
  } else if (error == ENOENT) {
    madeDirectory_ = mkdir(directoryOf(path_).c_str(), directoryMode) == 0;
    if (madeDirectory_) error = tryToBind(descriptor(), path_);
  }
  if (error != 0) failToListen(path_, error);

  // Nobody can connect before it listens, so nobody slips in while the mode is a wider one.
  if (chmod(path_.c_str(), socketMode) != 0 || ::listen(descriptor(), SOMAXCONN) != 0) {
    error = errno;
    unlink(path_.c_str());
    failToListen(path_, error);
  }
}

UnixSocket::~UnixSocket() {
  struct stat status {};
  if (lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_)
    unlink(path_.c_str());
}

void UnixSocket::giveTo(uid_t user, gid_t group) const {
  auto const give = [&](std::string const& path) {
    if (lchown(path.c_str(), user, group) != 0)
      throw std::system_error(errno, std::generic_category(), "chown " + path);
  };
  give(path_);
  if (madeDirectory_) give(directoryOf(path_));
}

/// A connection is refused exactly where no process listens.
void UnixSocket::removeStale() const {
  struct stat status {};
  if (lstat(path_.c_str(), &status) != 0) return;
  if (!S_ISSOCK(status.st_mode))
    fail("cannot listen on ", path_,
         ": something that is no socket is there; remove it or choose "
         "another path");
  Descriptor const probe = newSocket();
  sockaddr_un const address = addressOf(path_);
  if (connect(probe.value(), reinterpret_cast<sockaddr const*>(&address), sizeof address) == 0 ||
      errno != ECONNREFUSED)
    fail("cannot listen on ", path_,
         ": another igmpsnoopd listens there; stop it or choose another path");
  unlink(path_.c_str());
}

}  // namespace Agent
