#include "agent/forwarding/Forwarding.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <linux/rtnetlink.h>
#include <stdexcept>
#include <utility>

#include "agent/Log.h"

namespace Agent {

using Bridging::VlanId;
using Bridging::IgmpSnooping::RouterPorts;
using Wirex::IntfId;
using Wirex::IpAddr;

namespace {

constexpr auto examinationPause = std::chrono::seconds(1);
constexpr auto eventPause = std::chrono::milliseconds(10);  // for the events that come with one
constexpr auto retryPause = std::chrono::seconds(5);
constexpr auto complaintPause = std::chrono::seconds(60);
constexpr std::size_t watchedAtOnce = 500;

std::string textOf(IntfId const& intf) {
  return std::string(intf.stringValue().view());
}

std::uint64_t hashKey(VlanId vlan, IpAddr group) {
  return std::uint64_t{vlan.value()} << 32 | group.value();
}

std::string remedyFor(int error) {
  switch (error) {
    case EPERM:
    case EACCES:
      return "give the agent CAP_NET_ADMIN and start it again";
    case E2BIG:
    case ENOSPC:
      return "raise the bridge's mcast_hash_max and the port's mcast_max_groups";
    case ENOMEM:
    case ENOBUFS:
      return "give the machine more memory";
    default:
      return "see that the bridge is up and that the interface is its port";
  }
}

}  // namespace

class Forwarding::Alarm final : public Horix::Timer {
 public:
  Alarm(Horix::EventLoop& loop, std::function<void()> action)
      : timerWheel_(loop.timerWheel()), action_(std::move(action)) {}

  void in(Horix::Time delay) { timerWheel_->schedule(*this, delay); }
  /// At once, or as soon as it would anyway.
  void within(Horix::Time delay) {
    if (!scheduled() || deadline() > timerWheel_->now() + delay) in(delay);
  }

 private:
  void onExpiry() override { action_(); }

  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  std::function<void()> action_;
};

class Forwarding::LinkEvents final : private RequestSocket, public Horix::EventLoop::Watch {
 public:
  LinkEvents(Horix::EventLoop& loop, std::function<void()> heard)
      : RequestSocket(NETLINK_ROUTE, RTMGRP_LINK),
        Watch(loop, descriptor()),
        heard_(std::move(heard)) {}

 private:
  void onReady() override {
    hear([](nlmsghdr const&) {});  // what changed is asked for, so that what is lost does no harm
    heard_();
  }

  std::function<void()> heard_;
};

class Forwarding::KelRouterPorts final
    : public Kel::ReactorFor<Forwarding, RouterPorts::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onRouterPort(IntfId /*intf*/) override {
    if (notificationActive()) owner().routersChanged_ = true;
  }
};

Forwarding::Forwarding(Horix::EventLoop& loop, Switch& snoopingSwitch)
    : loop_(loop),
      switch_(snoopingSwitch),
      examination_(std::make_unique<Alarm>(loop, [this] { examine(); })),
      continuation_(std::make_unique<Alarm>(loop, [this] { advance(); })) {
  switch_.afterPublishIs(this, [this] { handlePublication(); });
}

Forwarding::~Forwarding() {
  end();
  routerPorts_.kelDoZombieReactors(true);
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
  followRouters();
  if (active_) {
    vlans_ = forwardedVlans(switch_.configuration(), bridge_.tellsVlansApart);
    forgetStates();
  }
  examine();
}

/// What an agent that was killed had taken over is not this one's to use.
void Forwarding::giveBackLeftover() {
  try {
    if (RulesTable::isThere()) connect();
  } catch (std::exception const& error) {
    log(Severity::warning, "forwarding: what an earlier agent left behind stays: ", error.what());
  }
}

void Forwarding::end() {
  if (active_) stop();
  ending_.reset();
  examination_->cancel();
  continuation_->cancel();
  config_.reset();
}

/// What it takes to speak to the kernel is opened when it is first needed.
bool Forwarding::connect() {
  if (control_) return true;
  try {
    linkEvents_ = std::make_unique<LinkEvents>(loop_, [this] { examination_->within(eventPause); });
    control_ = std::make_unique<BridgeControl>();
    writer_ = std::make_unique<EntryWriter>(*control_);
    if (control_->recover())
      log(Severity::notice, "gave back the bridge that an earlier agent had left behind");
    return true;
  } catch (std::exception const& error) {
    control_.reset();
    isObstructed(message(error.what(), "; give the agent CAP_NET_ADMIN and the kernel nf_tables"));
    return false;
  }
}

void Forwarding::examine() {
  if (!config_) return;
  try {
    if (connect()) examine(control_->link(config_->bridge));
  } catch (std::exception const& error) {
    isObstructed(message(error.what(), "; it is tried again"));
  }
  examination_->within(examinationPause);
}

void Forwarding::examine(std::optional<LinkInfo> const& bridge) {
  std::string const obstacle = obstacleTo(bridge);
  bool const another = active_ && (!bridge || bridge->index != bridge_.index ||
                                   bridge->tellsVlansApart != bridge_.tellsVlansApart);
  if (active_ && (another || !obstacle.empty())) stop();
  if (!obstacle.empty()) {
    isObstructed(obstacle);
    return;
  }
  if (active_)
    correct(*bridge);
  else
    begin(*bridge);
  if (!active_) return;
  noteQueries();
  retryFailed();
  advance();
}

std::string Forwarding::obstacleTo(std::optional<LinkInfo> const& bridge) const {
  std::string const& name = config_->bridge;
  if (!bridge)
    return message("there is no interface ", name, "; make it with: ip link add ", name,
                   " type bridge");
  if (!bridge->isBridge)
    return message(name, " is no bridge; name one in [forwarding] of the configuration");
  if (!bridge->up) return message(name, " is down; take it up with: ip link set ", name, " up");
  std::size_t const vlans = switch_.configuration().vlans.size();
  if (!bridge->tellsVlansApart && vlans > 1)
    return message(name, " does not tell ", vlans, " VLANs apart; have it do so with: ip link set ",
                   name, " type bridge vlan_filtering 1, or configure one VLAN");
  auto const& vlanConfigs = switch_.configuration().vlans;
  bool const tagged =
      std::any_of(vlanConfigs.begin(), vlanConfigs.end(), [](VlanConfig const& vlan) {
        return std::any_of(vlan.members.begin(), vlan.members.end(),
                           [](VlanMember const& member) { return member.tagged; });
      });
  if (tagged && !BridgeControl::floodsTagged())
    return "to flood frames with a VLAN tag takes Linux 6.8 or later; configure untagged members "
           "alone, or a newer kernel";
  return {};
}

void Forwarding::isObstructed(std::string const& why) {
  if (std::exchange(obstacle_, why) == why) return;
  log(Severity::warning, "forwarding leaves ", config_->bridge,
      " alone, and streams go as they would without the agent: ", why);
}

void Forwarding::begin(LinkInfo const& bridge) {
  bridge_ = bridge;
  links_ = control_->portsOf(bridge.index);
  vlans_ = forwardedVlans(switch_.configuration(), bridge.tellsVlansApart);
  ports_ = servedPorts();
  rules_ = rulesWanted();
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
  states_.clear();
  forgetStates();
  writer_->begin(bridge.index);
  routers_.clear();
  followRouters();
  routersAre(routersWanted(), true);
  watch_ = std::make_unique<MembershipWatch>(switch_.entities().snoopingStatus);
  watching_ = true;
  log(Severity::info, "forwarding: took over ", bridge.name, " with ",
      counted(ports_.size(), "port"), "; streams go everywhere until listeners are known");
}

void Forwarding::stop() {
  active_ = false;
  ending_ = std::move(watch_);
  continuation_->within(Horix::Time(1));
  watching_ = false;
  dirty_.clear();
  sweep_.clear();
  try {
    control_->giveBack();
    log(Severity::info, "forwarding: gave ", bridge_.name, " back");
  } catch (std::exception const& error) {
    log(Severity::error, "forwarding: could not give ", bridge_.name, " back: ", error.what(),
        "; the next start of the agent does");
  }
  writer_->begin(0);
  ports_.clear();
  routers_.clear();
  states_.clear();
}

/// Sets again what somebody has changed, and follows ports that came and went.
void Forwarding::correct(LinkInfo const& bridge) {
  if (char const* const setting = BridgeControl::disturbedIn(bridge)) {
    ++disturbances_;
    log(Severity::warning, "forwarding: somebody has changed ", setting, " of ", bridge.name,
        ", which is set again; take [forwarding] out of the configuration to keep the bridge to "
        "yourself");
    if (auto const refusal = control_->restoreNeeded(bridge)) isObstructed(*refusal);
  }
  bool const rulesGone = !control_->rules().exists();
  if (rulesGone) {
    ++disturbances_;
    log(Severity::warning,
        "forwarding: somebody has deleted the agent's nftables rules, which are put up again; have "
        "a firewall that is loaded anew leave the table bridge ",
        rulesTable, " alone");
  }
  links_ = control_->portsOf(bridge.index);
  Ports const ports = servedPorts();
  bool const portsChanged = ports != ports_;
  if (portsChanged) {
    for (auto const& [intf, index] : ports_)
      if (!ports.contains(intf))
        log(Severity::warning, "forwarding: ", intf, " is no port of ", bridge.name,
            " any more and gets no streams from it; put it back with: ip link set ", intf,
            " master ", bridge.name);
    writer_->portsAre(ports);
    ports_ = ports;
    sweepAll();
    routers_.clear();
    routersAre(routersWanted(), true);
  }
  if (rulesGone || rulesWanted() != rules_) putRules();
}

Forwarding::Ports Forwarding::servedPorts() const {
  Ports ports;
  for (InterfaceConfig const& interface : switch_.configuration().interfaces)
    for (LinkInfo const& link : links_)
      if (link.name == interface.intfId.stringValue().view())
        ports.emplace(interface.intfId, link.index);
  return ports;
}

StreamRules Forwarding::rulesWanted() const {
  StreamRules rules;
  rules.unregistered = config_->unregistered;
  Configuration const& configuration = switch_.configuration();
  for (LinkInfo const& link : links_) rules.members.push_back(link.index);
  std::sort(rules.members.begin(), rules.members.end());
  for (InterfaceConfig const& interface : configuration.interfaces) {
    auto const port = ports_.find(interface.intfId);
    if (port == ports_.end()) continue;
    PortRule rule{port->second, interface.letsStreamsIn(), interface.letsStreamsOut(), {}};
    for (VlanConfig const& vlan : configuration.vlans)
      for (VlanMember const& member : vlan.members)
        if (member.intfId == interface.intfId && !member.tagged)
          rule.untaggedVlan = vlan.vlanId.value();
    rules.ports.push_back(rule);
  }
  for (ForwardedVlan const& vlan : vlans_) rules.vlans.push_back(vlan.entryVlan);
  return rules;
}

/// Everything is flooded until the sets are full again.
void Forwarding::putRules() {
  rules_ = rulesWanted();
  if (auto const refusal = control_->rulesAre(rules_)) {
    log(Severity::error, "forwarding: nftables refuses the agent's rules: ", *refusal,
        "; they are put up again in a second");
    rules_ = {};
    return;
  }
  writer_->setsAreEmpty();
  for (auto& [vlan, state] : states_) state.byEntries = false;
  sweepAll();
}

// ---- Router ports

void Forwarding::followRouters() {
  std::set<VlanId> followed;
  for (VlanConfig const& vlan : switch_.configuration().vlans) {
    Kel::Ptr<RouterPorts const> const ports(switch_.routerPorts(vlan.vlanId));
    if (!ports) continue;
    followed.insert(vlan.vlanId);
    routerPorts_.watch(vlan.vlanId, ports, [&] { return Kel::make<KelRouterPorts>(ports, this); });
  }
  for (VlanId const vlan : routerPorts_.keys())
    if (!followed.contains(vlan)) routerPorts_.del(vlan);
  routersChanged_ = true;
}

bool Forwarding::isRouterPort(ForwardedVlan const& vlan, IntfId const& intf) const {
  return std::any_of(vlan.routersOf.begin(), vlan.routersOf.end(), [&](VlanId of) {
    RouterPorts const* const ports = switch_.routerPorts(of);
    return ports && ports->routerPort().contains(intf);
  });
}

Forwarding::RoutersOf Forwarding::routersNow() const {
  RoutersOf routers;
  for (ForwardedVlan const& vlan : vlans_)
    if (RouterPorts const* const ports = switch_.routerPorts(vlan.vlanId))
      for (auto const& [intf, port] : ports->routerPort()) routers[vlan.vlanId].insert(intf);
  return routers;
}

std::set<IntfId> Forwarding::routersWanted() const {
  std::set<IntfId> routers;
  for (auto const& [intf, index] : ports_) {
    bool receives = false;
    bool everywhere = true;
    for (ForwardedVlan const& vlan : vlans_) {
      if (!vlan.receivers.contains(intf)) continue;
      receives = true;
      everywhere = everywhere && isRouterPort(vlan, intf);
    }
    if (receives && everywhere) routers.insert(intf);
  }
  return routers;
}

/// A port that becomes a router port gets everything at once. One that no longer is one keeps
/// getting it until its entries are written.
void Forwarding::routersAre(std::set<IntfId> routers, bool demote) {
  for (auto const& [intf, index] : ports_) {
    bool const becomes = routers.contains(intf);
    bool const was = routers_.contains(intf);
    if (!becomes && was && !demote) {
      routers.insert(intf);
      continue;
    }
    auto const link = control_->link(textOf(intf));
    if (!link || link->index != index) continue;
    auto const present = link->settings.find(LinkSetting::portRouter);
    std::uint32_t const value = becomes ? 2 : 0;
    if (present == link->settings.end() || present->second == value) continue;
    if (auto const refusal = control_->settingIs(*link, LinkSetting::portRouter, value))
      log(Severity::warning, "forwarding: ", *refusal);
  }
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
  auto const state = states_.find(vlan);
  return active_ && state != states_.end() && state->second.byEntries;
}

void Forwarding::handlePublication() {
  if (!active_ || !watch_) return;
  for (MembershipChange const& change : watch_->takeChanges())
    dirty_.try_emplace(hashKey(change.vlan, change.group), change.vlan, change.group);
  if (!dirty_.empty() || routersChanged_) advance();
}

void Forwarding::sweepAll() {
  sweep_.clear();
  for (auto const& [vlan, status] : switch_.entities().snoopingStatus->contextStatus())
    for (IpAddr const group : status->group().keys()) sweep_.emplace_back(vlan, group);
  // What is no longer learned may still have entries.
  std::map<std::uint16_t, VlanId> learnedIn;
  for (ForwardedVlan const& vlan : vlans_) learnedIn[vlan.entryVlan] = vlan.learnedIn;
  for (auto const& [key, group] : writer_->groups()) {
    auto const vlan = learnedIn.find(key.first);
    if (vlan != learnedIn.end()) sweep_.emplace_back(vlan->second, key.second);
  }
}

void Forwarding::advance() {
  if (ending_) {
    std::size_t const pieces = watchedAtOnce;
    if (!ending_->unwatchSome(pieces)) ending_.reset();
    if (!active_ && ending_) continuation_->within(Horix::Time(1));
  }
  if (!active_) return;
  try {
    // A router that was heard again changes nothing here.
    if (std::exchange(routersChanged_, false))
      if (auto routersOf = routersNow(); routersOf != routersOf_) {
        routersOf_ = std::move(routersOf);
        routersAre(routersWanted(), false);
        sweepAll();
      }
    if (watching_) {
      watching_ = watch_->watchSome(watchedAtOnce);
      if (!watching_) sweepAll();
    } else {
      writeSome();
      if (dirty_.empty() && sweep_.empty()) {
        if (auto routers = routersWanted(); routers != routers_)
          routersAre(std::move(routers), true);
        goByEntries();
      }
    }
  } catch (std::exception const& error) {
    log(Severity::error, "forwarding: ", error.what(), "; it is tried again");
    examination_->within(examinationPause);
    return;
  }
  if (ending_ || watching_ || !dirty_.empty() || !sweep_.empty())
    continuation_->within(Horix::Time(1));
}

/// A piece: as many groups as one system call takes with ease.
void Forwarding::writeSome() {
  constexpr std::size_t mostGroups = 500;
  makeRoom();
  std::vector<Learned> groups;
  for (std::size_t i = 0; i < mostGroups && !writer_->isFull(); ++i) {
    if (!dirty_.empty()) {
      Learned const learned = dirty_.begin()->second;
      dirty_.erase(dirty_.begin());
      compare(learned);
    } else if (!sweep_.empty()) {
      Learned const learned = sweep_.back();
      sweep_.pop_back();
      compare(learned);
    } else {
      break;
    }
  }
  auto const refusal = writer_->flush([this](auto const& each) { complain(each); });
  if (!refusal) return;
  log(Severity::warning, "forwarding: nftables refuses to list groups: ", *refusal,
      "; the rules are put up anew");
  putRules();
}

void Forwarding::compare(Learned const& learned) {
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

void Forwarding::complain(EntryWriter::Refusal const& refusal) {
  if (loop_.now() < nextComplaint_) {
    ++unsaid_;
    return;
  }
  nextComplaint_ = loop_.now() + complaintPause;
  auto const port = std::find_if(ports_.begin(), ports_.end(),
                                 [&](auto const& each) { return each.second == refusal.port; });
  log(Severity::warning, "forwarding: the kernel refuses the entry of ", refusal.key.second,
      " for ", port == ports_.end() ? "a port" : textOf(port->first), ": ", refusal.text,
      "; the group is flooded and the entry tried again every ", retryPause.count(), " s; ",
      remedyFor(refusal.error),
      unsaid_ > 0 ? message(" (", std::exchange(unsaid_, 0), " more were refused)") : "");
}

void Forwarding::retryFailed() {
  if (writer_->failedGroups() == 0 || loop_.now() < nextRetry_) return;
  nextRetry_ = loop_.now() + retryPause;
  for (EntryWriter::Key const& key : writer_->failed())
    for (ForwardedVlan const& vlan : vlans_)
      if (vlan.entryVlan == key.first) sweep_.emplace_back(vlan.learnedIn, key.second);
}

// ---- From flooding to entries

void Forwarding::forgetStates() {
  std::map<VlanId, VlanState> states;
  for (ForwardedVlan const& vlan : vlans_) {
    auto const known = states_.find(vlan.vlanId);
    VlanState state;
    if (known != states_.end()) {
      state = known->second;
    } else {
      auto const& settings = switch_.learning(vlan.learnedIn)->policy();
      state.known = loop_.now() + settings.queryInterval + settings.queryMaxResponseTime;
    }
    states.emplace(vlan.vlanId, state);
  }
  states_ = std::move(states);
}

/// Once there was a query, all listeners have spoken up when its response time has passed.
void Forwarding::noteQueries() {
  constexpr auto slack = std::chrono::seconds(1);
  for (ForwardedVlan const& vlan : vlans_) {
    VlanState& state = states_[vlan.vlanId];
    if (state.queried || state.byEntries) continue;
    auto const* const routers = switch_.routerPorts(vlan.learnedIn);
    bool heard = false;
    if (routers)
      for (auto const& [intf, port] : routers->routerPort()) heard |= port.querier != IpAddr();
    auto const* const querier = switch_.querier(vlan.learnedIn);
    if (!heard && !(querier && querier->sent().general > 0)) continue;
    state.queried = true;
    state.known =
        std::min(state.known, loop_.now() + slack +
                                  switch_.learning(vlan.learnedIn)->policy().queryMaxResponseTime);
  }
}

void Forwarding::goByEntries() {
  for (ForwardedVlan const& vlan : vlans_) {
    VlanState& state = states_[vlan.vlanId];
    if (state.byEntries || state.known > loop_.now()) continue;
    if (auto const refusal =
            control_->rules().run(byEntriesText(vlan.entryVlan, config_->unregistered))) {
      log(Severity::warning, "forwarding: nftables refuses a rule: ", *refusal, "; VLAN ",
          vlan.vlanId, " is flooded, and it is tried again");
      return;
    }
    state.byEntries = true;
    log(Severity::info, "forwarding: streams of VLAN ", vlan.vlanId, " go where they are wanted");
  }
}

}  // namespace Agent
