#include <array>
#include <cap-ng.h>
#include <cstddef>
#include <exception>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "agent/live/Privileges.h"

namespace Agent {
namespace {

/// As a system call filter does that leaves it out.
bool refuseCapset() {
  std::array<sock_filter, 4> instructions{{
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_capset, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EPERM),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  }};
  sock_fprog const program{instructions.size(), instructions.data()};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

/// As a service manager does with AmbientCapabilities= and CapabilityBoundingSet= of these.
bool holdOnly(std::initializer_list<unsigned> capabilities) {
  auto const everywhere =
      static_cast<capng_type_t>(CAPNG_EFFECTIVE | CAPNG_PERMITTED | CAPNG_INHERITABLE);
  capng_clear(CAPNG_SELECT_ALL);
  for (unsigned const each : capabilities)
    capng_update(CAPNG_ADD, static_cast<capng_type_t>(everywhere | CAPNG_BOUNDING_SET), each);
  if (capng_apply(CAPNG_SELECT_ALL) != 0) return false;
  for (unsigned const each : capabilities)
    if (prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_RAISE, each, 0, 0) != 0) return false;
  return true;
}

enum Outcome : int { dropped, refused, notPrepared };

/// In a process of its own, as nothing that is given up comes back.
Outcome dropWithoutCapset(std::initializer_list<unsigned> held) {
  pid_t const child = fork();
  if (child == 0) {
    if (!holdOnly(held) || !refuseCapset()) _exit(notPrepared);
    try {
      dropPrivileges(std::nullopt, false);
      passPrivilegesOn();
      _exit(dropped);
    } catch (std::exception const&) {
      _exit(refused);
    }
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? static_cast<Outcome>(WEXITSTATUS(status)) : notPrepared;
}

TEST(PrivilegesTest, WhatIsHeldExactlyTakesNoSystemCallToKeep) {
  if (!isRoot()) GTEST_SKIP() << "needs root";
  EXPECT_EQ(dropWithoutCapset({CAP_NET_RAW}), dropped);
}

TEST(PrivilegesTest, OneGivenByNameIsKeptForALaterReload) {
  if (!isRoot()) GTEST_SKIP() << "needs root";
  EXPECT_EQ(dropWithoutCapset({CAP_NET_RAW, CAP_NET_ADMIN}), dropped);
}

TEST(PrivilegesTest, OneTooManyThatCannotBeGivenUpIsRefused) {
  if (!isRoot()) GTEST_SKIP() << "needs root";
  EXPECT_EQ(dropWithoutCapset({CAP_NET_RAW, CAP_CHOWN}), refused);
}

}  // namespace
}  // namespace Agent
