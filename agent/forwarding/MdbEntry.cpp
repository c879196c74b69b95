#include "agent/forwarding/MdbEntry.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <linux/if_bridge.h>
#include <linux/if_ether.h>
#include <linux/rtnetlink.h>

namespace Agent {

using Gmp::Igmp::IgmpFilterMode;
using Wirex::IpAddr;

namespace {

// Of Linux 6.3, which the headers of the build may not have.
constexpr std::uint16_t attrSource = 1;  // MDBE_ATTR_SOURCE
constexpr std::uint16_t attrSourceList = 2;
constexpr std::uint16_t attrGroupMode = 3;
constexpr std::uint16_t attrProtocol = 4;
constexpr std::uint16_t sourceListEntry = 1;
constexpr std::uint16_t sourceAddress = 1;

/// Marks the agent's entries, as the protocol that routes come from does routes.
constexpr std::uint8_t ownProtocol = 143;

/// PG_SRC_ENT_LIMIT of the kernel.
constexpr std::size_t mostListedSources = 32;

/// As many requests as one system call takes with ease.
constexpr std::size_t mostSingleSources = 1024;

constexpr std::uint8_t modeInclude = 1;

void putAddress(nlmsghdr& header, std::uint16_t type, IpAddr address) {
  mnl_attr_put_u32(&header, type, htonl(address.value()));
}

void putSources(nlmsghdr& header, std::vector<IpAddr> const& sources) {
  nlattr* const list = mnl_attr_nest_start(&header, attrSourceList);
  for (IpAddr const source : sources) {
    nlattr* const entry = mnl_attr_nest_start(&header, sourceListEntry);
    putAddress(header, sourceAddress, source);
    mnl_attr_nest_end(&header, entry);
  }
  mnl_attr_nest_end(&header, list);
}

nlmsghdr& addEntry(NetlinkBatch& batch, std::uint16_t type, std::uint16_t flags,
                   EntryPlace const& place) {
  br_port_msg message{};
  message.family = AF_BRIDGE;
  message.ifindex = place.bridge;
  nlmsghdr& header = batch.add(type, flags, message);
  br_mdb_entry entry{};
  entry.ifindex = place.port;
  entry.state = MDB_PERMANENT;
  entry.vid = place.vlan;
  entry.addr.u.ip4 = htonl(place.group.value());
  entry.addr.proto = htons(ETH_P_IP);
  mnl_attr_put(&header, MDBA_SET_ENTRY, sizeof entry, &entry);
  return header;
}

void addWrite(NetlinkBatch& batch, EntryPlace const& place, KernelEntry const& entry,
              EntryKind kind) {
  bool const lists = kind == EntryKind::sourceLists;
  auto const flags = static_cast<std::uint16_t>(NLM_F_CREATE | (lists ? NLM_F_REPLACE : 0));
  nlmsghdr& header = addEntry(batch, RTM_NEWMDB, flags, place);
  if (lists || entry.source != IpAddr()) {
    nlattr* const attributes = mnl_attr_nest_start(&header, MDBA_SET_ENTRY_ATTRS);
    if (entry.source != IpAddr()) putAddress(header, attrSource, entry.source);
    if (lists) {
      mnl_attr_put_u8(&header, attrProtocol, ownProtocol);
      if (entry.source == IpAddr()) {
        bool const includes = entry.filter.mode == IgmpFilterMode::include;
        mnl_attr_put_u8(&header, attrGroupMode, includes ? modeInclude : 0);
        if (!entry.filter.sources.empty()) putSources(header, entry.filter.sources);
      }
    }
    mnl_attr_nest_end(&header, attributes);
  }
  batch.end(header);
}

IpAddr addressIn(nlattr const& attribute) {
  return mnl_attr_get_payload_len(&attribute) == sizeof(std::uint32_t)
             ? IpAddr(ntohl(mnl_attr_get_u32(&attribute)))
             : IpAddr();
}

std::vector<IpAddr> sourcesIn(nlattr const& list) {
  std::vector<IpAddr> sources;
  eachNested(list, [&](nlattr const& entry) {
    eachNested(entry, [&](nlattr const& attribute) {
      if (mnl_attr_get_type(&attribute) == MDBA_MDB_SRCATTR_ADDRESS)
        sources.push_back(addressIn(attribute));
    });
  });
  std::sort(sources.begin(), sources.end());
  return sources;
}

void readAttribute(nlattr const& attribute, FoundEntry& found) {
  switch (mnl_attr_get_type(&attribute)) {
    case MDBA_MDB_EATTR_SOURCE:
      found.entry.source = addressIn(attribute);
      break;
    case MDBA_MDB_EATTR_GROUP_MODE:
      found.entry.filter.mode = mnl_attr_get_u8(&attribute) == modeInclude
                                    ? IgmpFilterMode::include
                                    : IgmpFilterMode::exclude;
      break;
    case MDBA_MDB_EATTR_SRC_LIST:
      found.entry.filter.sources = sourcesIn(attribute);
      break;
    case MDBA_MDB_EATTR_RTPROT:
      found.ours = mnl_attr_get_u8(&attribute) == ownProtocol;
      break;
    default:
      break;
  }
}

void readEntry(nlattr const& info, std::uint32_t bridge, std::vector<FoundEntry>& entries) {
  br_mdb_entry entry{};
  if (mnl_attr_get_payload_len(&info) < sizeof entry) return;
  std::memcpy(&entry, mnl_attr_get_payload(&info), sizeof entry);
  if (entry.addr.proto != htons(ETH_P_IP)) return;
  FoundEntry found;
  found.place = {bridge, entry.ifindex, entry.vid, IpAddr(ntohl(entry.addr.u.ip4))};
  found.permanent = entry.state == MDB_PERMANENT;
  found.derived = (entry.flags & MDB_FLAGS_STAR_EXCL) != 0;
  // The attributes follow the entry in its own attribute.
  std::size_t const offset = MNL_ALIGN(sizeof entry);
  eachAttribute(static_cast<char const*>(mnl_attr_get_payload(&info)) + offset,
                mnl_attr_get_payload_len(&info) - offset,
                [&](nlattr const& attribute) { readAttribute(attribute, found); });
  entries.push_back(std::move(found));
}

}  // namespace

std::vector<KernelEntry> kernelEntries(SourceFilter const& filter, EntryKind kind) {
  bool const includes = filter.mode == IgmpFilterMode::include;
  if (kind == EntryKind::sourceLists && filter.sources.size() <= mostListedSources)
    return {{IpAddr(), filter}};
  if (!includes || filter.sources.size() > mostSingleSources) return {KernelEntry{}};
  std::vector<KernelEntry> entries;
  for (IpAddr const source : filter.sources)
    entries.push_back({source, {IgmpFilterMode::exclude, {}}});
  return entries;
}

void addChange(NetlinkBatch& batch, EntryPlace const& place,
               std::optional<SourceFilter> const& before, std::optional<SourceFilter> const& after,
               EntryKind kind, Trust trust) {
  auto const former = before ? kernelEntries(*before, kind) : std::vector<KernelEntry>{};
  auto const wanted = after ? kernelEntries(*after, kind) : std::vector<KernelEntry>{};
  auto const has = [](std::vector<KernelEntry> const& entries, KernelEntry const& entry) {
    return std::any_of(entries.begin(), entries.end(),
                       [&](KernelEntry const& each) { return each.source == entry.source; });
  };
  for (KernelEntry const& entry : former)
    if (!has(wanted, entry)) addDeletion(batch, place, entry.source);
  for (KernelEntry const& entry : wanted)
    if (trust == Trust::none || std::find(former.begin(), former.end(), entry) == former.end())
      addWrite(batch, place, entry, kind);
}

void addDeletion(NetlinkBatch& batch, EntryPlace const& place, IpAddr source) {
  nlmsghdr& header = addEntry(batch, RTM_DELMDB, 0, place);
  if (source != IpAddr()) {
    nlattr* const attributes = mnl_attr_nest_start(&header, MDBA_SET_ENTRY_ATTRS);
    putAddress(header, attrSource, source);
    mnl_attr_nest_end(&header, attributes);
  }
  batch.end(header);
}

void addEntriesRequest(NetlinkBatch& batch) {
  br_port_msg message{};
  message.family = AF_BRIDGE;
  batch.end(batch.add(RTM_GETMDB, NLM_F_DUMP, message));
}

void readEntries(nlmsghdr const& header, std::vector<FoundEntry>& entries) {
  // Dumps bear the type of the request.
  if (header.nlmsg_type != RTM_NEWMDB && header.nlmsg_type != RTM_GETMDB &&
      header.nlmsg_type != RTM_DELMDB)
    return;
  if (mnl_nlmsg_get_payload_len(&header) < sizeof(br_port_msg)) return;
  std::uint32_t const bridge =
      static_cast<br_port_msg const*>(mnl_nlmsg_get_payload(&header))->ifindex;
  eachAttributeBehind(header, sizeof(br_port_msg), [&](nlattr const& attribute) {
    if (mnl_attr_get_type(&attribute) != MDBA_MDB) return;
    eachNested(attribute, [&](nlattr const& mdb) {
      eachNested(mdb, [&](nlattr const& info) {
        if (mnl_attr_get_type(&info) == MDBA_MDB_ENTRY_INFO) readEntry(info, bridge, entries);
      });
    });
  });
}

}  // namespace Agent
