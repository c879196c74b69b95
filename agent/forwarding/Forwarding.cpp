#include "agent/forwarding/Forwarding.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <linux/rtnetlink.h>
#include <stdexcept>
#include <utility>

#include "agent/Log.h"

namespace Agent {

using Bridging::VlanId;
using Wirex::IntfId;
using Wirex::IpAddr;

namespace {

constexpr auto examinationPause = std::chrono::seconds(1);
constexpr auto eventPause = std::chrono::milliseconds(10);  // for the events that come with one
constexpr auto retryPause = std::chrono::seconds(5);
constexpr auto pieceOfWork = std::chrono::milliseconds(2);
constexpr Horix::Time atOnce{1};

std::string textOf(IntfId const& intf) {
  return std::string(intf.stringValue().view());
}

/// As the kernel has it: always, or never.
constexpr std::uint32_t routerSetting(bool leadsToRouter) {
  return leadsToRouter ? 2 : 0;
}

}  // namespace

/// Has something done when a descriptor has input.
class Forwarding::Hearing final : public Horix::EventLoop::Watch {
 public:
  Hearing(Horix::EventLoop& loop, int descriptor, std::function<void()> heard)
      : Watch(loop, descriptor), heard_(std::move(heard)) {}

 private:
  void onReady() override { heard_(); }

  std::function<void()> heard_;
};

Forwarding::Forwarding(Horix::EventLoop& loop, Switch& snoopingSwitch, bool goesOn)
    : loop_(loop),
      switch_(snoopingSwitch),
      examination_(std::make_unique<Alarm>(loop.timerWheel(), [this] { examine(); })),
      continuation_(std::make_unique<Alarm>(loop.timerWheel(), [this] { advance(); })),
      routerPorts_(snoopingSwitch),
      progress_(snoopingSwitch, goesOn) {
  switch_.afterPublishIs(this, [this] { handlePublication(); });
  switch_.onGroupIs([this](VlanId vlan, IpAddr group) {
    if (active_) pending_.addChanged({vlan, group});
  });
}

Forwarding::~Forwarding() {
  end();
  while (isGivingBack()) giveBackMore();
  switch_.onGroupIs(nullptr);
  switch_.afterPublishIs(this, nullptr);
}

// ---- The bridge

void Forwarding::configure() {
  auto const& wanted = switch_.configuration().forwarding;
  bool const sameBridge = config_ && wanted && config_->bridge == wanted->bridge;
  if (active_ && !sameBridge) stop();
  config_ = wanted;
  obstacle_.clear();
  if (!std::exchange(lookedForLeftover_, true) && !config_) giveBackLeftover();
  if (!config_) {
    examination_->cancel();
    return;
  }
  routerPorts_.follow();
  if (active_) {
    vlans_ = forwardedVlans(switch_.configuration(), bridge_.tellsVlansApart);
    progress_.vlansAre(vlans_, loop_.now());
    sweepAll();
  }
  connect();  // while there is the privilege
  examination_->within(atOnce);
}

/// What an agent that was killed had taken over is not this one's to use. It goes at once, because
/// without [forwarding] the privilege for it goes next.
void Forwarding::giveBackLeftover() {
  try {
    if (RulesTable::isThere()) connect();
    while (isGivingBack()) giveBackMore();
  } catch (std::exception const& error) {
    log(Severity::warning, "forwarding: what an earlier agent left behind stays: ", error.what());
  }
}

void Forwarding::end() {
  if (active_) stop();
  examination_->cancel();
  config_.reset();
}

/// What it takes to speak to the kernel is opened when it is first needed.
bool Forwarding::connect() {
  if (control_) return true;
  try {
    links_ = std::make_unique<RequestSocket>(NETLINK_ROUTE, RTMGRP_LINK);
    control_ = std::make_unique<BridgeControl>();
    writer_ = std::make_unique<EntryWriter>(*control_);
    hearEvents();
    if (control_->recover()) {
      givenBack_ = "the bridge that an earlier agent had left behind";
      continuation_->within(atOnce);
    }
    return true;
  } catch (std::exception const& error) {
    hearings_.clear();
    control_.reset();
    isObstructed(message(error.what(), "; give the agent CAP_NET_ADMIN and the kernel nf_tables"));
    return false;
  }
}

void Forwarding::hearEvents() {
  auto const on = [this](int descriptor, std::function<void()> heard) {
    hearings_.push_back(std::make_unique<Hearing>(loop_, descriptor, std::move(heard)));
  };
  on(links_->descriptor(), [this] {
    links_->hear([](nlmsghdr const&) {});  // what changed is asked for: what is lost does no harm
    examination_->within(eventPause);
  });
  on(control_->events().descriptor(), [this] {
    if (writer_->isDisturbed()) examine();
  });
  on(control_->rules().descriptor(), [this] {
    if (control_->rules().isDisturbed()) examine();
  });
}

void Forwarding::examine() {
  if (!config_) return;
  try {
    if (connect() && !isGivingBack()) examine(control_->link(config_->bridge));
  } catch (std::exception const& error) {
    isObstructed(message(error.what(), "; it is tried again"));
  }
  examination_->within(examinationPause);
}

void Forwarding::examine(std::optional<LinkInfo> const& bridge) {
  std::string const obstacle = obstacleTo(switch_.configuration(), bridge);
  bool const another = active_ && (!bridge || bridge->index != bridge_.index ||
                                   bridge->tellsVlansApart != bridge_.tellsVlansApart);
  if (active_ && (another || !obstacle.empty())) stop();
  if (!obstacle.empty()) {
    isObstructed(obstacle);
    return;
  }
  if (isGivingBack()) return;
  if (active_)
    correct(*bridge);
  else
    begin(*bridge);
  if (!active_) return;
  progress_.noteQueries(vlans_, loop_.now());
  retryFailed();
  if (!continuation_->scheduled()) advance();
}

void Forwarding::isObstructed(std::string const& why) {
  if (std::exchange(obstacle_, why) == why) return;
  log(Severity::warning, "forwarding leaves ", config_->bridge,
      " alone, and streams go as they would without the agent: ", why);
}

void Forwarding::begin(LinkInfo const& bridge) {
  bridge_ = bridge;
  members_ = control_->portsOf(bridge.index);
  vlans_ = forwardedVlans(switch_.configuration(), bridge.tellsVlansApart);
  ports_ = servedPorts(switch_.configuration(), members_);
  rules_ = rulesFor(switch_.configuration(), members_, vlans_);
  if (auto const refusal = control_->take(bridge, rules_)) {
    isObstructed(message(*refusal,
                         "; see that the agent has CAP_NET_ADMIN and the kernel "
                         "CONFIG_NF_TABLES_BRIDGE"));
    return;
  }
  active_ = true;
  obstacle_.clear();
  mostGroups_ = 0;
  routersOf_.clear();
  progress_.clear();
  progress_.vlansAre(vlans_, loop_.now());
  writer_->begin(bridge.index);
  routers_.clear();
  routerPorts_.follow();
  routersAre(routersWanted(), true);
  sweepAll();
  continuation_->within(atOnce);
  log(Severity::info, "forwarding: took over ", bridge.name, " with ",
      counted(ports_.size(), "port"), "; streams go everywhere until listeners are known");
}

void Forwarding::stop() {
  active_ = false;
  pending_.clear();
  control_->beginToGiveBack(groupsWithoutMark());
  givenBack_ = bridge_.name;
  writer_->begin(0);
  freeing_ = true;
  ports_.clear();
  routers_.clear();
  progress_.clear();
  continuation_->within(atOnce);
}

/// The groups of entries that do not tell whose they are.
std::set<IpAddr> Forwarding::groupsWithoutMark() const {
  std::set<IpAddr> groups;
  if (control_->entryKind() == EntryKind::singleSources)
    for (auto const& [key, group] : writer_->groups()) groups.insert(key.second);
  return groups;
}

void Forwarding::giveBackMore() {
  try {
    if (control_->giveSomeBack()) return;
    log(Severity::info, "forwarding: gave ", givenBack_, " back");
  } catch (std::exception const& error) {
    log(Severity::error, "forwarding: could not give ", givenBack_, " back: ", error.what(),
        "; the next start of the agent does");
  }
  if (config_) examination_->within(atOnce);
}

/// Sets again what somebody has changed, and follows ports that came and went.
void Forwarding::correct(LinkInfo const& bridge) {
  correctSettings(bridge);
  bool const disturbed = control_->rules().takeDisturbance();
  bool const rulesGone = disturbed || !control_->rules().exists();
  if (rulesGone) {
    ++disturbances_;
    log(Severity::warning,
        "forwarding: somebody has deleted the agent's nftables rules, which are put up again; have "
        "a firewall that is loaded anew leave the table bridge ",
        rulesTable, " alone");
  }
  members_ = control_->portsOf(bridge.index);
  if (followPorts(bridge) || !routersAreAsSet()) {
    routers_.clear();
    routersAre(routersWanted(), true);
  }
  if (rulesGone || rulesFor(switch_.configuration(), members_, vlans_) != rules_) putRules();
}

void Forwarding::correctSettings(LinkInfo const& bridge) {
  char const* const setting = BridgeControl::disturbedIn(bridge);
  if (!setting) return;
  ++disturbances_;
  log(Severity::warning, "forwarding: somebody has changed ", setting, " of ", bridge.name,
      ", which is set again; take [forwarding] out of the configuration to keep the bridge to "
      "yourself");
  if (auto const refusal = control_->restoreNeeded(bridge)) isObstructed(*refusal);
}

/// Returns whether there are others now.
bool Forwarding::followPorts(LinkInfo const& bridge) {
  BridgePorts const ports = servedPorts(switch_.configuration(), members_);
  if (ports == ports_) return false;
  for (auto const& [intf, index] : ports_)
    if (!ports.contains(intf))
      log(Severity::warning, "forwarding: ", intf, " is no port of ", bridge.name,
          " any more and gets no streams from it; put it back with: ip link set ", intf, " master ",
          bridge.name);
  writer_->portsAre(ports);
  ports_ = ports;
  sweepAll();
  return true;
}

/// Everything is flooded until the sets are full again.
void Forwarding::putRules() {
  rules_ = rulesFor(switch_.configuration(), members_, vlans_);
  if (auto const refusal = control_->rulesAre(rules_)) {
    log(Severity::error, "forwarding: nftables refuses the agent's rules: ", *refusal,
        "; they are put up again in a second");
    rules_ = {};
    return;
  }
  writer_->setsAreEmpty();
  progress_.allAreFlooded();
  sweepAll();
}

// ---- Router ports

std::set<IntfId> Forwarding::routersWanted() const {
  std::set<IntfId> routers;
  for (auto const& [intf, index] : ports_)
    if (routerPorts_.leadsToRouterInAll(vlans_, intf)) routers.insert(intf);
  return routers;
}

/// Whether the kernel has them as they were set.
bool Forwarding::routersAreAsSet() const {
  return std::all_of(members_.begin(), members_.end(), [this](LinkInfo const& link) {
    auto const setting = link.settings.find(LinkSetting::portRouter);
    auto const port = std::find_if(ports_.begin(), ports_.end(),
                                   [&](auto const& each) { return each.second == link.index; });
    return port == ports_.end() || setting == link.settings.end() ||
           setting->second == routerSetting(routers_.contains(port->first));
  });
}

/// A port that becomes a router port gets everything at once. One that no longer is one keeps
/// getting it until its entries are written.
void Forwarding::routersAre(std::set<IntfId> routers, bool demote) {
  members_ = control_->portsOf(bridge_.index);
  std::vector<BridgeControl::Setting> settings;
  for (auto const& [intf, index] : ports_) {
    bool const becomes = routers.contains(intf);
    bool const was = routers_.contains(intf);
    if (!becomes && was && !demote) {
      routers.insert(intf);
      continue;
    }
    auto const link =
        std::find_if(members_.begin(), members_.end(),
                     [wanted = index](auto const& each) { return each.index == wanted; });
    if (link == members_.end()) continue;
    auto const present = link->settings.find(LinkSetting::portRouter);
    std::uint32_t const value = routerSetting(becomes);
    if (present != link->settings.end() && present->second != value)
      settings.push_back({*link, LinkSetting::portRouter, value});
  }
  for (std::string const& refusal : control_->settingsAre(settings))
    log(Severity::warning, "forwarding: ", refusal);
  routers_ = std::move(routers);
}

// ---- Entries

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

bool Forwarding::goesByEntries(VlanId vlan) const {
  return active_ && progress_.goesByEntries(vlan);
}

void Forwarding::handlePublication() {
  if (!active_) return;
  // Where more waits than a piece, it goes on in its own time.
  if ((hasToWrite() || routerPorts_.hasNews()) && !continuation_->scheduled()) advance();
}

void Forwarding::sweepAll() {
  std::vector<PendingGroups::Learned> groups;
  for (auto const& [vlan, status] : switch_.entities().snoopingStatus->contextStatus())
    for (IpAddr const group : status->group().keys()) groups.emplace_back(vlan, group);
  // What is no longer learned may still have entries.
  std::map<std::uint16_t, VlanId> learnedIn;
  for (ForwardedVlan const& vlan : vlans_) learnedIn[vlan.entryVlan] = vlan.learnedIn;
  for (auto const& [key, group] : writer_->groups()) {
    auto const vlan = learnedIn.find(key.first);
    if (vlan != learnedIn.end()) groups.emplace_back(vlan->second, key.second);
  }
  pending_.sweepIs(std::move(groups));
}

/// A piece of what there is to do; the rest follows in the next turn.
void Forwarding::advance() {
  pieceEnd_ = loop_.now() + pieceOfWork;
  while (isGivingBack() && loop_.now() < pieceEnd_) giveBackMore();
  try {
    constexpr std::size_t groupsAtOnce = 64;
    while (freeing_ && loop_.now() < pieceEnd_) freeing_ = writer_->freeSome(groupsAtOnce);
    if (active_) {
      followRouters();
      followDeletions();
      writePiece();
    }
  } catch (std::exception const& error) {
    log(Severity::error, "forwarding: ", error.what(), "; it is tried again");
    examination_->within(examinationPause);
    return;
  }
  if (freeing_ || isGivingBack() || hasToWrite()) continuation_->within(atOnce);
}

/// A router that was heard again changes nothing here.
void Forwarding::followRouters() {
  if (!routerPorts_.takeNews()) return;
  auto routersOf = routerPorts_.ports(vlans_);
  if (routersOf == routersOf_) return;
  routersOf_ = std::move(routersOf);
  routersAre(routersWanted(), false);
  for (ForwardedVlan const& vlan : vlans_)
    if (progress_.goesByEntries(vlan.vlanId) && !runRules(routersTextOf(vlan), vlan.vlanId)) {
      putRules();
      return;
    }
  sweepAll();
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
    for (ForwardedVlan const& vlan : vlans_)
      if (vlan.entryVlan == key.first) pending_.addChanged({vlan.learnedIn, key.second});
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
    for (ForwardedVlan const& vlan : vlans_)
      if (vlan.entryVlan == key.first) pending_.addToSweep({vlan.learnedIn, key.second});
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

std::string Forwarding::routersTextOf(ForwardedVlan const& vlan) const {
  std::vector<std::uint32_t> routers;
  for (auto const& [intf, port] : ports_)
    if (isRouterPort(vlan, intf)) routers.push_back(port);
  return routersText(vlan.entryVlan, routers);
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
  return port == ports_.end() ? "" : textOf(port->first);
}

}  // namespace Agent
