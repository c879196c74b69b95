#include <algorithm>
#include <chrono>
#include <utility>

#include "agent/Log.h"
#include "agent/forwarding/Forwarding.h"

/// How forwarding finds out which entries are to be written, and writes them.
namespace Agent {

using Bridging::VlanId;
using Wirex::IntfId;
using Wirex::IpAddr;

namespace {

constexpr auto retryPause = std::chrono::seconds(5);

}  // namespace

std::vector<EntryWriter::Entry> Forwarding::wanted(ForwardedVlan const& vlan, IpAddr group) const {
  std::vector<EntryWriter::Entry> entries;
  auto const status = switch_.entities().snoopingStatus->contextStatus(vlan.learnedIn);
  auto const* const learned = status ? status->group().find(group) : nullptr;
  if (!learned || group.isLinkLocalMulticast()) return entries;
  for (IntfId const& intf : vlan.receivers) {
    auto const port = ports_.find(intf);
    if (port == ports_.end()) continue;
    bool const byEntry = !routers_.contains(intf) && isRouterPort(vlan, intf);
    if (auto filter = wantedEntry(vlan, *learned, intf, byEntry))
      entries.emplace_back(port->second, std::move(*filter));
  }
  std::sort(entries.begin(), entries.end(),
            [](auto const& a, auto const& b) { return a.first < b.first; });
  return entries;
}

/// Null if the VLAN of an entry is not served any more.
ForwardedVlan const* Forwarding::vlanOf(EntryWriter::Key const& key) const {
  auto const vlan = std::lower_bound(
      vlans_.begin(), vlans_.end(), key.first,
      [](ForwardedVlan const& each, std::uint16_t number) { return each.entryVlan < number; });
  return vlan != vlans_.end() && vlan->entryVlan == key.first ? &*vlan : nullptr;
}

void Forwarding::sweepAll() {
  std::vector<PendingGroups::Learned> groups;
  for (auto const& [vlan, status] : switch_.entities().snoopingStatus->contextStatus())
    for (IpAddr const group : status->group().keys()) groups.emplace_back(vlan, group);
  // What is no longer learned may still have entries, and so may VLANs that are not served any
  // more.
  for (auto const& [key, group] : writer_->groups()) {
    if (auto const* const vlan = vlanOf(key))
      groups.emplace_back(vlan->learnedIn, key.second);
    else if (key.first != 0)
      groups.emplace_back(VlanId(key.first), key.second);
  }
  pending_.sweepIs(std::move(groups));
}

/// Writes what somebody else has deleted again.
void Forwarding::followDeletions() {
  if (writer_->takeLoss()) {
    ++disturbances_;
    log(Severity::warning, "forwarding: somebody has deleted many entries of ", bridge_.name,
        "; streams go everywhere until all are written again");
    writer_->doubtAll();
    putRules();
  }
  for (auto const& [key, port] : writer_->takeDisturbed()) {
    ++disturbances_;
    if (!portName(port).empty()) complaints_.deleted(key.second, loop_.now());
    if (auto const* const vlan = vlanOf(key)) pending_.addChanged({vlan->learnedIn, key.second});
  }
}

void Forwarding::writePiece() {
  do writeSome();
  while (hasToWrite() && loop_.now() < pieceEnd_);
  if (auto const refusal = writer_->list()) {
    log(Severity::warning, "forwarding: nftables refuses to list groups: ", *refusal,
        "; the rules are put up anew");
    putRules();
  }
  followDeletions();
  if (hasToWrite()) return;
  if (auto routers = routersWanted(); routers != routers_) routersAre(std::move(routers), true);
  goByEntries();
}

bool Forwarding::hasToWrite() const {
  return active_ && (!pending_.empty() || !writer_->isWritten());
}

void Forwarding::writeSome() {
  if (writer_->isWritten()) compareSome();
  writer_->writeSome([this](EntryWriter::Refusal const& each) {
    std::string const name = portName(each.port);
    complaints_.refused(each, name.empty() ? "a port" : name, loop_.now());
  });
}

/// Finds something to write.
void Forwarding::compareSome() {
  makeRoom();
  do {
    auto const learned = pending_.takeNext();
    if (!learned) return;
    compare(*learned);
  } while (!writer_->isFull() && loop_.now() < pieceEnd_);
}

void Forwarding::compare(PendingGroups::Learned const& learned) {
  for (ForwardedVlan const& vlan : vlans_)
    if (vlan.learnedIn == learned.first)
      writer_->groupIs({vlan.entryVlan, learned.second}, wanted(vlan, learned.second));
  EntryWriter::Key const own{learned.first.value(), learned.second};
  if (writer_->group(own) && !vlanOf(own)) writer_->groupIs(own, {});
}

/// A bridge whose entries are more than it is to have gives up snooping: so it may have more first.
void Forwarding::makeRoom() {
  constexpr std::size_t inAPiece = 32768;  // with some sources each, and those of IPv6
  std::size_t const needed = 2 * writer_->kernelGroups() + inAPiece;
  if (needed <= mostGroups_) return;
  auto const bridge = control_->link(config_->bridge);
  if (!bridge) return;
  auto const present = bridge->settings.find(LinkSetting::mostGroups);
  if (present == bridge->settings.end()) return;
  mostGroups_ = present->second;
  if (needed <= mostGroups_) return;
  std::uint32_t room = std::max<std::uint32_t>(mostGroups_, 4096);
  while (room < 2 * needed && room < 1U << 30) room *= 2;
  if (auto const refusal = control_->settingIs(*bridge, LinkSetting::mostGroups, room))
    log(Severity::warning, "forwarding: ", *refusal, "; raise it yourself, or the bridge floods");
  mostGroups_ = room;
}

void Forwarding::retryFailed() {
  if (writer_->failedGroups() == 0 || loop_.now() < nextRetry_) return;
  nextRetry_ = loop_.now() + retryPause;
  for (EntryWriter::Key const& key : writer_->failed())
    if (auto const* const vlan = vlanOf(key)) pending_.addToSweep({vlan->learnedIn, key.second});
}

void Forwarding::goByEntries() {
  for (ForwardedVlan const& vlan : vlans_) {
    if (!progress_.isDue(vlan.vlanId, loop_.now())) continue;
    if (!runRules(routersTextOf(vlan) + byEntriesText(vlan.entryVlan, config_->unregistered),
                  vlan.vlanId))
      return;
    progress_.goesByEntriesIs(vlan.vlanId);
    log(Severity::info, "forwarding: streams of VLAN ", vlan.vlanId, " go where they are wanted");
  }
}

bool Forwarding::runRules(std::string const& text, VlanId vlan) {
  auto const refusal = control_->rules().run(text);
  if (refusal)
    log(Severity::warning, "forwarding: nftables refuses a rule of VLAN ", vlan, ": ", *refusal,
        "; it is tried again");
  return !refusal;
}

/// Empty if it is none of the ports.
std::string Forwarding::portName(std::uint32_t index) const {
  auto const port = std::find_if(ports_.begin(), ports_.end(),
                                 [&](auto const& each) { return each.second == index; });
  return port == ports_.end() ? "" : std::string(port->first.stringValue().view());
}

}  // namespace Agent
