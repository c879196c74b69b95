#include "agent/forwarding/MdbEvents.h"

#include <arpa/inet.h>
#include <array>
#include <cstddef>
#include <linux/filter.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

namespace Agent {

namespace {

/// What is written is told as well, and of no interest.
void hearOfDeletionsAlone(int descriptor) {
  // A filter reads numbers in network byte order, which types are not in.
  constexpr auto typeAt = static_cast<std::uint32_t>(offsetof(nlmsghdr, nlmsg_type));
  std::array<sock_filter, 4> code{{
      {BPF_LD | BPF_H | BPF_ABS, 0, 0, typeAt},
      {BPF_JMP | BPF_JEQ | BPF_K, 0, 1, htons(RTM_DELMDB)},
      {BPF_RET | BPF_K, 0, 0, 0xffffffff},
      {BPF_RET | BPF_K, 0, 0, 0},
  }};
  sock_fprog const program{code.size(), code.data()};
  // Without it there is more to read, and nothing wrong.
  setsockopt(descriptor, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
}

}  // namespace

MdbEvents::MdbEvents() : socket_(NETLINK_ROUTE, 1U << (RTNLGRP_MDB - 1)) {
  hearOfDeletionsAlone(descriptor());
}

bool MdbEvents::takeDeleted(std::vector<FoundEntry>& deleted) {
  return socket_.hear([&](nlmsghdr const& header) {
    if (header.nlmsg_type == RTM_DELMDB) readEntries(header, deleted);
  });
}

}  // namespace Agent
