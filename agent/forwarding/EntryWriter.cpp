#include "agent/forwarding/EntryWriter.h"

#include <algorithm>
#include <cerrno>
#include <set>

namespace Agent {

namespace {

EntryWriter::Key keyOf(FoundEntry const& entry) {
  return {entry.place.vlan, entry.place.group};
}

}  // namespace

void EntryWriter::begin(std::uint32_t bridge) {
  bridge_ = bridge;
  if (former_.empty()) former_.swap(groups_);
  groups_.clear();
  changes_.clear();
  written_ = 0;
  touched_.clear();
  hearOfDeletions();
  disturbed_.clear();
  lost_ = false;
  entryCount_ = sourceCount_ = failedGroups_ = 0;
}

bool EntryWriter::freeSome(std::size_t groups) {
  for (; groups > 0 && !former_.empty(); --groups) former_.erase(former_.begin());
  return !former_.empty();
}

void EntryWriter::portsAre(std::map<Wirex::IntfId, std::uint32_t> const& ports) {
  std::set<std::uint32_t> indices;
  for (auto const& [intf, index] : ports) indices.insert(index);
  changes_.erase(changes_.begin(), changes_.begin() + static_cast<std::ptrdiff_t>(written_));
  written_ = 0;
  std::erase_if(changes_, [&](Change const& change) { return !indices.contains(change.port); });
  for (auto& [key, group] : groups_)
    entryCount_ -= std::erase_if(group.entries, [&](Entry const& entry) {
      bool const gone = !indices.contains(entry.first);
      if (gone) sourceCount_ -= entry.second.sources.size();
      return gone;
    });
}

void EntryWriter::setsAreEmpty() {
  for (auto& [key, group] : groups_) group.joined = group.listedFailed = false;
}

void EntryWriter::doubtAll() {
  for (auto& [key, group] : groups_) group.doubted = true;
}

bool EntryWriter::isDisturbed() {
  hearOfDeletions();
  return lost_ || !disturbed_.empty();
}

std::vector<std::pair<EntryWriter::Key, std::uint32_t>> EntryWriter::takeDisturbed() {
  hearOfDeletions();
  return std::exchange(disturbed_, {});
}

bool EntryWriter::takeLoss() {
  hearOfDeletions();
  return std::exchange(lost_, false);
}

/// What is told before the agent writes, others have done.
void EntryWriter::hearOfDeletions(std::span<Change const> own) {
  std::vector<FoundEntry> deleted;
  if (!control_.events().takeDeleted(deleted)) lost_ = true;
  for (FoundEntry const& entry : deleted) {
    if (entry.place.bridge != bridge_ || entry.derived || !believesIn(entry)) continue;
    // For an entry that we wrote, the kernel also reports the list of sources that it replaced.
    if (std::any_of(own.begin(), own.end(), [&](Change const& change) {
          return change.port == entry.place.port && change.key == keyOf(entry);
        }))
      continue;
    Key const key = keyOf(entry);
    if (!std::exchange(groups_.at(key).doubted, true))
      disturbed_.emplace_back(key, entry.place.port);
  }
}

bool EntryWriter::believesIn(FoundEntry const& entry) const {
  Group const* const known = group(keyOf(entry));
  if (!known) return false;
  return std::any_of(known->entries.begin(), known->entries.end(), [&](Entry const& each) {
    auto const& [port, filter] = each;
    auto const kernels = kernelEntries(filter, control_.entryKind());
    return port == entry.place.port &&
           (std::find(filter.sources.begin(), filter.sources.end(), entry.entry.source) !=
                filter.sources.end() ||
            std::any_of(kernels.begin(), kernels.end(), [&](KernelEntry const& kernel) {
              return kernel.source == entry.entry.source;
            }));
  });
}

EntryWriter::Group const* EntryWriter::group(Key const& key) const {
  auto const found = groups_.find(key);
  return found == groups_.end() ? nullptr : &found->second;
}

std::vector<EntryWriter::Key> EntryWriter::failed() const {
  std::vector<Key> keys;
  if (failedGroups_ == 0) return keys;
  for (auto const& [key, group] : groups_)
    if (group.failed) keys.push_back(key);
  return keys;
}

void EntryWriter::groupIs(Key const& key, std::vector<Entry> wanted) {
  touched_.push_back(key);
  auto const known = groups_.find(key);
  if (known == groups_.end() && wanted.empty()) return;
  if (known != groups_.end() && std::exchange(known->second.failed, false)) --failedGroups_;
  static Group const none;
  auto const& present = known == groups_.end() ? none.entries : known->second.entries;
  auto const trust = known != groups_.end() && std::exchange(known->second.doubted, false)
                         ? Trust::none
                         : Trust::full;
  auto before = present.begin();
  auto after = wanted.begin();
  while (before != present.end() || after != wanted.end()) {
    bool const goes =
        after == wanted.end() || (before != present.end() && before->first < after->first);
    bool const comes =
        before == present.end() || (after != wanted.end() && after->first < before->first);
    if (goes) {
      change(key, before->first, &before->second, nullptr, trust);
    } else if (comes) {
      change(key, after->first, nullptr, &after->second, trust);
    } else if (trust == Trust::none || before->second != after->second) {
      change(key, after->first, &before->second, &after->second, trust);
    }
    if (!comes) ++before;
    if (!goes) ++after;
  }
}

void EntryWriter::change(Key const& key, std::uint32_t port, SourceFilter const* before,
                         SourceFilter const* after, Trust trust) {
  auto const filter = [](SourceFilter const* each) {
    return each ? std::optional(*each) : std::nullopt;
  };
  changes_.push_back({key, port, filter(before), filter(after), trust});
}

std::span<EntryWriter::Change> EntryWriter::batchNext() {
  batch_.clear();
  auto const rest = std::span(changes_).subspan(written_);
  std::size_t count = 0;
  for (; count < rest.size() && !batch_.isFull(); ++count) {
    Change& change = rest[count];
    addChange(batch_, {bridge_, change.port, change.key.first, change.key.second}, change.before,
              change.after, control_.entryKind(), change.trust);
    change.end = batch_.count();
  }
  return rest.first(count);
}

void EntryWriter::writeSome(std::function<void(Refusal const&)> const& refused) {
  auto const changes = batchNext();
  counters_.writes += batch_.count();
  hearOfDeletions();
  auto const failures = control_.write(batch_);
  hearOfDeletions(changes);
  auto failure = failures.begin();
  for (Change& change : changes) {
    bool failed = false;
    for (; failure != failures.end() && failure->request < change.end; ++failure) {
      // An entry that is gone already, or there already, is as wanted.
      if (!change.after || failure->error == EEXIST) continue;
      ++counters_.failures;
      if (!failed) refused({change.key, change.port, failure->error, failure->text});
      failed = true;
    }
    apply(change, failed);
  }
  written_ += changes.size();
  if (written_ < changes_.size()) return;
  changes_.clear();
  written_ = 0;
}

std::optional<std::string> EntryWriter::list() {
  if (!isWritten()) return std::nullopt;
  std::vector<RulesTable::Member> members;
  listChanges(members);
  touched_.clear();
  return control_.rules().change(members);
}

void EntryWriter::apply(Change& change, bool failed) {
  Group& group = groups_[change.key];
  auto const place =
      std::lower_bound(group.entries.begin(), group.entries.end(), change.port,
                       [](Entry const& entry, std::uint32_t port) { return entry.first < port; });
  bool const present = place != group.entries.end() && place->first == change.port;
  if (failed) {
    failedGroups_ += group.failed ? 0 : 1;
    group.failed = true;
  } else if (change.after) {
    sourceCount_ += change.after->sources.size();
    if (present) {
      sourceCount_ -= place->second.sources.size();
      place->second = std::move(*change.after);
    } else {
      group.entries.emplace(place, change.port, std::move(*change.after));
      ++entryCount_;
    }
  } else if (present) {
    sourceCount_ -= place->second.sources.size();
    group.entries.erase(place);
    --entryCount_;
  }
}

/// Brings the sets in step with the groups that were touched.
void EntryWriter::listChanges(std::vector<RulesTable::Member>& members) {
  for (Key const& key : touched_) {
    auto const known = groups_.find(key);
    if (known == groups_.end()) continue;
    Group& group = known->second;
    bool const joined = !group.entries.empty() && !group.failed;
    if (joined != group.joined) members.push_back({joinedSet(key.first), key.second, joined});
    if (group.failed != group.listedFailed)
      members.push_back({failedSet(key.first), key.second, group.failed});
    group.joined = joined;
    group.listedFailed = group.failed;
    if (group.entries.empty() && !group.failed) groups_.erase(known);
  }
}

}  // namespace Agent
