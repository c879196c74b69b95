#pragma once

/// What the agent may do that other programs may not.
namespace Agent {

/// Keeps CAP_NET_RAW, which opening packet sockets takes whenever an interface appears, and gives
/// up every other privilege, for good. Throws std::runtime_error if CAP_NET_RAW is missing.
void dropPrivileges();

}  // namespace Agent
