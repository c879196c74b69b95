#include "agent/forwarding/Forwarding.h"

#include <chrono>
#include <functional>
#include <linux/rtnetlink.h>
#include <stdexcept>
#include <utility>

#include "agent/Log.h"

namespace Agent {

using Bridging::VlanId;
using Wirex::IpAddr;

namespace {

constexpr auto examinationPause = std::chrono::seconds(1);
constexpr auto eventPause = std::chrono::milliseconds(10);  // for the events that come with one
constexpr auto pieceOfWork = std::chrono::milliseconds(2);
constexpr Horix::Time atOnce{1};

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

// ---- Pieces of work

bool Forwarding::goesByEntries(VlanId vlan) const {
  return active_ && progress_.goesByEntries(vlan);
}

void Forwarding::handlePublication() {
  if (!active_) return;
  // Where more waits than a piece, it goes on in its own time.
  if ((hasToWrite() || routerPorts_.hasNews()) && !continuation_->scheduled()) advance();
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

}  // namespace Agent
