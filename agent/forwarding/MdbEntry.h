#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "agent/forwarding/Netlink.h"
#include "agent/watch/HostRecords.h"

struct nlmsghdr;

/// The entries of a bridge's multicast database (MDB), and the rtnetlink messages that carry them.
namespace Agent {

/// What the kernel's entries can say.
enum class EntryKind {
  sourceLists,    ///< a filter mode with its sources, and whose entry it is: from Linux 6.3 on
  singleSources,  ///< every source, or one source
};

/// Where an entry stands.
struct EntryPlace {
  std::uint32_t bridge = 0;  ///< kernel indices
  std::uint32_t port = 0;
  std::uint16_t vlan = 0;
  Wirex::IpAddr group;
};

/// An entry as the kernel takes it: of every source but the listed ones (or of the listed ones), or
/// of a single one.
struct KernelEntry {
  Wirex::IpAddr source;  ///< 0.0.0.0: any
  SourceFilter filter{Gmp::Igmp::IgmpFilterMode::exclude, {}};

  friend bool operator==(KernelEntry const&, KernelEntry const&) = default;
};

/// The entries, by source, that have a port get what a filter says. The kernel keeps up to 32
/// sources in a list: more included ones become entries of single sources, up to 1024. What cannot
/// be said is let through, because a stream too many does less harm than one too few.
std::vector<KernelEntry> kernelEntries(SourceFilter const& filter, EntryKind kind);

/// Whether what was written is still there.
enum class Trust { full, none };

/// Adds the requests that bring a port from one filter to another. Nothing stands for no entry.
/// Those that go are deleted first: the kernel tells the ports of an entry of every source from
/// those of a single source when they are made. Without trust, what is to stay is written again.
void addChange(NetlinkBatch& batch, EntryPlace const& place,
               std::optional<SourceFilter> const& before, std::optional<SourceFilter> const& after,
               EntryKind kind, Trust trust = Trust::full);

/// Adds the request that deletes one entry.
void addDeletion(NetlinkBatch& batch, EntryPlace const& place, Wirex::IpAddr source);

/// Adds the request for all entries of all bridges.
void addEntriesRequest(NetlinkBatch& batch);

/// An entry that the kernel has.
struct FoundEntry {
  EntryPlace place;
  KernelEntry entry;
  bool permanent = false;
  bool ours = false;     ///< bears the agent's mark, which older kernels do not keep
  bool derived = false;  ///< the kernel's own consequence of another one
};

/// The IPv4 entries in an answer, or in the news of a change.
void readEntries(nlmsghdr const& header, std::vector<FoundEntry>& entries);

}  // namespace Agent
