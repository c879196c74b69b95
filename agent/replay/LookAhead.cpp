#include "agent/replay/LookAhead.h"

#include <chrono>
#include <utility>

#include "agent/replay/CaptureError.h"

namespace Agent {

namespace {

using namespace std::chrono_literals;

constexpr Horix::Time farEnough = 10ms;
constexpr std::size_t mostHeld = 1000;

}  // namespace

std::optional<MergedPacket> LookAhead::next() {
  if (std::exchange(given_, false)) held_.pop_front();
  while (!ended_ && !isFarEnough()) read();
  if (held_.empty()) {
    if (failure_) std::rethrow_exception(failure_);
    return std::nullopt;
  }
  given_ = true;
  return held_.front().packet;
}

bool LookAhead::isFarEnough() const {
  return held_.size() == mostHeld ||
         (!held_.empty() && held_.back().packet.time - held_.front().packet.time > farEnough);
}

void LookAhead::read() {
  try {
    auto const packet = packets_.next();
    ended_ = !packet;
    if (ended_) return;
    held_.push_back({*packet, {packet->frame.begin(), packet->frame.end()}});
    Held& held = held_.back();
    held.packet.frame = held.bytes;
    onRead_(held.packet);
  } catch (CaptureError const&) {
    failure_ = std::current_exception();
    ended_ = true;
  }
}

}  // namespace Agent
