#pragma once

#include <optional>
#include <string>
#include <sys/types.h>

/// What the agent may do that other programs may not.
namespace Agent {

/// A user of the system, and the group that it belongs to.
struct User {
  uid_t id;
  gid_t group;
};

bool isRoot();

/// Throws std::runtime_error if there is no such user.
User userNamed(std::string const& name);

/// Throws std::runtime_error if CAP_NET_RAW is missing.
void requirePrivileges();

/// Keeps CAP_NET_RAW, which opening packet sockets takes whenever an interface appears, and gives
/// up every other privilege, for good.
/// @param user as which the process runs on; nothing: as which it was started.
/// @param setsBridge whether to keep CAP_NET_ADMIN too, if it is there. It is kept in any case if
/// it is an ambient one: then it was given for a bridge that a later configuration may name. Throws
/// std::runtime_error or std::system_error.
void dropPrivileges(std::optional<User> const& user, bool setsBridge);

/// Has a program that this process becomes keep what this one may, or not. Throws
/// std::system_error.
void passPrivilegesOn();
void keepPrivileges();

}  // namespace Agent
