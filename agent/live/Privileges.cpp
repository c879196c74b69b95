#include "agent/live/Privileges.h"

#include <cap-ng.h>
#include <cerrno>
#include <stdexcept>
#include <sys/prctl.h>
#include <system_error>

namespace Agent {

void dropPrivileges() {
  capng_get_caps_process();
  if (!capng_have_capability(CAPNG_PERMITTED, CAP_NET_RAW)) {
    throw std::runtime_error(
        "cannot open packet sockets: the capability CAP_NET_RAW is missing; start as root, or with "
        "AmbientCapabilities=CAP_NET_RAW in the systemd unit");
  }
  // Emptying the bounding set takes a capability itself, CAP_SETPCAP: a service manager that starts
  // us without has seen to it.
  bool const mayBound = capng_have_capability(CAPNG_EFFECTIVE, CAP_SETPCAP) != 0;
  capng_clear(CAPNG_SELECT_ALL);
  capng_updatev(CAPNG_ADD, static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED),
                CAP_NET_RAW, -1);
  if (capng_apply(mayBound ? CAPNG_SELECT_ALL : CAPNG_SELECT_CAPS) != 0)
    throw std::runtime_error("cannot give up privileges; start with CAP_NET_RAW alone");
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
    throw std::system_error(errno, std::generic_category(), "prctl(PR_SET_NO_NEW_PRIVS)");
}

}  // namespace Agent
