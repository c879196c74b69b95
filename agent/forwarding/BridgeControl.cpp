#include "agent/forwarding/BridgeControl.h"

#include <array>
#include <cstdlib>
#include <sys/utsname.h>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// What a bridge that goes by permanent entries has, in the order of setting it.
constexpr std::array<std::pair<LinkSetting, std::uint32_t>, 4> needed{{
    {LinkSetting::igmpVersion, 3},          // else it does not look at sources
    {LinkSetting::queryFromOwnAddress, 0},  // the rules know its queries by their 0.0.0.0
    {LinkSetting::querier, 1},
    {LinkSetting::snooping, 1},
}};

/// Enough for most; raised as groups come. What is not used costs nothing.
constexpr std::uint32_t ampleGroups = 65536;

/// Whether the kernel is this one or a later one.
bool isKernel(unsigned long major, unsigned long minor) {
  utsname system{};
  if (uname(&system) != 0) return false;
  char* end = nullptr;
  unsigned long const majorThere = std::strtoul(system.release, &end, 10);
  unsigned long const minorThere = *end == '.' ? std::strtoul(end + 1, nullptr, 10) : 0;
  return std::pair(majorThere, minorThere) >= std::pair(major, minor);
}

}  // namespace

EntryKind BridgeControl::entryKindOfKernel() {
  return isKernel(6, 3) ? EntryKind::sourceLists : EntryKind::singleSources;
}

/// Before, nftables writes into a frame whose tag the device took out as if it were in it.
bool BridgeControl::floodsTagged() {
  return isKernel(6, 8);
}

bool BridgeControl::recover() {
  auto const former = rules_.former();
  if (!former) return false;
  former_ = *former;
  beginToGiveBack(entryKind_ == EntryKind::singleSources ? rules_.groups()
                                                         : std::set<Wirex::IpAddr>());
  return true;
}

std::optional<std::string> BridgeControl::take(LinkInfo const& bridge, StreamRules const& rules) {
  former_.clear();
  if (auto refusal = rulesAre(rules)) return refusal;
  trustOwnQuerierSoon(bridge);
  auto const mostGroups = bridge.settings.find(LinkSetting::mostGroups);
  std::optional<std::string> refusal;
  if (mostGroups != bridge.settings.end() && mostGroups->second < ampleGroups)
    refusal = settingIs(bridge, LinkSetting::mostGroups, ampleGroups);
  if (!refusal) refusal = restoreNeeded(bridge);
  if (refusal) {
    putSettingsBack();
    rules_.remove();
  }
  return refusal;
}

std::optional<std::string> BridgeControl::restoreNeeded(LinkInfo const& bridge) {
  std::vector<Setting> settings;
  settings.reserve(needed.size());
  for (auto const& [setting, value] : needed) settings.push_back({bridge, setting, value});
  auto refusals = settingsAre(settings);
  return refusals.empty() ? std::nullopt : std::optional(std::move(refusals.front()));
}

/// The kernel waits for a query response interval before it trusts a querier that it has become:
/// short for the moment in which it becomes one.
void BridgeControl::trustOwnQuerierSoon(LinkInfo const& bridge) {
  constexpr std::uint32_t shortest = 10;  // hundredths of a second
  auto const interval = bridge.settings.find(LinkSetting::queryResponseInterval);
  auto const querier = bridge.settings.find(LinkSetting::querier);
  if (interval == bridge.settings.end() || querier == bridge.settings.end() || querier->second != 0)
    return;
  if (settingIs(bridge, LinkSetting::queryResponseInterval, shortest)) return;
  if (settingIs(bridge, LinkSetting::querier, 1)) return;
  NetlinkBatch batch;
  addSetting(batch, bridge.index, LinkSetting::queryResponseInterval, interval->second);
  socket_.send(batch);
}

std::optional<std::string> BridgeControl::rulesAre(StreamRules const& rules) {
  return rules_.run(tableText(rules, former_));
}

std::optional<std::string> BridgeControl::settingIs(LinkInfo const& link, LinkSetting setting,
                                                    std::uint32_t value) {
  auto refusals = settingsAre(std::array{Setting{link, setting, value}});
  return refusals.empty() ? std::nullopt : std::optional(std::move(refusals.front()));
}

std::vector<std::string> BridgeControl::settingsAre(std::span<Setting const> settings) {
  std::vector<std::string> refusals;
  std::vector<Setting> others;
  FormerSettings unkept;
  for (Setting const& each : settings) {
    auto const present = each.link.settings.find(each.setting);
    if (present == each.link.settings.end()) {
      refusals.push_back(
          message("the kernel does not know ", name(each.setting), " of ", each.link.name));
      continue;
    }
    auto const key = std::pair(each.link.index, each.setting);
    bool const known = former_.contains(key);
    if (present->second == each.value && known) continue;
    if (!known) unkept.emplace(key, present->second);
    others.push_back(each);
  }
  // They are remembered first: better to put back what was not changed than not what was.
  if (!unkept.empty())
    if (auto refusal = rules_.keep(unkept)) return {*refusal};
  former_.merge(unkept);
  NetlinkBatch batch;
  for (Setting const& each : others) addSetting(batch, each.link.index, each.setting, each.value);
  for (NetlinkFailure const& failure : socket_.send(batch)) {
    Setting const& each = others.at(failure.request);
    refusals.push_back(message("the kernel does not set ", name(each.setting), " of ",
                               each.link.name, " to ", each.value, ": ", failure.text));
  }
  return refusals;
}

char const* BridgeControl::disturbedIn(LinkInfo const& bridge) {
  for (auto const& [setting, value] : needed) {
    auto const present = bridge.settings.find(setting);
    if (present != bridge.settings.end() && present->second != value) return name(setting);
  }
  return nullptr;
}

void BridgeControl::beginToGiveBack(std::set<Wirex::IpAddr> groups) {
  rules_.run(floodAllText());  // what cannot be done in older rules is not needed in them
  removal_ = std::make_unique<EntryRemoval>(socket_, entryKind_, std::move(groups));
}

bool BridgeControl::giveSomeBack() try {
  if (!removal_ || removal_->advance()) return removal_ != nullptr;
  removal_.reset();
  putSettingsBack();
  rules_.remove();
  return false;
} catch (...) {
  removal_.reset();
  throw;
}

void BridgeControl::putSettingsBack() {
  NetlinkBatch batch;
  for (auto const& [key, value] : former_) {
    // A bridge that was its own querier begins anew: it asks, and floods until it was answered.
    if (key.second == LinkSetting::querier && value != 0)
      addSetting(batch, key.first, key.second, 0);
    addSetting(batch, key.first, key.second, value);
  }
  socket_.send(batch);  // what is gone needs nothing
  former_.clear();
}

}  // namespace Agent
