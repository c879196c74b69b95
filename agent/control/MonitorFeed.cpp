#include "agent/control/MonitorFeed.h"

#include <optional>
#include <utility>

#include <nlohmann/json.hpp>

#include "agent/output/JsonValues.h"
#include "agent/text/Dates.h"
#include "agent/text/Wording.h"
#include "agent/watch/MembershipWatch.h"
#include "agent/watch/RecordWatch.h"

namespace Agent {

namespace {

Json membershipChangeObject(MembershipChange const& change, Horix::Time time) {
  Json object;
  object["time"] = seconds(time);
  object["vlan"] = change.vlan.value();
  object["interface"] = message(change.interface);
  object["address"] = message(change.group);
  object["host"] = message(change.reporter);
  object["change"] = change.kind();
  if (change.before) addFilter(object["old"], *change.before);
  if (change.after) addFilter(object["new"], *change.after);
  return object;
}

/// With the time of day.
Json dated(Json change, std::string const& date) {
  change["date"] = date;
  return change;
}

std::string line(char const* key, Json value) {
  Json object;
  object[key] = std::move(value);
  return oneLine(object) + '\n';
}

}  // namespace

/// What is watched for the monitors.
class MonitorFeed::Watches {
 public:
  Watches(SwitchEntities const& entities, MonitorScope const& scope) {
    if (scope.records) records_.emplace(entities.hosts, scope.of);
    if (scope.memberships) memberships_.emplace(entities.snoopingStatus, scope.of);
  }

  /// Do a piece of the work at the beginning and at the end. Return whether there is more.
  bool watchSome() {
    return (records_ && records_->watchSome(recordsAtOnce)) ||
           (memberships_ && memberships_->watchSome(groupsAtOnce));
  }
  bool unwatchSome() {
    return (records_ && records_->unwatchSome(recordsAtOnce)) ||
           (memberships_ && memberships_->unwatchSome(groupsAtOnce));
  }

  std::vector<MembershipChange> takeMembershipChanges() {
    return memberships_ ? memberships_->takeChanges() : std::vector<MembershipChange>();
  }
  std::vector<RecordChange> takeRecordChanges() {
    return records_ ? records_->takeChanges() : std::vector<RecordChange>();
  }

  bool complete = false;

 private:
  static constexpr std::size_t recordsAtOnce = 256;
  static constexpr std::size_t groupsAtOnce = 64;

  std::optional<RecordWatch> records_;
  std::optional<MembershipWatch> memberships_;
};

/// Watches that nobody needs any more.
class MonitorFeed::Ending final : private Horix::Timer {
 public:
  Ending(MonitorFeed& feed, std::unique_ptr<Watches> watches)
      : feed_(feed), watches_(std::move(watches)) {
    schedule();
  }

  bool unwatchSome() { return watches_->unwatchSome(); }

 private:
  void schedule() { feed_.timerWheel_.schedule(*this, Horix::Time::zero()); }

  void onExpiry() override {
    if (feed_.endSome()) schedule();
  }

  MonitorFeed& feed_;
  std::unique_ptr<Watches> watches_;
};

/// What one monitor has not read yet.
class MonitorFeed::Monitor final : public Answer {
 public:
  explicit Monitor(MonitorFeed& feed) : feed_(feed) {}
  ~Monitor() override { feed_.remove(*this); }

  void add(std::string const& lines) {
    if (!hears_ || isCutOff_) return;
    if (unread_.size() + lines.size() > mostUnread) {
      isCutOff_ = true;
      unread_ += line("error", "this monitor reads too slowly and was cut off; start it again");
      feed_.cutOff_();
    } else {
      unread_ += lines;
    }
    wake();
  }

  Progress advance(std::string& out) override {
    if (!feed_.watchSome()) return Progress::more;
    if (!std::exchange(hears_, true))
      out += line("time", seconds(feed_.switch_.now() - feed_.start_));
    out += std::exchange(unread_, {});
    return isCutOff_ ? Progress::done : Progress::waiting;
  }

 private:
  MonitorFeed& feed_;
  std::string unread_;
  bool hears_ = false;
  bool isCutOff_ = false;
};

MonitorScope monitorScope(std::string const& kind, Selection of) {
  if (!kind.empty() && kind != "membership" && kind != "record")
    refuse("there are no changes of the kind ", Agent::quoted(kind), ", but membership and record");
  return {std::move(of), kind != "record", kind != "membership"};
}

MonitorFeed::MonitorFeed(Switch& snoopingSwitch, Horix::TimerWheel& timerWheel, Horix::Time start,
                         MonitorScope scope, std::function<void()> cutOff)
    : switch_(snoopingSwitch),
      timerWheel_(timerWheel),
      start_(start),
      scope_(std::move(scope)),
      cutOff_(std::move(cutOff)) {}

MonitorFeed::~MonitorFeed() = default;

std::unique_ptr<Answer> MonitorFeed::monitor() {
  auto monitor = std::make_unique<Monitor>(*this);
  if (!watches_ && !ending_) begin();
  monitors_.push_back(monitor.get());
  return monitor;
}

void MonitorFeed::begin() {
  watches_ = std::make_unique<Watches>(switch_.entities(), scope_);
  switch_.afterPublishIs(this, [this] { publish(); });
}

void MonitorFeed::end() {
  switch_.afterPublishIs(this, nullptr);
  ending_ = std::make_unique<Ending>(*this, std::move(watches_));
}

bool MonitorFeed::endSome() {
  if (ending_->unwatchSome()) return true;
  ending_ = nullptr;
  return false;
}

bool MonitorFeed::watchSome() {
  if (ending_ && endSome()) return false;
  if (!watches_) begin();
  if (!watches_->complete) watches_->complete = !watches_->watchSome();
  return watches_->complete;
}

// Monitors only take note here: none of them goes while they are walked.
void MonitorFeed::publish() {
  Horix::Time const time = switch_.now() - start_;
  std::string lines;
  std::string const date = Dates::knownAt(time).exactText(time);
  for (MembershipChange const& change : watches_->takeMembershipChanges())
    lines += line("membership", dated(membershipChangeObject(change, time), date));
  for (RecordChange& change : watches_->takeRecordChanges())
    lines += line("record", dated(recordChangeObject({time, std::move(change)}), date));
  if (lines.empty()) return;
  for (Monitor* const monitor : monitors_) monitor->add(lines);
}

void MonitorFeed::remove(Monitor const& monitor) {
  std::erase(monitors_, &monitor);
  if (monitors_.empty() && watches_) end();
}

}  // namespace Agent
