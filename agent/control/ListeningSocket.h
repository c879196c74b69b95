#pragma once

#include <string>
#include <sys/types.h>

namespace Agent {

/// A stream socket to which clients come.
class ListeningSocket {
 public:
  ListeningSocket() = default;
  ListeningSocket(ListeningSocket const&) = delete;
  ListeningSocket& operator=(ListeningSocket const&) = delete;
  virtual ~ListeningSocket() = default;

  virtual int descriptor() const = 0;

  /// Where clients find it: a path, or an address and a port.
  virtual std::string const& path() const = 0;

  /// Has what it made in the file system belong to somebody else, who may remove it. Throws
  /// std::system_error.
  virtual void giveTo(uid_t user, gid_t group) const = 0;
};

}  // namespace Agent
