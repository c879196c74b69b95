#include "platform/igmp/host/ReceptionState.h"

#include "platform/igmp/wire/FrameWriter.h"

namespace Igmp {

namespace {

bool excludes(IgmpV3GroupRecord const& record) {
  return record.filterMode() == IgmpV3GroupRecord::RecordType::modeIsExclude;
}

}  // namespace

bool hasReceptionState(IgmpV3GroupRecord const* record) {
  // Every system is a member of all-systems, and none reports it (RFC 9776 section 5).
  if (!record || record->group() == allSystems || record->heardBack()) return false;
  return excludes(*record) || (record->source() && !record->source()->sourceIp().empty());
}

ReceptionState receptionState(IgmpV3GroupRecord const* record) {
  ReceptionState state;
  if (!hasReceptionState(record)) return state;
  state.excludes = excludes(*record);
  if (IgmpV3HostGroupSourceList const* const list = record->source().get()) {
    state.sources.reserve(list->sourceIp().size());
    for (auto const [source, value] : list->sourceIp()) state.sources.push_back(source);
    std::sort(state.sources.begin(), state.sources.end());
  }
  return state;
}

}  // namespace Igmp
