#include "platform/snooping/PortForgetting.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace Bridging::IgmpSnooping {

namespace {

// A port may be in many VLANs, each of which begins at once.
constexpr auto firstPiece = std::chrono::microseconds(20);
constexpr auto laterPiece = std::chrono::microseconds(250);
constexpr std::uint32_t groupsAtOnce = 16;  // between two looks at the clock

}  // namespace

PortForgetting::PortForgetting(Kel::Ptr<IgmpContextStatus const> status,
                               Kel::Ptr<Horix::TimerWheel const> timerWheel, Forget forget)
    : status_(std::move(status)),
      timerWheel_(std::move(timerWheel)),
      forget_(std::move(forget)),
      left_(status_->group().size()) {
  goOn(timerWheel_->now() + firstPiece);
}

void PortForgetting::hears(Wirex::IpAddr group) {
  if (!isOver() && heard_.insert(group).second) forget_(group);
}

void PortForgetting::onExpiry() {
  goOn(timerWheel_->now() + laterPiece);
}

void PortForgetting::goOn(Horix::Time end) {
  left_ = std::min(left_, status_->group().size());
  for (std::uint32_t visited = 0; left_ > 0;) {
    Wirex::IpAddr const group = status_->group().keyAt(--left_);
    if (!heard_.contains(group)) forget_(group);
    if (++visited % groupsAtOnce == 0 && timerWheel_->now() >= end) break;
  }
  if (left_ > 0)
    timerWheel_->schedule(*this, Horix::Time::zero());
  else
    heard_.clear();
}

}  // namespace Bridging::IgmpSnooping
