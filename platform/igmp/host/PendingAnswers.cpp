#include "platform/igmp/host/PendingAnswers.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

namespace Igmp {

using Horix::Time;
using Wirex::IpAddr;

namespace {

using Sources = std::vector<IpAddr>;

Sources ascending(SourceList const& list) {
  Sources sources(list.begin(), list.end());
  std::sort(sources.begin(), sources.end());
  sources.erase(std::unique(sources.begin(), sources.end()), sources.end());
  return sources;
}

}  // namespace

/// The answer to a general query, from all groups at once.
class PendingAnswers::GeneralAnswer final : public Horix::Timer {
 public:
  explicit GeneralAnswer(PendingAnswers& answers) : answers_(answers) {}

 private:
  void onExpiry() override { answers_.handleGeneralDue(); }

  PendingAnswers& answers_;
};

/// The answer for a group. Its timer runs until it is due, and what is due stays until it is
/// written.
class PendingAnswers::GroupAnswer final : public Horix::Timer {
 public:
  GroupAnswer(IpAddr group, PendingAnswers& answers) : answers_(answers), group_(group) {}

  IpAddr group() const { return group_; }

  /// The queried sources, ascending; none stand for the whole record.
  Sources const& sources() const { return sources_; }
  void sourcesIs(Sources sources) { sources_ = std::move(sources); }

  void add(Sources const& more) {
    // Whoever asks for ever more sources gets the whole record, which answers for all of them.
    constexpr std::size_t mostSources = 1024;
    Sources all;
    std::set_union(sources_.begin(), sources_.end(), more.begin(), more.end(),
                   std::back_inserter(all));
    if (all.size() > mostSources) all.clear();
    sources_ = std::move(all);
  }

 private:
  void onExpiry() override { answers_.handleDue(*this); }

  PendingAnswers& answers_;
  IpAddr group_;
  Sources sources_;
};

/// The answers to an older version's general query, each of which has a delay of its own. With many
/// groups they are scheduled some in each tick. A query that comes before all are given is answered
/// by those that are still to come, and by another round after them: a storm of queries costs no
/// more than one round after the other.
class PendingAnswers::OlderRound final : public Horix::Timer {
 public:
  static constexpr std::size_t groupsAtOnce = 1024;

  explicit OlderRound(PendingAnswers& answers) : answers_(answers) {}

  std::vector<IpAddr> unscheduled{};  // the next one last
  Time maxResponseTime{};
  Time end{};                     // when the last answer is due
  std::optional<Time> another{};  // the response time of the round after it

 private:
  void onExpiry() override {
    if (unscheduled.empty())
      answers_.endOlderRound();
    else
      answers_.continueOlderRound();
  }

  PendingAnswers& answers_;
};

PendingAnswers::PendingAnswers(IgmpHost const& host, Kel::Ptr<Horix::TimerWheel const> timerWheel,
                               RandomDelays& delays, Kel::Ptr<HostWakeup const> wakeup)
    : host_(host),
      timerWheel_(std::move(timerWheel)),
      delays_(delays),
      wakeup_(std::move(wakeup)),
      general_(std::make_unique<GeneralAnswer>(*this)),
      olderRound_(std::make_unique<OlderRound>(*this)) {}

PendingAnswers::~PendingAnswers() = default;

void PendingAnswers::query(Query const& query, IgmpVersion mode) {
  if (mode != IgmpVersion::v3) {
    olderQuery(query);
    return;
  }
  Time const delay = delays_.within(query.maxResponseTime);

  // 1. If there is a pending response to a previous General Query scheduled sooner than the
  //    selected delay, no additional response needs to be scheduled.
  bool const isScheduledSooner =
      general_->scheduled() && general_->deadline() < timerWheel_->now() + delay;
  if (generalDue_ || isScheduledSooner) return;

  if (query.isGeneral())
    generalQuery(delay);
  else
    groupQuery(query, delay);
}

// 2. If the received Query is a General Query, the interface timer is used to schedule a response
//    to the General Query after the selected delay. Any previously pending response to a General
//    Query is canceled.
void PendingAnswers::generalQuery(Time delay) {
  timerWheel_->schedule(*general_, delay);
}

void PendingAnswers::groupQuery(Query const& query, Time delay) {
  if (!hasReceptionState(host_.v3group().peek(query.group))) return;
  auto const* const pending = groups_.find(query.group);

  // 3. If the received Query is a Group-Specific Query or a Group-and-Source-Specific Query and
  //    there is no pending response to a previous Query for this group, then the group timer is
  //    used to schedule a report. If the received Query is a Group-and-Source-Specific Query, the
  //    list of queried sources is recorded to be used when generating a response.
  if (!pending) {
    GroupAnswer& answer = answerFor(query.group);
    answer.sourcesIs(ascending(query.sources));
    timerWheel_->schedule(answer, delay);
    return;
  }
  GroupAnswer& answer = **pending;
  if (query.sources.empty() || answer.sources().empty()) {
    // 4. If there already is a pending response to a previous Query scheduled for this group, and
    //    either the new Query is a Group-Specific Query or the recorded source-list associated with
    //    the group is empty, then the group source-list is cleared ...
    answer.sourcesIs({});
  } else {
    // 5. If the received Query is a Group-and-Source-Specific Query and there is a pending response
    //    for this group with a non-empty source-list, then the group source list is augmented to
    //    contain the list of sources in the new Query ...
    answer.add(ascending(query.sources));
  }
  // ... The new response is scheduled to be sent at the earliest of the remaining time for the
  // pending report and the selected delay.
  bool const isDue = !answer.scheduled();
  if (!isDue && timerWheel_->now() + delay < answer.deadline())
    timerWheel_->schedule(answer, delay);
}

/// RFC 2236 section 3: "it sets delay timers for each group [...] Each timer is set to a different
/// random value".
void PendingAnswers::olderQuery(Query const& query) {
  if (query.isGeneral())
    olderGeneralQuery(query.maxResponseTime);
  else
    olderQuery(query.group, query.maxResponseTime);
}

void PendingAnswers::olderGeneralQuery(Time maxResponseTime) {
  OlderRound& round = *olderRound_;
  bool const isUnderWay = round.scheduled() && !(round.unscheduled.empty() && groups_.empty());
  if (!isUnderWay || timerWheel_->now() + maxResponseTime < round.end)
    beginOlderRound(maxResponseTime);
  else
    round.another = std::min(maxResponseTime, round.another.value_or(maxResponseTime));
}

void PendingAnswers::beginOlderRound(Time maxResponseTime) {
  OlderRound& round = *olderRound_;
  round.another.reset();
  round.maxResponseTime = maxResponseTime;
  round.end = timerWheel_->now() + maxResponseTime;
  round.unscheduled.clear();
  for (IpAddr const group : host_.v3group().keys()) round.unscheduled.push_back(group);
  std::reverse(round.unscheduled.begin(), round.unscheduled.end());
  continueOlderRound();
}

void PendingAnswers::continueOlderRound() {
  OlderRound& round = *olderRound_;
  for (std::size_t i = 0; i < OlderRound::groupsAtOnce && !round.unscheduled.empty(); ++i) {
    olderQuery(round.unscheduled.back(), round.maxResponseTime);
    round.unscheduled.pop_back();
  }
  Time const next = timerWheel_->now() + Horix::TimerWheel::tick;
  timerWheel_->scheduleAt(round, round.unscheduled.empty() ? std::max(round.end, next) : next);
}

/// Of very much, a part may still have to be written.
void PendingAnswers::endOlderRound() {
  if (!due_.empty())
    timerWheel_->schedule(*olderRound_, Horix::TimerWheel::tick);
  else if (auto const another = olderRound_->another)
    beginOlderRound(*another);
}

/// RFC 2236 section 3: "If a timer for the group is already running, it is reset to the random
/// value only if the requested Max Response Time is less than the remaining value of the running
/// timer."
void PendingAnswers::olderQuery(IpAddr group, Time maxResponseTime) {
  if (!hasReceptionState(host_.v3group().peek(group))) return;
  auto const* const pending = groups_.find(group);
  if (pending &&
      (!(*pending)->scheduled() || (*pending)->deadline() <= timerWheel_->now() + maxResponseTime))
    return;
  timerWheel_->schedule(pending ? **pending : answerFor(group), delays_.within(maxResponseTime));
}

void PendingAnswers::versionIs(IgmpVersion mode) {
  if (mode == IgmpVersion::v3) return;
  bool const isDue = std::exchange(generalDue_, false) || !unanswered_.empty();
  unanswered_.clear();
  if (!isDue && !general_->scheduled()) return;
  Time const left = isDue ? Time() : general_->deadline() - timerWheel_->now();
  general_->cancel();
  olderGeneralQuery(left);
}

PendingAnswers::GroupAnswer& PendingAnswers::answerFor(IpAddr group) {
  return *groups_.add(group, std::make_unique<GroupAnswer>(group, *this));
}

bool PendingAnswers::cancel(IpAddr group) {
  std::uint32_t const at = groups_.position(group);
  if (at == groups_.absent) return false;
  groups_.takeAt(at);
  return true;
}

void PendingAnswers::cancelAll() {
  general_->cancel();
  generalDue_ = false;
  olderRound_->cancel();
  olderRound_->another.reset();
  groups_ = {};
  due_.clear();
  unanswered_.clear();
}

void PendingAnswers::handleGeneralDue() {
  generalDue_ = true;
  wakeup_->dueNotify();
}

void PendingAnswers::handleDue(GroupAnswer& answer) {
  due_.push_back(answer.group());
  wakeup_->dueNotify();
}

std::vector<IpAddr> PendingAnswers::write(ReportWriter& writer, IgmpVersion mode) {
  std::vector<IpAddr> reported;
  auto next = due_.begin();
  while (next != due_.end() && !writer.full()) {
    IpAddr const group = *next++;
    auto const answer = takeDue(group);
    if (!answer || !hasReceptionState(host_.v3group().peek(group))) continue;
    if (mode == IgmpVersion::v3) {
      write(*answer, writer);
    } else {
      writer.report(mode, group);
      reported.push_back(group);
    }
  }
  due_.erase(due_.begin(), next);
  if (std::exchange(generalDue_, false)) beginGeneral();
  for (; !unanswered_.empty() && !writer.full(); unanswered_.pop_back()) {
    auto const* const record = host_.v3group().peek(unanswered_.back());
    if (hasReceptionState(record)) writeState(unanswered_.back(), receptionState(record), writer);
  }
  return reported;
}

/// "One Current-State Record is sent for each multicast address for which the specified interface
/// has reception state".
void PendingAnswers::beginGeneral() {
  unanswered_.clear();
  for (IpAddr const group : host_.v3group().keys()) unanswered_.push_back(group);
  std::reverse(unanswered_.begin(), unanswered_.end());
  // "Finally, [...] the source lists associated with any reported groups are cleared."
  for (auto const [group, answer] : groups_) answer->sourcesIs({});
}

void PendingAnswers::writeState(IpAddr group, ReceptionState const& state, ReportWriter& writer) {
  using enum Wirex::IgmpV3GroupRecordType;
  writer.record(state.excludes ? modeIsExclude : modeIsInclude, group, state.sources);
}

void PendingAnswers::write(GroupAnswer const& answer, ReportWriter& writer) const {
  ReceptionState const state = receptionState(host_.v3group().peek(answer.group()));
  if (answer.sources().empty()) {
    writeState(answer.group(), state, writer);
    return;
  }
  //                         set of sources in the
  //  interface state   pending response record   Current-State Record
  //   INCLUDE (A)                B                   IS_IN (A*B)
  //   EXCLUDE (A)                B                   IS_IN (B-A)
  Sources wanted;
  std::copy_if(answer.sources().begin(), answer.sources().end(), std::back_inserter(wanted),
               [&](IpAddr source) { return state.wants(source); });
  if (!wanted.empty())
    writer.record(Wirex::IgmpV3GroupRecordType::modeIsInclude, answer.group(), wanted);
}

std::vector<HostMemory::Answer> PendingAnswers::pending() const {
  Time const now = timerWheel_->now();
  std::vector<HostMemory::Answer> pending;
  if (general_->scheduled()) pending.push_back({{}, {}, general_->deadline()});
  if (generalDue_ || !unanswered_.empty()) pending.push_back({{}, {}, now});
  for (auto const& [group, answer] : groups_)
    pending.push_back({group, answer->sources(), answer->scheduled() ? answer->deadline() : now});
  for (IpAddr const group : olderRound_->unscheduled)
    pending.push_back({group, {}, olderRound_->end});
  if (auto const another = olderRound_->another)
    pending.push_back({{}, {}, olderRound_->end + *another});
  return pending;
}

void PendingAnswers::pendingIs(HostMemory::Answer const& answer, IgmpVersion mode) {
  Time const left = std::max(answer.due - timerWheel_->now(), Time());
  if (answer.group == IpAddr() && mode == IgmpVersion::v3) {
    timerWheel_->schedule(*general_, left);
  } else if (answer.group == IpAddr()) {
    olderGeneralQuery(left);
  } else if (!groups_.find(answer.group)) {
    GroupAnswer& pending = answerFor(answer.group);
    pending.sourcesIs(answer.sources);
    timerWheel_->schedule(pending, left);
  }
}

void PendingAnswers::dropDue() {
  for (IpAddr const group : std::exchange(due_, {})) takeDue(group);
  unanswered_.clear();
  generalDue_ = false;
}

/// Null if the answer was taken back, also where another one is pending since.
std::unique_ptr<PendingAnswers::GroupAnswer> PendingAnswers::takeDue(IpAddr group) {
  std::uint32_t const at = groups_.position(group);
  if (at == groups_.absent || groups_.mappedAt(at)->scheduled()) return nullptr;
  return groups_.takeAt(at);
}

}  // namespace Igmp
