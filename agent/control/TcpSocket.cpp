#include "agent/control/TcpSocket.h"

#include <cerrno>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <utility>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr char const* remedyFor(int error) {
  switch (error) {
    case EAFNOSUPPORT:
      return "; where a unit starts igmpsnoopd, its RestrictAddressFamilies has to let it (see "
             "metrics.conf)";
    case EADDRINUSE:
      return "; another program listens there: stop it or choose another port";
    default:
      return "; choose another address or port";
  }
}

void setOn(int descriptor, int level, int option) {
  int const on = 1;
  setsockopt(descriptor, level, option, &on, sizeof on);
}

/// Returns zero, or why not.
int listenAt(int descriptor, TcpAddress const& address) {
  if (descriptor < 0) return errno;
  setOn(descriptor, SOL_SOCKET, SO_REUSEADDR);  // the program before this one has just left it
  setOn(descriptor, IPPROTO_IP, IP_FREEBIND);
  auto const* const generic = reinterpret_cast<sockaddr const*>(&address.socketAddress);
  bool const listens =
      bind(descriptor, generic, address.size) == 0 && listen(descriptor, SOMAXCONN) == 0;
  return listens ? 0 : errno;
}

}  // namespace

TcpSocket::TcpSocket(TcpAddress const& address, std::string name)
    : name_(std::move(name)),
      descriptor_(
          socket(address.socketAddress.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
  if (int const error = listenAt(descriptor(), address); error != 0)
    throw std::runtime_error(message("cannot listen on ", name_, ": ",
                                     std::generic_category().message(error), remedyFor(error)));
}

}  // namespace Agent
