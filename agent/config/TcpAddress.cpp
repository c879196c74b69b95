#include "agent/config/TcpAddress.h"

#include <arpa/inet.h>
#include <charconv>
#include <cstdint>
#include <cstring>
#include <netinet/in.h>
#include <string>
#include <system_error>

namespace Agent {

namespace {

std::optional<std::uint16_t> portIn(std::string_view text) {
  std::uint16_t port = 0;
  char const* const end = text.data() + text.size();
  auto const [stop, error] = std::from_chars(text.data(), end, port);
  if (error != std::errc{} || stop != end || port == 0) return std::nullopt;
  return port;
}

template <class SocketAddress>
TcpAddress addressOf(SocketAddress const& address) {
  TcpAddress result;
  std::memcpy(&result.socketAddress, &address, sizeof address);
  result.size = sizeof address;
  return result;
}

}  // namespace

std::optional<TcpAddress> tcpAddressIn(std::string_view text) {
  std::size_t const colon = text.rfind(':');
  if (colon == std::string_view::npos) return std::nullopt;
  auto const port = portIn(text.substr(colon + 1));
  std::string host(text.substr(0, colon));
  if (!port) return std::nullopt;
  if (host.starts_with('[') && host.ends_with(']')) {
    host = host.substr(1, host.size() - 2);
    sockaddr_in6 address{};
    address.sin6_family = AF_INET6;
    address.sin6_port = htons(*port);
    if (inet_pton(AF_INET6, host.c_str(), &address.sin6_addr) != 1) return std::nullopt;
    return addressOf(address);
  }
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(*port);
  if (inet_pton(AF_INET, host.c_str(), &address.sin_addr) != 1) return std::nullopt;
  return addressOf(address);
}

}  // namespace Agent
