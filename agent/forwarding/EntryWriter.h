#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "agent/forwarding/BridgeControl.h"

namespace Agent {

/// Knows which entries a bridge was given, and writes what differs: a group's entries first, and
/// then that its streams go by them. A group of which not all could be written is flooded.
class EntryWriter {
 public:
  /// A port, by the kernel's index, and what it gets.
  using Entry = std::pair<std::uint32_t, SourceFilter>;

  struct Group {
    std::vector<Entry> entries;  ///< ascending by port
    bool joined = false;         ///< its streams go by the entries
    bool failed = false;         ///< not all entries could be written, so it is flooded
    bool listedFailed = false;   ///< the rules know
    bool doubted = false;        ///< somebody has deleted entries, so all are written again
  };

  /// In the VLAN of the entries.
  using Key = std::pair<std::uint16_t, Wirex::IpAddr>;
  struct Hash {
    std::size_t operator()(Key const& key) const noexcept {
      return std::hash<std::uint64_t>()(std::uint64_t{key.first} << 32 | key.second.value());
    }
  };
  using Groups = std::unordered_map<Key, Group, Hash>;

  struct Counters {
    std::uint64_t writes = 0;  ///< requests for entries
    std::uint64_t failures = 0;
  };

  /// An entry that the kernel refused.
  struct Refusal {
    Key key;
    std::uint32_t port;
    int error;
    std::string text;
  };

  /// @param bridgeControl outlives it.
  explicit EntryWriter(BridgeControl& bridgeControl) : control_(bridgeControl) {}

  /// Of a bridge that has none of our entries, and whose sets are empty.
  void begin(std::uint32_t bridge);
  /// Frees what is known of a former bridge, so many groups of it. Returns whether there is more.
  bool freeSome(std::size_t groups);
  /// The ports that there are; the kernel has deleted the entries of others.
  void portsAre(std::map<Wirex::IntfId, std::uint32_t> const& ports);
  /// The sets were emptied; entries are as they were.
  void setsAreEmpty();
  /// Entries may be gone: all are written again when their groups are named.
  void doubtAll();
  /// Whether somebody else has deleted entries that nobody has taken note of yet.
  bool isDisturbed();
  /// Takes the groups of which somebody else has deleted an entry, with its port: they are to be
  /// named again.
  std::vector<std::pair<Key, std::uint32_t>> takeDisturbed();
  /// Whether more was deleted than could be told, since the last time.
  bool takeLoss();

  Groups const& groups() const { return groups_; }
  Group const* group(Key const& key) const;
  std::size_t entryCount() const { return entryCount_; }
  /// The most that the kernel counts for what was written: groups, and their sources.
  std::size_t kernelGroups() const { return groups_.size() + sourceCount_; }
  std::size_t failedGroups() const { return failedGroups_; }
  Counters const& counters() const { return counters_; }
  std::vector<Key> failed() const;

  /// What a group is to have. A group is named once before all is written.
  void groupIs(Key const& key, std::vector<Entry> wanted);
  /// Whether there is enough to write.
  bool isFull() const { return changes_.size() >= 64; }
  bool isWritten() const { return changes_.empty(); }

  /// Writes as many entries as one system call takes with ease. What was refused is told one by
  /// one.
  void writeSome(std::function<void(Refusal const&)> const& refused);
  /// Has the streams of groups that were written go by their entries, once all are. That costs as
  /// much for one as for many. Returns why the sets could not be changed.
  std::optional<std::string> list();

 private:
  /// Of an entry, which takes the requests up to `end`.
  struct Change {
    Key key;
    std::uint32_t port;
    std::optional<SourceFilter> before;
    std::optional<SourceFilter> after;
    Trust trust;
    std::size_t end = 0;
  };

  void change(Key const& key, std::uint32_t port, SourceFilter const* before,
              SourceFilter const* after, Trust trust);
  std::span<Change> batchNext();
  void apply(Change& change, bool failed);
  void hearOfDeletions(std::span<Change const> own = {});
  bool believesIn(FoundEntry const& entry) const;
  void listChanges(std::vector<RulesTable::Member>& members);

  BridgeControl& control_;
  std::uint32_t bridge_ = 0;
  Groups groups_;
  Groups former_;  // of a bridge that was given up
  std::size_t entryCount_ = 0;
  std::size_t sourceCount_ = 0;
  std::size_t failedGroups_ = 0;
  Counters counters_;
  NetlinkBatch batch_;
  std::vector<Change> changes_;
  std::size_t written_ = 0;  // of the changes
  std::vector<Key> touched_;
  std::vector<std::pair<Key, std::uint32_t>> disturbed_;
  bool lost_ = false;
};

}  // namespace Agent
