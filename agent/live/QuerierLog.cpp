#include "agent/live/QuerierLog.h"

#include <cstdio>
#include <utility>

#include "agent/Log.h"

namespace Agent {

namespace {

std::string macText(Wirex::MacAddress const& address) {
  std::string text;
  for (std::uint8_t const byte : address) {
    std::array<char, 4> hex{};
    std::snprintf(hex.data(), hex.size(), text.empty() ? "%02x" : ":%02x", byte);
    text += hex.data();
  }
  return text;
}

std::string outcomeOf(QuerierLog::VlanQuerier const& querier) {
  if (querier.isQuerier()) return "this switch is the querier";
  auto const& other = querier.otherQuerier();
  if (!other) return "no querier is heard any more";
  bool const hasAddress = other->address != Wirex::IpAddr();
  return message("querier ", hasAddress ? message(other->address) : "without an address", " (",
                 macText(other->macAddress), ") on interface ", other->intfId, " is elected");
}

}  // namespace

QuerierLog::QuerierLog(Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : timerWheel_(std::move(timerWheel)) {}

QuerierLog::~QuerierLog() = default;

void QuerierLog::elected(VlanQuerier const& querier) {
  untold_[querier.vlanId()] = outcomeOf(querier);
  if (!scheduled()) tell();
}

void QuerierLog::tell() {
  constexpr auto pause = std::chrono::seconds(1);
  for (auto const& [vlan, outcome] : std::exchange(untold_, {}))
    if (std::exchange(told_[vlan], outcome) != outcome)
      log(Severity::info, "VLAN ", vlan, ": ", outcome);
  timerWheel_->schedule(*this, pause);
}

void QuerierLog::onExpiry() {
  if (!untold_.empty()) tell();
}

}  // namespace Agent
