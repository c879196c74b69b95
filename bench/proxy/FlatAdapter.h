#pragma once

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <vector>

/// A yardstick: the least work that yields the same records. One hash lookup finds the group; all
/// else is arrays over port and source numbers. Every port has at most one reporter, so that what
/// the reporter says is what the port wants.
namespace Bench {

class FlatAdapter {
 public:
  using Address = std::uint32_t;
  enum class Mode : std::uint8_t { exclude, include };

  FlatAdapter(std::size_t ports, std::size_t maxSources, std::size_t maxGroups)
      : ports_(ports), maxSources_(maxSources), hosts_(ports) {
    for (Host& host : hosts_) {
      host.record.resize(maxGroups);
      host.sources.resize(maxGroups * maxSources);
    }
  }

  /// Sets what the one reporter of a port wants, and recomputes every host's record.
  void report(Address groupAddress, std::size_t port, Mode mode,
              std::vector<Address> const& sources) {
    auto const [place, isNew] = groupNumbers_.try_emplace(groupAddress, groups_.size());
    if (isNew) groups_.emplace_back(ports_, maxSources_);
    Group& group = groups_[place->second];
    withdraw(group, port);
    contribute(group, port, mode, sources);
    for (std::size_t host = 0; host < ports_; ++host)
      writeRecord(group, host, hosts_[host], place->second);
  }

  std::size_t recordSources(std::size_t port, Address group) const {
    return hosts_[port].record[groupNumbers_.at(group)].size;
  }

 private:
  enum class Listed : std::uint8_t { no, include, exclude };

  struct Port {
    bool member = false;
    bool starG = false;
  };

  struct Group {
    Group(std::size_t ports, std::size_t maxSources)
        : width(maxSources),
          port(ports),
          listedByPort(ports * maxSources),
          including(maxSources),
          excluding(maxSources) {}

    Listed* listed(std::size_t number) { return listedByPort.data() + number * width; }
    std::size_t numberOf(Address source) {
      auto const known = std::find(sources.begin(), sources.end(), source);
      if (known == sources.end()) {
        sources.push_back(source);
        return sources.size() - 1;
      }
      return static_cast<std::size_t>(known - sources.begin());
    }

    std::size_t width;
    std::vector<Address> sources;
    std::vector<Port> port;
    std::vector<Listed> listedByPort;
    std::vector<std::uint16_t> including;
    std::vector<std::uint16_t> excluding;
    std::size_t members = 0;
    std::size_t starG = 0;
  };

  struct Record {
    Mode mode = Mode::include;
    std::uint32_t size = 0;
  };

  /// A host has its records together, because it reports them together.
  struct Host {
    std::vector<Record> record;
    std::vector<Address> sources;
  };

  static void withdraw(Group& group, std::size_t number) {
    Listed* const row = group.listed(number);
    for (std::size_t i = 0; i < group.sources.size(); ++i) {
      if (row[i] == Listed::include) --group.including[i];
      if (row[i] == Listed::exclude) --group.excluding[i];
      row[i] = Listed::no;
    }
    group.starG -= group.port[number].starG;
    group.members += !group.port[number].member;
    group.port[number] = {true, false};
  }

  static void contribute(Group& group, std::size_t number, Mode mode,
                         std::vector<Address> const& sources) {
    group.port[number].starG = mode == Mode::exclude && sources.empty();
    group.starG += group.port[number].starG;
    for (Address const source : sources) {
      std::size_t const i = group.numberOf(source);
      group.listed(number)[i] = mode == Mode::include ? Listed::include : Listed::exclude;
      ++(mode == Mode::include ? group.including : group.excluding)[i];
    }
  }

  void writeRecord(Group& group, std::size_t number, Host& host, std::size_t groupNumber) const {
    Listed const* const own = group.listed(number);
    Port const& port = group.port[number];
    Record& record = host.record[groupNumber];
    Address* const list = host.sources.data() + groupNumber * maxSources_;
    std::size_t const others = group.members - port.member;
    record = {Mode::exclude, 0};
    if (group.starG > port.starG) return;
    bool someoneExcludes = false;
    for (std::size_t i = 0; i < group.sources.size(); ++i) {
      std::size_t const excluding = group.excluding[i] - (own[i] == Listed::exclude);
      std::size_t const including = group.including[i] - (own[i] == Listed::include);
      someoneExcludes = someoneExcludes || excluding > 0;
      if (excluding > 0 && excluding == others && including == 0)
        list[record.size++] = group.sources[i];
    }
    if (someoneExcludes) return;
    record.mode = Mode::include;
    for (std::size_t i = 0; i < group.sources.size(); ++i)
      if (group.including[i] > (own[i] == Listed::include)) list[record.size++] = group.sources[i];
  }

  std::size_t ports_;
  std::size_t maxSources_;
  std::unordered_map<Address, std::size_t> groupNumbers_;
  std::vector<Group> groups_;
  std::vector<Host> hosts_;
};

}  // namespace Bench
