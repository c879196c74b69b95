#include "platform/igmp/host/UnaskedReports.h"

#include <utility>

namespace Igmp {

using Horix::Time;
using Wirex::IpAddr;

namespace {

/// RFC 9776 section 8.11; RFC 2236 section 8.10 for the versions before.
Time unsolicitedReportInterval(IgmpVersion mode) {
  return mode == IgmpVersion::v3 ? std::chrono::seconds(1) : std::chrono::seconds(10);
}

/// For how long a router knows what it was told, by the default values of RFC 9776 section 8.4.
constexpr std::chrono::seconds groupMembershipInterval(2 * 125 + 2 * 10);

}  // namespace

/// Watches which records the host has.
class UnaskedReports::KelRecords final
    : public Kel::ReactorFor<UnaskedReports, IgmpHost::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onV3group(IpAddr group) override {
    if (notificationActive()) owner().follow(group);
  }
  void onV3groupkelImmediate() override {
    if (notificationActive()) owner().followAll();
  }
};

/// Ends the memory of what was reported before the suspension.
class UnaskedReports::ForgetTimer final : public Horix::Timer {
 public:
  explicit ForgetTimer(UnaskedReports& reports) : reports_(reports) {}

 private:
  void onExpiry() override { reports_.forgetAll(); }

  UnaskedReports& reports_;
};

UnaskedReports::UnaskedReports(Kel::Ptr<IgmpHost const> host,
                               Kel::Ptr<Horix::TimerWheel const> timerWheel, RandomDelays& delays,
                               Kel::Ptr<HostWakeup const> wakeup)
    : host_(std::move(host)),
      timerWheel_(std::move(timerWheel)),
      delays_(delays),
      wakeup_(std::move(wakeup)),
      records_(Kel::make<KelRecords>(Kel::Ptr<IgmpHost const>(), this)),
      forgetTimer_(std::make_unique<ForgetTimer>(*this)) {}

UnaskedReports::~UnaskedReports() {
  records_->kelDoZombieReactors(true);
}

void UnaskedReports::activeIs(bool active) {
  if (active == active_) return;
  active_ = active;
  if (!active) {
    suspend();
    return;
  }
  forgetTimer_->cancel();
  records_->notifierIs(host_);
}

void UnaskedReports::suspend() {
  records_->notifierIs(nullptr);
  marked_.clear();
  for (IpAddr const group : groups_.keys()) {
    GroupReporting& reporting = *groups_.find(group);
    reporting.suspend();
    forgetIfIdle(reporting);
  }
  if (!groups_.empty()) timerWheel_->schedule(*forgetTimer_, groupMembershipInterval);
}

void UnaskedReports::tellAllAsNew() {
  followAll();
  for (auto const [group, reporting] : groups_) reporting->tellAsNew();
}

void UnaskedReports::tellAllLater(IgmpVersion mode) {
  followAll();
  Time const delay = delays_.within(unsolicitedReportInterval(mode));
  for (auto const [group, reporting] : groups_) {
    reporting->tellLater();
    timerWheel_->schedule(*reporting, delay);
  }
}

std::vector<HostMemory::Told> UnaskedReports::told(IgmpVersion mode) const {
  std::vector<HostMemory::Told> told;
  if (!active_) return told;
  for (auto const [group, reporting] : groups_)
    if (auto one = reporting->told(mode)) told.push_back(std::move(*one));
  return told;
}

void UnaskedReports::goOnFrom(std::vector<HostMemory::Told> const& told, IgmpVersion mode) {
  followAll();
  for (HostMemory::Told const& each : told)
    groups_
        .ensure(each.group, [&] { return Kel::make<GroupReporting>(nullptr, each.group, *this); })
        .first->goOnFrom(each, mode);
}

void UnaskedReports::followAll() {
  for (auto const [group, reporting] : groups_) follow(group);
  for (IpAddr const group : host_->v3group().keys()) follow(group);
}

void UnaskedReports::follow(IpAddr group) {
  Kel::Ptr<IgmpV3GroupRecord const> const record = host_->v3group(group);
  if (record) {
    groups_.watch(group, record, [&] { return Kel::make<GroupReporting>(record, group, *this); });
  } else if (GroupReporting* const reporting = groups_.find(group)) {
    reporting->notifierIs(nullptr);
  }
}

void UnaskedReports::mark(GroupReporting& reporting) {
  if (marked_.empty()) wakeup_->dueNotify();
  marked_.push_back(&reporting);
}

void UnaskedReports::scheduleRepetition(GroupReporting& reporting, IgmpVersion mode) {
  timerWheel_->schedule(reporting, delays_.within(unsolicitedReportInterval(mode)));
}

void UnaskedReports::cancelPending() {
  for (IpAddr const group : groups_.keys()) {
    GroupReporting& reporting = *groups_.find(group);
    reporting.cancelPending();
    forgetIfIdle(reporting);
  }
}

bool UnaskedReports::suppress(IpAddr group, IgmpVersion mode) {
  GroupReporting* const reporting = groups_.find(group);
  return reporting && reporting->suppressRepetition(mode);
}

void UnaskedReports::otherMemberReportedIs(IpAddr group, bool reported) {
  if (GroupReporting* const reporting = groups_.find(group))
    reporting->otherMemberReportedIs(reported);
}

void UnaskedReports::write(ReportWriter& writer, IgmpVersion mode,
                           std::uint8_t robustnessVariable) {
  auto next = marked_.begin();
  while (next != marked_.end() && !writer.full()) {
    GroupReporting& reporting = **next++;
    reporting.write(writer, mode, robustnessVariable);
    forgetIfIdle(reporting);
  }
  marked_.erase(marked_.begin(), next);
}

void UnaskedReports::writeLeaves(ReportWriter& writer, IgmpVersion mode) {
  for (auto const [group, reporting] : groups_) reporting->writeLeave(writer, mode);
  forgetAll();
}

void UnaskedReports::forgetAll() {
  marked_.clear();
  groups_.delAll();
}

void UnaskedReports::forgetIfIdle(GroupReporting& reporting) {
  if (!reporting.notifier() && reporting.idle()) groups_.del(reporting.group());
}

}  // namespace Igmp
