#pragma once

#include <cstddef>
#include <cstring>
#include <libmnl/libmnl.h>

namespace Agent {

/// Handles the netlink messages of a datagram, as long as `handle` returns that it wants more. One
/// that would go beyond the datagram ends it: libmnl takes a length of more than 2 GB for negative,
/// and so for short enough.
template <class Handle>
void eachMessage(void const* datagram, std::size_t size, Handle handle) {
  auto left = static_cast<int>(size);
  auto const* message = static_cast<nlmsghdr const*>(datagram);
  while (mnl_nlmsg_ok(message, left) && message->nlmsg_len <= static_cast<unsigned>(left) &&
         handle(*message))
    message = mnl_nlmsg_next(message, &left);
}

/// What a message of type NLMSG_ERROR or NLMSG_DONE says, as errno has it; 0 for success.
inline int errorOf(nlmsghdr const& message) {
  bool const ends = message.nlmsg_type == NLMSG_DONE;
  unsigned error = 0;
  if (mnl_nlmsg_get_payload_len(&message) < (ends ? sizeof error : sizeof(nlmsgerr))) return 0;
  std::memcpy(&error, mnl_nlmsg_get_payload(&message), sizeof error);
  // Not negated as a number with a sign: the least one has no counterpart.
  return static_cast<int>(0u - error);
}

}  // namespace Agent
