#pragma once

#include <string>
#include <sys/types.h>
#include <vector>

#include "agent/control/Descriptor.h"
#include "agent/control/ListeningSocket.h"

namespace Agent {

/// A listening Unix stream socket at a path. It takes over the one that the process listened on
/// there before its program was started anew, with those who wait to be served. It replaces a
/// socket that nobody listens on any more, refuses to replace anything else, and removes its own
/// when it goes.
class UnixSocket final : public ListeningSocket {
 public:
  /// Mode 0660: for the owner and the group of the process. Makes the directory if only that is
  /// missing. Throws std::runtime_error.
  explicit UnixSocket(std::string path);

  /// The sockets that the process listened on before its program was started anew. Those that
  /// nobody takes over are closed by the next call.
  static void inheritedAre(std::vector<Descriptor> sockets);

  UnixSocket(UnixSocket const&) = delete;
  UnixSocket& operator=(UnixSocket const&) = delete;
  ~UnixSocket() override;

  /// The socket, and its directory if it was made for it.
  void giveTo(uid_t user, gid_t group) const override;

  std::string const& path() const override { return path_; }
  int descriptor() const override { return descriptor_.value(); }

 private:
  void listen();
  void removeStale() const;

  std::string path_;
  Descriptor descriptor_;
  bool madeDirectory_ = false;
  dev_t device_ = 0;  // of the socket that was made: another one at the path is not removed
  ino_t inode_ = 0;
};

}  // namespace Agent
