#include "platform/snooping/LearnedMembership.h"

#include <algorithm>

#include "platform/snooping/VlanLearning.h"

namespace Bridging::IgmpSnooping {

using Horix::Time;
using Wirex::IpAddr;

void LearnedMembership::onExpiry() {
  intf_.group().vlan().expire(*this);
}

std::uint32_t LearnedMembership::sourceCount() const {
  return source().size() + (times_ ? times_->ofRequested.size() : 0);
}

Time LearnedMembership::end() const {
  Time end = includes() ? Time::zero() : everySourceWantedUntil();
  if (!times_) return deadline();
  for (Deadline const time : times_->ofSources) end = std::max(end, time.near(deadline()));
  for (auto const [source, time] : times_->ofRequested) end = std::max(end, time.near(deadline()));
  return end;
}

Time LearnedMembership::wantedUntil(IpAddr source) const {
  std::uint32_t const position = this->source().position(source);
  bool const listed = position != unlisted;
  if (includes()) return listed ? timeAt(position) : Time::zero();
  if (listed) return Time::zero();
  Deadline const* const requested = times_ ? times_->ofRequested.find(source) : nullptr;
  return std::max(everySourceWantedUntil(), requested ? requested->near(deadline()) : Time::zero());
}

Time LearnedMembership::everySourceWantedUntil() const {
  if (includes()) return Time::zero();
  return times_ ? times_->ofMode.near(deadline()) : deadline();
}

Time LearnedMembership::timeAt(std::uint32_t position) const {
  return times_ ? times_->ofSources[position].near(deadline()) : deadline();
}

TimedFilter LearnedMembership::timedFilter() const {
  TimedFilter filter;
  filter.mode = filterMode();
  if (includes()) {
    for (std::uint32_t i = 0; i < source().size(); ++i)
      filter.requested.push_back({source().keyAt(i), timeAt(i)});
    return filter;
  }
  filter.deadline = everySourceWantedUntil();
  filter.excluded.assign(source().begin(), source().end());
  if (times_)
    for (auto const [source, time] : times_->ofRequested)
      filter.requested.push_back({source, time.near(deadline())});
  return filter;
}

}  // namespace Bridging::IgmpSnooping
