#include "agent/control/MonitorFeed.h"

#include <utility>

#include <nlohmann/json.hpp>

#include "agent/config/Wording.h"
#include "agent/output/JsonValues.h"

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

std::string line(char const* key, Json value) {
  Json object;
  object[key] = std::move(value);
  return oneLine(object) + '\n';
}

}  // namespace

/// What one monitor has not read yet.
class MonitorFeed::Monitor final : public Answer {
 public:
  explicit Monitor(MonitorFeed& feed)
      : feed_(feed), unread_(line("time", seconds(feed.switch_.now() - feed.start_))) {}
  ~Monitor() override { feed_.remove(*this); }

  void add(std::string const& lines) {
    if (isCutOff_) return;
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
    out += std::exchange(unread_, {});
    return isCutOff_ ? Progress::done : Progress::waiting;
  }

 private:
  MonitorFeed& feed_;
  std::string unread_;
  bool isCutOff_ = false;
};

MonitorFeed::MonitorFeed(Switch& snoopingSwitch, Horix::Time start, std::function<void()> cutOff)
    : switch_(snoopingSwitch), start_(start), cutOff_(std::move(cutOff)) {}

MonitorFeed::~MonitorFeed() = default;

std::unique_ptr<Answer> MonitorFeed::monitor() {
  auto monitor = std::make_unique<Monitor>(*this);
  if (monitors_.empty()) begin();
  monitors_.push_back(monitor.get());
  return monitor;
}

void MonitorFeed::begin() {
  records_ = std::make_unique<RecordWatch>(switch_.entities().hosts);
  memberships_ = std::make_unique<MembershipWatch>(switch_.entities().snoopingStatus);
  switch_.afterPublishIs([this] { publish(); });
}

void MonitorFeed::end() {
  switch_.afterPublishIs([] {});
  records_.reset();
  memberships_.reset();
}

// Monitors only take note here: none of them goes while they are walked.
void MonitorFeed::publish() {
  Horix::Time const time = switch_.now() - start_;
  std::string lines;
  for (MembershipChange const& change : memberships_->takeChanges())
    lines += line("membership", membershipChangeObject(change, time));
  for (RecordChange& change : records_->takeChanges())
    lines += line("record", recordChangeObject({time, std::move(change)}));
  if (lines.empty()) return;
  for (Monitor* const monitor : monitors_) monitor->add(lines);
}

void MonitorFeed::remove(Monitor const& monitor) {
  std::erase(monitors_, &monitor);
  if (monitors_.empty()) end();
}

}  // namespace Agent
