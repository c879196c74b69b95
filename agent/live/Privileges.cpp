#include "agent/live/Privileges.h"

#include <algorithm>
#include <cap-ng.h>
#include <cerrno>
#include <pwd.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <system_error>
#include <unistd.h>
#include <vector>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// Whether who started the agent named the capability, as AmbientCapabilities= does, and did not
/// just run it as root.
bool isGivenByName(unsigned long capability) {
  return prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_IS_SET, capability, 0, 0) == 1;
}

/// Whether the process can use, and pass on, these capabilities and no others.
bool holdsExactly(std::vector<unsigned> const& capabilities) {
  for (unsigned each = 0; each <= CAP_LAST_CAP; ++each) {
    int const wanted = std::ranges::count(capabilities, each) != 0;
    for (capng_type_t const in : {CAPNG_EFFECTIVE, CAPNG_PERMITTED, CAPNG_INHERITABLE})
      if (capng_have_capability(in, each) != wanted) return false;
  }
  return true;
}

void keepOnly(std::vector<unsigned> const& kept, std::optional<User> const& user, bool mayBound) {
  auto const add = [&](capng_type_t to) {
    for (unsigned const each : kept) capng_update(CAPNG_ADD, to, each);
  };
  // To be passed on to the program that takes this one's place. What is not in the bounding set any
  // more cannot become inheritable.
  add(CAPNG_INHERITABLE);
  capng_apply(CAPNG_SELECT_CAPS);
  capng_clear(CAPNG_SELECT_ALL);
  add(static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED | CAPNG_INHERITABLE));
  int const failed =
      user ? capng_change_id(static_cast<int>(user->id), static_cast<int>(user->group),
                             static_cast<capng_flags_t>(CAPNG_DROP_SUPP_GRP |
                                                        (mayBound ? CAPNG_CLEAR_BOUNDING : 0)))
           : capng_apply(mayBound ? CAPNG_SELECT_ALL : CAPNG_SELECT_CAPS);
  if (failed != 0)
    throw std::runtime_error("cannot give up privileges; start with CAP_NET_RAW alone");
}

}  // namespace

bool isRoot() {
  return geteuid() == 0;
}

User userNamed(std::string const& name) {
  passwd const* const entry = getpwnam(name.c_str());
  if (!entry)
    throw std::runtime_error(message("there is no user ", quoted(name),
                                     " to run as; create it (adduser --system ", name,
                                     ") or name another one"));
  return {entry->pw_uid, entry->pw_gid};
}

void requirePrivileges() {
  capng_get_caps_process();
  if (!capng_have_capability(CAPNG_PERMITTED, CAP_NET_RAW)) {
    throw std::runtime_error(
        "cannot open packet sockets: the capability CAP_NET_RAW is missing; start as root, or with "
        "AmbientCapabilities=CAP_NET_RAW in the systemd unit");
  }
}

void dropPrivileges(std::optional<User> const& user, bool setsBridge) {
  capng_get_caps_process();
  // Emptying the bounding set takes a capability itself, CAP_SETPCAP: a service manager that starts
  // us without has seen to it.
  bool const mayBound = capng_have_capability(CAPNG_EFFECTIVE, CAP_SETPCAP) != 0;
  setsBridge = (setsBridge || isGivenByName(CAP_NET_ADMIN)) &&
               capng_have_capability(CAPNG_PERMITTED, CAP_NET_ADMIN) != 0;
  std::vector<unsigned> kept{CAP_NET_RAW};
  if (setsBridge) kept.push_back(CAP_NET_ADMIN);
  // A service manager that gives just these need not allow the system call that changes them.
  if (user || mayBound || !holdsExactly(kept)) keepOnly(kept, user, mayBound);
  if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0)
    throw std::system_error(errno, std::generic_category(), "prctl(PR_SET_NO_NEW_PRIVS)");
}

// A program without capabilities of its own gets the ambient ones.
void passPrivilegesOn() {
  capng_get_caps_process();
  for (unsigned each = 0; each <= CAP_LAST_CAP; ++each)
    if (capng_have_capability(CAPNG_PERMITTED, each) != 0 &&
        prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, each, 0, 0) != 0)
      throw std::system_error(errno, std::generic_category(), "prctl(PR_CAP_AMBIENT_RAISE)");
}

void keepPrivileges() {
  prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
}

}  // namespace Agent
