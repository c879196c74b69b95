#pragma once

#include <nlohmann/json_fwd.hpp>

#include "agent/output/Explanation.h"
#include "agent/watch/HostRecords.h"
#include "agent/watch/RecordWatch.h"

/// What JSON output is made of. The names of keys are those of the YANG modules of RFC 9166 and
/// RFC 9398 where these have one.
namespace Agent {

using Json = nlohmann::ordered_json;  // keys stay in the order in which they are written

double seconds(Horix::Time time);

/// Adds "filter-mode" and "source".
void addFilter(Json& object, SourceFilter const& filter);

/// A host but for its groups.
Json hostAttributes(HostRecords const& host);
Json groupObject(GroupRecord const& group);

Json recordChangeObject(RecordEvent const& event);
Json explanationObject(Explanation const& explanation);

/// The value on one line, without line end. Text that is no UTF-8 is replaced.
std::string oneLine(Json const& value);

}  // namespace Agent
