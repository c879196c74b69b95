#include "agent/state/StateKeeper.h"

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

#include "agent/Log.h"
#include "agent/state/StateFile.h"
#include "agent/state/StateResumption.h"

namespace Agent {

using Horix::Time;

namespace {

/// From one file to the next.
constexpr std::chrono::seconds pace(2);

/// What changes together is kept together.
constexpr std::chrono::milliseconds batchTime(50);

constexpr std::chrono::seconds longestSaving(2);

/// How much is gathered between two looks at the network: a fraction of a millisecond's work.
constexpr std::size_t stepsAtOnce = 512;

constexpr std::size_t allSteps = SIZE_MAX;

std::size_t hashOf(std::string const& entries) {
  return std::hash<std::string_view>()(entries);
}

void warnOfColdStart(std::string const& name, UnusableState const& unusable) {
  log(Severity::warning, name, " is not taken up: ", unusable.what(),
      "; what was learned before is learned anew, with the next queries");
}

}  // namespace

void resumeOrWarn(Switch& snoopingSwitch, std::string const& name, std::string_view sealed) try {
  Resumed const resumed = resume(snoopingSwitch, unseal(sealed), Moment::now(snoopingSwitch.now()));
  log(Severity::info, name, " taken up: ", counted(resumed.memberships, "membership"), ", ",
      counted(resumed.routers, "router"), ", as of ",
      std::chrono::floor<std::chrono::seconds>(resumed.age).count(), " s ago");
} catch (UnusableState const& unusable) {
  warnOfColdStart(name, unusable);
}

std::string sealedState(Switch& snoopingSwitch) {
  StateGathering gathering(snoopingSwitch);
  gathering.advance(allSteps);
  gathering.gatherTalk();
  return seal(Moment::now(snoopingSwitch.now()), gathering.take());
}

StateKeeper::StateKeeper(std::string path, Switch& snoopingSwitch,
                         Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : path_(std::move(path)), switch_(snoopingSwitch), timerWheel_(std::move(timerWheel)) {}

StateKeeper::~StateKeeper() {
  switch_.afterPublishIs(this, nullptr);
}

void StateKeeper::resume() {
  std::optional<std::string> file;
  try {
    file = readStateFile(path_);
  } catch (UnusableState const& unusable) {
    warnOfColdStart(path_, unusable);
  }
  if (file) resumeOrWarn(switch_, path_, *file);
}

void StateKeeper::begin() {
  lastGathered_ = timerWheel_->now() - pace;
  switch_.afterPublishIs(this, [this] { handleBatch(); });
  timerWheel_->schedule(*this, pace);
}

void StateKeeper::handleBatch() {
  if (gathering_ || !hasChanged()) return;
  Time const due = std::max<Time>(timerWheel_->now() + batchTime, lastGathered_ + pace);
  if (!scheduled() || due < deadline()) timerWheel_->scheduleAt(*this, due);
}

void StateKeeper::onExpiry() {
  if (saved_) {
    continueSaving();
    return;
  }
  finishWriting();
  if (!gathering_ && !writing_.valid() && isDue()) gather();
  if (gathering_ && !gathering_->advance(stepsAtOnce)) startWriting();
  timerWheel_->scheduleAt(*this, nextLook());
}

Time StateKeeper::nextLook() const {
  Time const now = timerWheel_->now();
  if (gathering_) return now + Horix::TimerWheel::tick;
  if (writing_.valid()) return now + batchTime;
  return hasChanged() ? std::max<Time>(now + batchTime, lastGathered_ + pace) : now + pace;
}

bool StateKeeper::hasChanged() const {
  return Kel::mutationCount() != seenMutations_;
}

/// Entities tell of what has changed, but not that a time was renewed.
bool StateKeeper::isDue() const {
  Time const passed = timerWheel_->now() - lastGathered_;
  return passed >= pace && (failed_ || hasChanged() || passed >= renewalInterval());
}

/// A small part of the time that the shortest-lived membership lives.
Time StateKeeper::renewalInterval() const {
  Time shortest = std::chrono::minutes(10);
  for (VlanConfig const& vlan : switch_.configuration().vlans)
    shortest =
        std::min<Time>(shortest, switch_.learning(vlan.vlanId)->policy().groupMembershipInterval());
  return shortest / 10;
}

void StateKeeper::gather() {
  seenMutations_ = Kel::mutationCount();
  lastGathered_ = timerWheel_->now();
  gathering_.emplace(switch_);
}

void StateKeeper::startWriting() {
  std::string entries = gathering_->take();
  gathering_.reset();
  writing_ = std::async(std::launch::async,
                        [path = path_, entries = std::move(entries),
                         moment = Moment::now(timerWheel_->now()), known = writtenHash_] {
                          Written written{hashOf(entries), {}};
                          try {
                            if (written.entriesHash != known)
                              replaceStateFile(path, seal(moment, entries));
                          } catch (std::exception const& error) {
                            written.problem = error.what();
                          }
                          return written;
                        });
}

void StateKeeper::finishWriting() {
  if (!writing_.valid() || writing_.wait_for(Time()) != std::future_status::ready) return;
  Written const written = writing_.get();
  bool const fails = !written.problem.empty();
  if (!fails) writtenHash_ = written.entriesHash;
  if (fails && !failed_)
    log(Severity::warning, written.problem,
        "; what is learned is not kept until there is room and permission");
  if (!fails && failed_) log(Severity::info, path_, " is written again");
  failed_ = fails;
}

void StateKeeper::save(std::function<void()> saved) {
  switch_.afterPublishIs(this, nullptr);
  saved_ = std::move(saved);
  latestSaved_ = timerWheel_->now() + longestSaving;
  gather();
  timerWheel_->schedule(*this, Horix::TimerWheel::tick);
}

/// What may be being written already is older, and comes to its end before.
void StateKeeper::continueSaving() {
  finishWriting();
  bool const isGathered = gathering_ && !gathering_->advance(stepsAtOnce);
  bool const isWritten = !gathering_ && !writing_.valid();
  if (isGathered && !writing_.valid()) startWriting();
  if (!isWritten && timerWheel_->now() < latestSaved_) {
    timerWheel_->schedule(*this, Horix::TimerWheel::tick);
    return;
  }
  gathering_.reset();
  std::exchange(saved_, nullptr)();
}

void StateKeeper::saveNow() {
  switch_.afterPublishIs(this, nullptr);
  cancel();
  gathering_.reset();
  if (writing_.valid()) writing_.wait();
  finishWriting();
  gather();
  gathering_->advance(allSteps);
  startWriting();
  writing_.wait();
  finishWriting();
}

}  // namespace Agent
