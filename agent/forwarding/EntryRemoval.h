#pragma once

#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "agent/forwarding/MdbEntry.h"
#include "agent/forwarding/Netlink.h"

namespace Agent {

/// Deletes the agent's entries from all bridges, piece by piece.
class EntryRemoval {
 public:
  /// @param socket for requests; outlives it.
  /// @param listed the groups of the agent, by which its entries are known where they bear no mark.
  EntryRemoval(RequestSocket& socket, EntryKind kind, std::set<Wirex::IpAddr> listed)
      : socket_(socket), kind_(kind), listed_(std::move(listed)) {}

  /// Deletes as many as one system call takes with ease. Returns whether there may be more. Throws
  /// std::system_error.
  bool advance();

 private:
  bool isOurs(FoundEntry const& found) const;
  void remove();

  RequestSocket& socket_;
  EntryKind kind_;
  std::set<Wirex::IpAddr> listed_;
  std::unique_ptr<RequestSocket> listing_;  // null between two walks through all entries
  std::vector<FoundEntry> found_;           // to be deleted
  bool deleted_ = false;                    // on this walk
};

}  // namespace Agent
