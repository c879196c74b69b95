#include "bench/live/Relay.h"

#include <cerrno>
#include <sys/epoll.h>
#include <system_error>

#include "bench/live/PacketPort.h"

namespace Bench {

void relay(std::string const& from, std::string const& to) {
  PacketPort input(from, true);
  PacketPort const output(to, false);
  int const epoll = epoll_create1(EPOLL_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  if (epoll < 0 || epoll_ctl(epoll, EPOLL_CTL_ADD, input.descriptor(), &event) < 0)
    throw std::system_error(errno, std::generic_category(), "epoll");
  for (;;) {
    if (epoll_wait(epoll, &event, 1, -1) < 0 && errno != EINTR)
      throw std::system_error(errno, std::generic_category(), "epoll_wait");
    for (Igmp::Bytes frame = input.receive().frame; !frame.empty(); frame = input.receive().frame) {
      Frame const copy(frame.begin(), frame.end());
      output.send({&copy, 1});
    }
  }
}

}  // namespace Bench
