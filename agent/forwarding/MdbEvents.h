#pragma once

#include <vector>

#include "agent/forwarding/MdbEntry.h"
#include "agent/forwarding/Netlink.h"

namespace Agent {

/// Hears of entries that go from a bridge's multicast database, whoever deletes them: the kernel
/// tells so before the deletion has ended.
class MdbEvents {
 public:
  /// Throws std::system_error.
  MdbEvents();

  /// Has input when there is something to take.
  int descriptor() const { return socket_.descriptor(); }

  /// Adds what has gone since the last time. Returns false if some of it was lost.
  bool takeDeleted(std::vector<FoundEntry>& deleted);

 private:
  RequestSocket socket_;
};

}  // namespace Agent
