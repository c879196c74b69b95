#include "platform/snooping/FilterState.h"

#include <algorithm>

namespace Bridging::IgmpSnooping {

using Wirex::IgmpV3GroupRecordType;
using Wirex::IpAddr;

FilterState FilterState::everySource() {
  return FilterState(Mode::exclude);
}

FilterState FilterState::after(Igmp::GroupRecord const& record, IgmpMembership const* membership) {
  auto const stated = [&](Mode mode) {
    FilterState state(mode);
    for (IpAddr const source : record.sources) state.add(source);
    return state;
  };
  auto const changed = [&](Mode modeThatAdds) {
    FilterState state(membership ? membership->filterMode() : Mode::include);
    if (membership)
      for (IpAddr const source : membership->source()) state.add(source);
    for (IpAddr const source : record.sources)
      state.mode_ == modeThatAdds ? state.add(source) : state.remove(source);
    return state;
  };
  switch (record.type) {
    case IgmpV3GroupRecordType::modeIsInclude:
    case IgmpV3GroupRecordType::changeToIncludeMode:
      return stated(Mode::include);
    case IgmpV3GroupRecordType::modeIsExclude:
    case IgmpV3GroupRecordType::changeToExcludeMode:
      return stated(Mode::exclude);
    // INCLUDE(S), ALLOW(A): INCLUDE(S+A).  EXCLUDE(S), ALLOW(A): EXCLUDE(S-A).
    case IgmpV3GroupRecordType::allowNewSources:
      return changed(Mode::include);
    // INCLUDE(S), BLOCK(A): INCLUDE(S-A).  EXCLUDE(S), BLOCK(A): EXCLUDE(S+A).
    case IgmpV3GroupRecordType::blockOldSources:
      return changed(Mode::exclude);
  }
  return {};
}

bool FilterState::isRepeatedBy(Igmp::GroupRecord const& record, IgmpMembership const& membership) {
  bool const includes = record.type == IgmpV3GroupRecordType::modeIsInclude ||
                        record.type == IgmpV3GroupRecordType::changeToIncludeMode;
  bool const excludes = record.type == IgmpV3GroupRecordType::modeIsExclude ||
                        record.type == IgmpV3GroupRecordType::changeToExcludeMode;
  return (membership.filterMode() == Mode::include ? includes : excludes) &&
         record.sources.size() == membership.source().size() &&
         std::equal(record.sources.begin(), record.sources.end(), membership.source().begin());
}

bool FilterState::describes(IgmpMembership const& membership) const {
  return mode_ == membership.filterMode() && sources_.size() == membership.source().size() &&
         std::all_of(membership.source().begin(), membership.source().end(),
                     [&](IpAddr source) { return sources_.contains(source); });
}

void FilterState::applyTo(IgmpMembership& membership) const {
  membership.filterModeIs(mode_);
  for (IpAddr const source : membership.source().keys())
    if (!sources_.contains(source)) membership.sourceDel(source);
  for (auto const [source, nothing] : sources_) membership.sourceIs(source);
}

void FilterState::add(IpAddr source) {
  if (!sources_.contains(source)) sources_.add(source, {});
}

void FilterState::remove(IpAddr source) {
  if (auto const at = sources_.position(source); at != Sources::absent) sources_.takeAt(at);
}

}  // namespace Bridging::IgmpSnooping
