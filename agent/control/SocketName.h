#pragma once

#include <string>

namespace Agent {

/// Where agents listen whose control sockets are called by their names alone.
inline constexpr char const* socketDirectory = "/run/igmpsnoopd";

/// The path of a control socket.
/// @param given a path, or a name, which has no slash, of one in socketDirectory.
std::string socketPath(std::string const& given);

}  // namespace Agent
