#include "platform/igmp/host/HostSm.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>
#include <variant>

#include "framework/kel/Trace.h"
#include "platform/igmp/wire/PacketReader.h"

KEL_TRACE_MODULE("Igmp::HostSm", "HostSm")

namespace Igmp {

using Direction = IgmpHost::Direction;
using Wirex::Bytes;

namespace {

/// Why a host reports unasked or does not, in traces.
char const* whyOrWhyNot(IgmpHost const& host) {
  if (!host.enabled()) return "it is disabled";
  if (host.blocked()) return "its port is blocked";
  if (host.direction() != Direction::both && host.direction() != Direction::egress)
    return "nothing may leave through its port";
  if (!host.pam()) return "it has no packet access";
  if (host.vlanId() == 0) return "it has no VLAN";
  if (host.settings().macAddress == Wirex::MacAddress{}) return "it has no MAC address";
  return host.settings().reportsUnasked ? "it can, and is set to" : "it is set not to";
}

/// The type of the IGMP message in a frame, without a check of anything that is not on the way to
/// it: most frames that a port hears are not for its host.
std::optional<MessageType> messageType(Bytes frame) {
  constexpr std::size_t protocolOffset = 9;
  std::size_t ip = Wirex::ethernetHeaderSize;
  if (frame.size() < ip + Wirex::vlanTagSize + ipv4HeaderSize) return std::nullopt;
  if (Wirex::bigEndian16(&frame[Wirex::etherTypeOffset]) == Wirex::etherTypeVlan)
    ip += Wirex::vlanTagSize;
  std::size_t const message = ip + (frame[ip] & 0x0fu) * std::size_t{4};
  if (frame[ip + protocolOffset] != ipProtocolIgmp || message >= frame.size()) return std::nullopt;
  return static_cast<MessageType>(frame[message]);
}

Parsed<Packet> parse(Bytes frame) {
  auto const ethernet = parseEthernet(frame);
  if (!ethernet) return ethernet.reason();
  return parsePacket(*ethernet, {});
}

}  // namespace

// What it calls may have its owner removed from the directory: each handler holds the owner.
class HostSm::KelHost final : public Kel::ReactorFor<HostSm, IgmpHost::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onVlanId() override { handle<&HostSm::updateAccess>(); }
  void onPam() override { handle<&HostSm::handlePam>(); }
  void onIgmpVersion() override { handle<&HostSm::handleIgmpVersion>(); }
  void onEnabled() override { handle<&HostSm::handleEnabled>(); }
  void onConfigVersion() override { handle<&HostSm::handleConfigured>(); }
  void onIntfConfigVersion() override { handle<&HostSm::handleConfigured>(); }
  void onBlocked() override { handle<&HostSm::updateAccess>(); }
  void onDirection() override { handle<&HostSm::updateAccess>(); }
  void onSettings() override { handle<&HostSm::handleSettings>(); }
  void onVlanQueries() override { handle<&HostSm::handleVlanQueries>(); }
  void onV3groupHeard(bool* /*heard*/) override {}

 private:
  template <void (HostSm::*handler)()>
  void handle() {
    if (!notificationActive()) return;
    Kel::Ptr<HostSm> const hostSm(&owner());
    ((*hostSm).*handler)();
  }
};

class HostSm::KelPam final : public Kel::ReactorFor<HostSm, Wirex::Pam::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onInputPkt() override {
    if (notificationActive()) owner().handlePacket();
  }
};

class HostSm::KelVlanQueries final : public Kel::ReactorFor<HostSm, VlanQueries::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onQuery() override {
    if (notificationActive()) owner().handleVlanQuery();
  }
  void onOldestVersion() override {
    if (notificationActive()) owner().handleCompatibilityMode();
  }
};

class HostSm::KelWakeup final : public Kel::ActivityReactor<HostWakeup::NotifieeConst> {
 public:
  KelWakeup(Kel::Ptr<HostWakeup const> wakeup, HostSm* owner)
      : ActivityReactor(owner->activity_), owner_(owner) {
    watch(std::move(wakeup));
  }

  void onDue() override {
    if (!notificationActive()) return;
    Kel::Ptr<HostSm> const hostSm(owner_);
    hostSm->handleWakeup();
  }

 private:
  HostSm* owner_;
};

class HostSm::PauseTimer final : public Horix::Timer {
 public:
  explicit PauseTimer(HostWakeup const& wakeup) : wakeup_(wakeup) {}

 private:
  void onExpiry() override { wakeup_.dueNotify(); }

  HostWakeup const& wakeup_;
};

HostSm::HostSm(Kel::Ptr<Kel::ActivityConfig> activity, Kel::Ptr<IgmpHost const> host,
               Kel::Ptr<IgmpHostStatus> status, Kel::Ptr<SentRecords> sent,
               Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : activity_(std::move(activity)),
      status_(std::move(status)),
      sent_(std::move(sent)),
      number_(sent_->newHost()),
      mode_(host->igmpVersion()),
      querierVersions_(timerWheel, [this] { handleCompatibilityMode(); }),
      answers_(*host, timerWheel, delays_, wakeup_),
      unaskedReports_(host, timerWheel, delays_, wakeup_),
      timerWheel_(std::move(timerWheel)),
      pause_(std::make_unique<PauseTimer>(*wakeup_)),
      kelHost_(Kel::make<KelHost>(host, this)),
      kelPam_(Kel::make<KelPam>(Kel::Ptr<Wirex::Pam const>(), this)),
      kelVlanQueries_(Kel::make<KelVlanQueries>(host->vlanQueries(), this)),
      kelWakeup_(Kel::make<KelWakeup>(wakeup_, this)) {
  status_->compatibilityModeIs(mode_);
  handleCompatibilityMode();
  seedDelays();
  updateAccess();
}

HostSm::~HostSm() {
  HostSm::kelDoZombieReactors(true);
}

Kel::Ptr<IgmpHost const> const& HostSm::host() const {
  return kelHost_->notifier();
}

void HostSm::hasNotificationActiveIs(bool active) {
  kelHost_->hasNotificationActiveIs(active);
  kelPam_->hasNotificationActiveIs(active);
  kelVlanQueries_->hasNotificationActiveIs(active);
  kelWakeup_->hasNotificationActiveIs(active);
  if (!active) return;
  // Catches up on what has changed meanwhile.
  handleVlanQueries();
  updateAccess();
  wakeup_->dueNotify();
}

void HostSm::kelDoZombieReactors(bool zombie) {
  kelHost_->kelDoZombieReactors(zombie);
  kelPam_->kelDoZombieReactors(zombie);
  kelVlanQueries_->kelDoZombieReactors(zombie);
  kelWakeup_->kelDoZombieReactors(zombie);
}

// ---- What the host may do

bool HostSm::canSend() const {
  bool const egress =
      host()->direction() == Direction::both || host()->direction() == Direction::egress;
  return host()->enabled() && !host()->blocked() && egress && host()->pam() &&
         host()->vlanId() != 0 && host()->settings().macAddress != Wirex::MacAddress{};
}

bool HostSm::canHear() const {
  bool const ingress =
      host()->direction() == Direction::both || host()->direction() == Direction::ingress;
  return host()->enabled() && !host()->blocked() && ingress;
}

void HostSm::updateAccess() {
  Kel::Ptr<Wirex::Pam const> const heard = canHear() ? host()->pam() : nullptr;
  if (kelPam_->notifier() != heard) kelPam_->notifierIs(heard);
  bool const couldSend = std::exchange(couldSend_, canSend());
  bool const reports = canSend() && host()->settings().reportsUnasked;
  bool const begins = reports && !unaskedReports_.active();
  if (reports != unaskedReports_.active())
    KEL_TRACE(4, host()->name() << (reports ? " reports unasked" : " reports unasked no longer")
                                << ": " << whyOrWhyNot(*host()));
  unaskedReports_.activeIs(reports);
  if (memory_ && canSend()) {
    goOnFrom(*std::exchange(memory_, std::nullopt));
    return;
  }
  if (!begins) return;
  if (couldSend && host()->settings().reportsSinceQuery)
    unaskedReports_.tellAllLater(mode_);
  else
    unaskedReports_.tellAllAsNew();
}

HostMemory HostSm::memory() const {
  if (!canSend()) return {};
  return {unaskedReports_.told(mode_), answers_.pending(), querierVersions_.present()};
}

void HostSm::goOnFrom(HostMemory const& memory) {
  for (QuerierVersions::Present const& older : memory.olderQueriers)
    querierVersions_.presentIs(older);
  handleCompatibilityMode();
  if (unaskedReports_.active()) unaskedReports_.goOnFrom(memory.told, mode_);
  for (HostMemory::Answer const& answer : memory.answers) answers_.pendingIs(answer, mode_);
}

void HostSm::handlePam() {
  bool const wasReporting = unaskedReports_.active();
  updateAccess();
  // The former packet access may not have sent what was written last.
  if (wasReporting && unaskedReports_.active()) unaskedReports_.tellAllAsNew();
}

void HostSm::handleEnabled() {
  std::vector<Wirex::Pkt::Ptr> farewell;
  if (!host()->enabled()) {
    answers_.cancelAll();
    farewell = leaves();
  }
  updateAccess();
  send(std::move(farewell));
}

void HostSm::leave() {
  send(leaves());
}

std::vector<Wirex::Pkt::Ptr> HostSm::leaves() {
  if (!unaskedReports_.active()) return {};
  ReportWriter writer = newWriter();
  unaskedReports_.writeLeaves(writer, mode_);
  return writer.takeFrames();
}

void HostSm::handleConfigured() {
  if (unaskedReports_.active()) unaskedReports_.tellAllAsNew();
}

void HostSm::handleSettings() {
  seedDelays();
  updateAccess();
}

void HostSm::seedDelays() {
  std::uint64_t seed = host()->name().hash();
  for (std::uint8_t const byte : host()->settings().macAddress) seed = seed * 257 + byte;
  delays_.seedIs(seed);
}

// ---- The version it speaks

void HostSm::handleIgmpVersion() {
  IgmpVersion const former = mode_;
  handleCompatibilityMode();
  // Unlike a change that a querier causes, no query follows that would have the state told.
  if (mode_ != former) handleConfigured();
}

/// Pending answers stay, because the host often begins to follow the queries of its VLAN on account
/// of a query that it has still to answer.
void HostSm::handleVlanQueries() {
  if (kelVlanQueries_->notifier() != host()->vlanQueries())
    kelVlanQueries_->notifierIs(host()->vlanQueries());
  if (!followMode()) return;
  answers_.versionIs(mode_);
  unaskedReports_.cancelPending();
}

/// Those of the VLAN count too where the host answers them.
QuerierVersions const& HostSm::oldestQueriers() const {
  VlanQueries const* const vlan = kelVlanQueries_->notifier().get();
  bool const isElsewhere = vlan && vlan->versions().oldest() < querierVersions_.oldest();
  return isElsewhere ? vlan->versions() : querierVersions_;
}

/// RFC 9776 section 7.2.1: "Whenever a host changes its compatibility mode, it cancels all its
/// pending response and retransmission timers."
void HostSm::handleCompatibilityMode() {
  if (!followMode()) return;
  answers_.cancelAll();
  unaskedReports_.cancelPending();
}

/// Speaks as the oldest querier does. Returns whether that is another version than before.
bool HostSm::followMode() {
  QuerierVersions const& queriers = oldestQueriers();
  IgmpVersion const mode = std::min(host()->igmpVersion(), queriers.oldest());
  if (mode < host()->igmpVersion()) status_->olderQuerierIs(queriers.oldestQuerier());
  if (mode == mode_) return false;
  if (mode < host()->igmpVersion())
    KEL_TRACE(4, host()->name() << " speaks IGMPv" << mode << " from now on: the querier "
                                << queriers.oldestQuerier() << " does");
  else
    KEL_TRACE(4, host()->name() << " speaks IGMPv" << mode
                                << " from now on: it is configured, and no querier is older");
  mode_ = mode;
  status_->compatibilityModeIs(mode);
  return true;
}

// ---- What it hears

void HostSm::handlePacket() {
  Bytes const frame = kelPam_->notifier()->inputPkt()->bytes();
  auto const type = messageType(frame);
  if (type == MessageType::query)
    handleQuery(frame);
  else if (type == MessageType::reportV1 || type == MessageType::reportV2)
    handleOtherReport(frame);
}

void HostSm::handleQuery(Bytes frame) {
  if (!host()->settings().hearsQueries) return;
  auto const packet = parse(frame);
  if (!packet) return;
  auto const& query = std::get<Query>(packet->message);
  bool const lacksRouterAlert = host()->settings().requireRouterAlert && !packet->routerAlert &&
                                query.version != IgmpVersion::v1;
  if (isMisdirected(query, packet->destination) || lacksRouterAlert) return;

  ++status_->counters().queriesHeard;
  querierVersions_.heard(packet->source, query);
  handleCompatibilityMode();
  answers_.query(query, mode_);
}

/// One that was heard on the host's own port has come through its packet access.
void HostSm::handleVlanQuery() {
  VlanQueries::Heard const& heard = *kelVlanQueries_->notifier()->query();
  if (heard.intfId != host()->intfId() && canSend()) answers_.query(heard.query, mode_);
}

/// RFC 2236 section 3: "If the host receives another host's Report (version 1 or 2) while it has a
/// timer running, it stops its timer for the specified group and does not send a Report".
void HostSm::handleOtherReport(Bytes frame) {
  bool const timerMayRun = answers_.anyGroup() || unaskedReports_.anyGroup();
  if (mode_ == IgmpVersion::v3 || !timerMayRun) return;
  auto const packet = parse(frame);
  if (!packet) return;
  Wirex::IpAddr group;
  if (auto const* const v1 = std::get_if<ReportV1>(&packet->message)) group = v1->group;
  if (auto const* const v2 = std::get_if<ReportV2>(&packet->message)) group = v2->group;
  bool const answers = answers_.cancel(group);
  bool const repeats = unaskedReports_.suppress(group, mode_);
  if (answers || repeats) unaskedReports_.otherMemberReportedIs(group, true);
}

// ---- What it says

ReportWriter HostSm::newWriter() const {
  return {host()->settings(), {status_->counters(), *sent_, number_, timerWheel_->now()}};
}

void HostSm::handleWakeup() {
  if (!canSend()) {
    answers_.dropDue();
    return;
  }
  if (pause_->scheduled()) return;
  ReportWriter writer = newWriter();
  if (unaskedReports_.active())
    unaskedReports_.write(writer, mode_,
                          std::max<std::uint8_t>(host()->settings().robustnessVariable, 1));
  for (Wirex::IpAddr const group : answers_.write(writer, mode_))
    unaskedReports_.otherMemberReportedIs(group, false);
  if (writer.full()) timerWheel_->schedule(*pause_, Horix::TimerWheel::tick);
  send(writer.takeFrames());
}

// Sending a frame may cause others to be sent: these come after those that were written before.
void HostSm::send(std::vector<Wirex::Pkt::Ptr> frames) {
  if (!frames.empty()) status_->lastSentIs(timerWheel_->now());
  std::move(frames.begin(), frames.end(), std::back_inserter(outbox_));
  while (!outbox_.empty()) {
    Wirex::Pkt::Ptr const frame = std::move(outbox_.front());
    outbox_.pop_front();
    if (auto const pam = host()->pam()) pam->outputPktIs(frame);
  }
}

}  // namespace Igmp
