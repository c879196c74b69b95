#include "platform/igmp/host/StateChange.h"

#include <algorithm>
#include <iterator>

namespace Igmp {

using Wirex::IpAddr;

//   Old State         New State         State-Change Record Sent
//   INCLUDE (A)       INCLUDE (B)       ALLOW (B-A), BLOCK (A-B)
//   EXCLUDE (A)       EXCLUDE (B)       ALLOW (A-B), BLOCK (B-A)
//   INCLUDE (A)       EXCLUDE (B)       TO_EX (B)
//   EXCLUDE (A)       INCLUDE (B)       TO_IN (B)
void StateChange::add(ReceptionState const& before, ReceptionState const& after,
                      std::uint8_t transmissions) {
  if (before.excludes != after.excludes) {
    addModeChange(transmissions);
    return;
  }
  std::vector<IpAddr> changed;
  std::set_symmetric_difference(before.sources.begin(), before.sources.end(), after.sources.begin(),
                                after.sources.end(), std::back_inserter(changed));
  addSources(changed, transmissions);
}

void StateChange::addAsNew(ReceptionState const& before, ReceptionState const& after,
                           std::uint8_t transmissions) {
  if (modeTransmissions_ > 0 || before.excludes || after.excludes) {
    addModeChange(transmissions);
    return;
  }
  std::vector<IpAddr> all;
  std::set_union(before.sources.begin(), before.sources.end(), after.sources.begin(),
                 after.sources.end(), std::back_inserter(all));
  for (Source& pending : sources_) pending.transmissions = transmissions;
  addSources(all, transmissions);
}

// Each of the next reports tells the whole state, as often as any source would be told alone.
void StateChange::addModeChange(std::uint8_t transmissions) noexcept {
  modeTransmissions_ = transmissions;
  sources_.clear();
}

void StateChange::addSources(std::vector<IpAddr> const& changed, std::uint8_t transmissions) {
  std::vector<Source> merged;
  merged.reserve(sources_.size() + changed.size());
  auto pending = sources_.begin();
  for (IpAddr const source : changed) {
    while (pending != sources_.end() && pending->address < source) merged.push_back(*pending++);
    if (pending != sources_.end() && pending->address == source) ++pending;
    merged.push_back({source, transmissions});
  }
  merged.insert(merged.end(), pending, sources_.end());
  sources_ = std::move(merged);
}

void StateChange::write(IpAddr group, ReceptionState const& current, ReportWriter& writer) {
  using enum Wirex::IgmpV3GroupRecordType;
  if (modeTransmissions_ > 0) {
    writer.record(current.excludes ? changeToExcludeMode : changeToIncludeMode, group,
                  current.sources);
    --modeTransmissions_;
  } else {
    writeSources(group, current, writer);
  }
  // "... until [Robustness Variable] State-Change reports have been sent", of either kind.
  std::erase_if(sources_, [](Source& source) { return --source.transmissions == 0; });
}

//   Record   Sources included
//   ALLOW    All with retransmission state that must be forwarded
//   BLOCK    All with retransmission state that must be blocked
void StateChange::writeSources(IpAddr group, ReceptionState const& current,
                               ReportWriter& writer) const {
  using enum Wirex::IgmpV3GroupRecordType;
  std::vector<IpAddr> allowed;
  std::vector<IpAddr> blocked;
  for (Source const& source : sources_)
    (current.wants(source.address) ? allowed : blocked).push_back(source.address);
  if (!allowed.empty()) writer.record(allowNewSources, group, allowed);
  if (!blocked.empty()) writer.record(blockOldSources, group, blocked);
}

void StateChange::clear() noexcept {
  modeTransmissions_ = 0;
  sources_.clear();
}

void StateChange::remember(HostMemory::Told& told) const {
  told.transmissions = modeTransmissions_;
  told.pendingSources = sources_;
}

void StateChange::rememberedIs(HostMemory::Told const& told) {
  modeTransmissions_ = told.transmissions;
  sources_ = told.pendingSources;
}

}  // namespace Igmp
