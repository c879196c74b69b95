#pragma once

#include <optional>
#include <string_view>
#include <sys/socket.h>

namespace Agent {

/// An address to listen on, as the kernel takes it.
struct TcpAddress {
  sockaddr_storage socketAddress{};
  socklen_t size = 0;
};

/// "127.0.0.1:9643" or "[::1]:9643". Nothing if the text is none; names are not looked up.
std::optional<TcpAddress> tcpAddressIn(std::string_view text);

}  // namespace Agent
