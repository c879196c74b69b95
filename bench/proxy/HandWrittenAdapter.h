#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

/// A yardstick: the adapter's algorithm written by hand on the standard containers, without
/// entities, reactors or traces. Interfaces and hosts are known by name, as they are there.
namespace Bench {

class HandWrittenAdapter {
 public:
  using Address = std::uint32_t;
  enum class Mode { exclude, include };

  explicit HandWrittenAdapter(std::vector<std::string> const& ports) {
    for (std::string const& port : ports) {
      hostKeys_.push_back({port, "Vlan10" + port});
      hosts_[hostKeys_.back().name];
    }
  }

  /// Sets a reporter's filter and carries the change through to the hosts' records.
  void report(Address groupAddress, std::string const& portName, Address reporter, Mode mode,
              std::vector<Address> const& sources) {
    Group& group = groups_[groupAddress];
    Port& port = group.ports[portName];
    auto const [membership, isNew] = port.memberships.try_emplace(reporter);
    if (isNew) starGIs(group, port, true);
    membership->second.mode = mode;
    membership->second.sources.clear();
    membership->second.sources.insert(sources.begin(), sources.end());
    evaluate(group, port);
    if (!std::exchange(group.changed, false)) return;
    for (HostKey const& key : hostKeys_) writeRecord(key, groupAddress, group);
  }

  std::size_t recordSources(std::string const& port, Address group) const {
    auto const& records = hosts_.at("Vlan10" + port).records;
    auto const record = records.find(group);
    return record == records.end() ? 0 : record->second.sources.size();
  }

 private:
  using Counts = std::unordered_map<Address, std::uint16_t>;

  struct Membership {
    Mode mode = Mode::exclude;
    std::unordered_set<Address> sources;
  };
  struct Port {
    std::unordered_map<Address, Membership> memberships;
    Counts include;
    Counts exclude;
    bool starG = false;
  };
  struct Group {
    std::unordered_map<std::string, Port> ports;
    std::uint16_t starGCount = 0;
    Counts include;
    Counts exclude;
    bool changed = false;
  };
  struct Record {
    Mode mode = Mode::include;
    std::unordered_set<Address> sources;
  };
  struct Host {
    std::unordered_map<Address, Record> records;
  };
  struct HostKey {
    std::string port;
    std::string name;
  };
  struct Merged {
    bool starG = false;
    std::unordered_set<Address> include;
    std::unordered_set<Address> exclude;
  };

  static void increase(Counts& counts, Address source) { ++counts[source]; }
  static void decrease(Counts& counts, Address source) {
    auto const count = counts.find(source);
    if (count != counts.end() && --count->second == 0) counts.erase(count);
  }

  static void starGIs(Group& group, Port& port, bool starG) {
    if (port.starG == starG) return;
    port.starG = starG;
    starG ? ++group.starGCount : --group.starGCount;
    if (group.starGCount <= 2) group.changed = true;
  }

  static void list(Group& group, Counts& ofPort, Counts& ofGroup, Address source) {
    if (!ofPort.try_emplace(source, std::uint16_t{1}).second) return;
    increase(ofGroup, source);
    group.changed = true;
  }
  static void unlist(Group& group, Counts& ofPort, Counts& ofGroup, Address source) {
    ofPort.erase(source);
    decrease(ofGroup, source);
    group.changed = true;
  }

  static std::vector<Address> keys(Counts const& counts) {
    std::vector<Address> keys;
    keys.reserve(counts.size());
    for (auto const& [source, count] : counts) keys.push_back(source);
    return keys;
  }

  static void evaluate(Group& group, Port& port) {
    Counts include;
    Counts exclude;
    bool someoneExcludes = false;
    for (auto const& [reporter, membership] : port.memberships) {
      bool const excludes = membership.mode == Mode::exclude;
      someoneExcludes = someoneExcludes || excludes;
      for (Address const source : membership.sources)
        increase(excludes ? exclude : include, source);
    }
    if (!someoneExcludes) {
      starGIs(group, port, false);
      for (Address const source : keys(port.exclude))
        unlist(group, port.exclude, group.exclude, source);
      for (Address const source : keys(port.include))
        if (!include.contains(source)) unlist(group, port.include, group.include, source);
      for (auto const& [source, count] : include) list(group, port.include, group.include, source);
      return;
    }
    for (Address const source : keys(port.include))
      unlist(group, port.include, group.include, source);
    for (auto const& [source, count] : exclude)
      if (count == port.memberships.size()) list(group, port.exclude, group.exclude, source);
    for (auto const& [source, count] : include) unlist(group, port.exclude, group.exclude, source);
    for (Address const source : keys(port.exclude)) {
      auto const count = exclude.find(source);
      if (count == exclude.end() || count->second != port.memberships.size())
        unlist(group, port.exclude, group.exclude, source);
    }
    starGIs(group, port, port.exclude.empty());
  }

  static Merged others(Group const& group, Port const& own) {
    Merged merged;
    if (group.starGCount - (own.starG ? 1 : 0) >= 1) {
      merged.starG = true;
      return merged;
    }
    std::size_t const ports = group.ports.size();
    bool othersExclude = false;
    for (auto const& [source, count] : group.exclude) {
      bool const ownExcludes = own.exclude.contains(source);
      if (ownExcludes ? count == ports : count + 1u == ports)
        merged.exclude.insert(source);
      else if (count > (ownExcludes ? 1 : 0))
        othersExclude = true;
    }
    for (auto const& [source, count] : group.include) {
      if (count - (own.include.contains(source) ? 1 : 0) < 1) continue;
      merged.include.insert(source);
      merged.exclude.erase(source);
    }
    if (othersExclude && merged.exclude.empty()) merged.starG = true;
    return merged;
  }

  static Merged all(Group const& group) {
    Merged merged;
    merged.starG = group.starGCount != 0;
    bool someoneDoesNotExclude = false;
    for (auto const& [source, count] : group.exclude) {
      if (count == group.ports.size())
        merged.exclude.insert(source);
      else
        someoneDoesNotExclude = true;
    }
    for (auto const& [source, count] : group.include) {
      merged.include.insert(source);
      merged.exclude.erase(source);
    }
    if (someoneDoesNotExclude && merged.exclude.empty()) merged.starG = true;
    return merged;
  }

  void writeRecord(HostKey const& key, Address groupAddress, Group const& group) {
    auto const own = group.ports.find(key.port);
    Merged const merged = own == group.ports.end() ? all(group) : others(group, own->second);
    auto const host = hosts_.find(key.name);
    if (host == hosts_.end()) return;
    if (!merged.starG && merged.exclude.empty() && merged.include.empty()) {
      host->second.records.erase(groupAddress);
      return;
    }
    Record& record = host->second.records[groupAddress];
    bool const excludes = merged.starG || !merged.exclude.empty();
    record.mode = excludes ? Mode::exclude : Mode::include;
    record.sources.clear();
    if (merged.starG) return;
    for (Address const source : excludes ? merged.exclude : merged.include)
      record.sources.insert(source);
  }

  std::unordered_map<Address, Group> groups_;
  std::vector<HostKey> hostKeys_;
  std::unordered_map<std::string, Host> hosts_;
};

}  // namespace Bench
