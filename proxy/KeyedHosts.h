#pragma once

#include <cstdint>
#include <vector>

#include "framework/entities/AdapterVlanConfig.h"
#include "framework/kel/Table.h"
#include "platform/igmp/IgmpHost.h"
#include "platform/igmp/SharedRecords.h"

namespace Bridging::IgmpSnooping::Proxy {

/// The keys of a VLAN and the hosts that they name, in the keys' order, as they were found at one
/// time: to look each of them up for each change would cost more than most changes. Who walks them
/// holds them, because handlers may have others found meanwhile.
class KeyedHosts : public Kel::PtrInterface {
 public:
  /// What they are found in.
  struct Sources {
    AdapterVlanConfig const& config;    ///< the keys
    Igmp::IgmpHostDir const& hosts;     ///< the hosts that they name
    Igmp::SharedRecords const& shared;  ///< what these have in common
  };

  static constexpr std::uint32_t absent = UINT32_MAX;

  /// @param find finds a key's host, or null, and its place in the directory
  template <class Find>
  KeyedHosts(Sources const& sources, Find find) {
    for (auto const& [key, value] : sources.config.hostKey()) add(key, sources.shared, find);
    versions_ = Versions(sources);  // to find a host may have it share
  }

  /// Whether others would be found now.
  bool isUpToDate(Sources const& sources) const { return versions_ == Versions(sources); }

  std::uint32_t size() const noexcept { return static_cast<std::uint32_t>(hosts_.size()); }
  PortKey const& key(std::uint32_t number) const { return hosts_[number].key; }
  /// Where the host is in the directory, unless others have gone.
  std::uint32_t place(std::uint32_t number) const { return hosts_[number].place; }

  /// Marks of hosts, by their numbers; empty as long as there is none.
  using Marks = std::vector<bool>;
  /// Marks a port's host, if there is one.
  void mark(Wirex::IntfId const& intf, Marks& marks) const {
    std::uint32_t const* const number = numbers_.find(intf);
    if (!number) return;
    marks.resize(size());
    marks[*number] = true;
  }

  /// Lets a renewal of shared records reach one host after the other, as long as that is all that
  /// it takes for them: they are not marked, have no record of their own, and nobody hears of it.
  /// To be called only while they are up to date.
  /// @param number the first
  /// @return the first one that it did not reach
  std::uint32_t reach(Igmp::SharedRecords::Renewal& renewal, Marks const& apart,
                      std::uint32_t number) const {
    bool const ofPresence = renewal.isOfPresence();
    bool const noneApart = apart.empty();
    for (std::uint32_t const end = size(); number < end; ++number) {
      if (!noneApart && apart[number]) break;
      Host const& host = hosts_[number];
      if (host.sharing == Igmp::SharedRecords::none) break;
      if (ofPresence && host.host->v3groupIsHeard()) break;
      if (!renewal.reaches(host.sharing)) break;
    }
    return number;
  }

 private:
  struct Host {
    Igmp::IgmpHost const* host;
    std::uint32_t sharing;  // its number among those that share records, or none
    std::uint32_t place;
    PortKey key;
  };
  struct Versions {
    Versions() = default;
    explicit Versions(Sources const& sources)
        : keys(sources.config.hostKeyVersion()),
          keyCount(sources.config.hostKey().size()),
          hosts(sources.hosts.igmpHostVersion()),
          hostCount(sources.hosts.igmpHost().size()),
          sharing(sources.shared.hostVersion()) {}
    bool operator==(Versions const&) const = default;

    std::uint32_t keys = 0, keyCount = 0;
    std::uint32_t hosts = 0, hostCount = 0;
    std::uint32_t sharing = 0;
  };

  template <class Find>
  void add(PortKey const& key, Igmp::SharedRecords const& shared, Find find) {
    Host added{nullptr, Igmp::SharedRecords::none, absent, key};
    added.host = find(key, added.place);
    // A second key of a port, which only one of another VLAN can be, is always looked up.
    if (!numbers_.contains(key.intfId())) {
      numbers_.add(key.intfId(), size());
      if (added.host) added.sharing = added.host->v3groupNumberIn(shared);
    }
    hosts_.push_back(std::move(added));
  }

  std::vector<Host> hosts_;
  Kel::Table<Wirex::IntfId, std::uint32_t> numbers_;
  Versions versions_;
};

}  // namespace Bridging::IgmpSnooping::Proxy
