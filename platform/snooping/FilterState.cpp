#include "platform/snooping/FilterState.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Bridging::IgmpSnooping {

using Horix::Time;
using Igmp::GroupRecord;
using Igmp::SourceList;
using Wirex::IgmpV3GroupRecordType;
using Wirex::IpAddr;

namespace {

/// The sources that a record names, found fast where they are many.
class Named {
 public:
  explicit Named(SourceList const& sources) : list_(sources) {
    if (list_.size() <= scanned) return;
    for (IpAddr const source : list_)
      if (!table_.contains(source)) table_.add(source, {});
  }

  bool contains(IpAddr source) const {
    if (list_.size() > scanned) return table_.contains(source);
    return std::find(list_.begin(), list_.end(), source) != list_.end();
  }

 private:
  static constexpr std::size_t scanned = 8;

  SourceList const& list_;
  Kel::Table<IpAddr, Kel::Nothing> table_;
};

bool isRepeatedBy(SourceList const& sources, IgmpMembership::Sources const& known) {
  return sources.size() == known.size() &&
         std::equal(sources.begin(), sources.end(), known.begin());
}

}  // namespace

bool FilterState::begins(GroupRecord const& record) {
  switch (record.type) {
    case IgmpV3GroupRecordType::modeIsExclude:
    case IgmpV3GroupRecordType::changeToExcludeMode:
      return true;
    case IgmpV3GroupRecordType::modeIsInclude:
    case IgmpV3GroupRecordType::changeToIncludeMode:
    case IgmpV3GroupRecordType::allowNewSources:
      return !record.sources.empty();
    case IgmpV3GroupRecordType::blockOldSources:
      return false;
  }
  return false;
}

void FilterState::hear(GroupRecord const& record, Times times) {
  if (membership_.includes())
    hearInIncludeMode(record, times);
  else
    hearInExcludeMode(record, times);
  if (wantsNothing()) withdraw();
}

bool FilterState::hearRepeated(GroupRecord const& record, LearnedMembership& membership,
                               Horix::TimerWheel const& timerWheel, Time end) {
  if (membership.isOfMany() || membership.isForgotten() ||
      record.type == IgmpV3GroupRecordType::blockOldSources ||
      isOfExcludeMode(record) == membership.includes() ||
      !isRepeatedBy(record.sources, membership.source()))
    return false;
  membership.times_.reset();
  timerWheel.scheduleAt(membership, end);
  return true;
}

// In the rows below, (B)=GMI has the sources B end when a group membership interval has passed,
// (B)=LMQT when the last member query time has, if they would not end before. What one reporter
// excludes it excludes at once, so its X is only what its answers to specific queries name.

void FilterState::hearInIncludeMode(GroupRecord const& record, Times times) {
  bool const isOfMany = membership_.isOfMany();
  switch (record.type) {
    // INCLUDE(A)  IS_IN(B), ALLOW(B)  INCLUDE(A+B)  (B)=GMI
    case IgmpV3GroupRecordType::modeIsInclude:
    case IgmpV3GroupRecordType::allowNewSources:
      request(record.sources, times.renewed);
      break;
    // INCLUDE(A)  TO_IN(B)  INCLUDE(B)              (B)=GMI
    //        of many:       INCLUDE(A+B)            (B)=GMI (A-B)=LMQT
    case IgmpV3GroupRecordType::changeToIncludeMode:
      if (isOfMany) {
        lowerAll(times.doubtful);
        request(record.sources, times.renewed);
      } else {
        state(Mode::include, record.sources, times.renewed);
      }
      break;
    // INCLUDE(A)  BLOCK(B)  INCLUDE(A-B)
    //        of many:       INCLUDE(A)              (A*B)=LMQT
    case IgmpV3GroupRecordType::blockOldSources:
      if (isOfMany)
        lower(record.sources, times.doubtful);
      else
        for (IpAddr const source : record.sources) remove(source);
      break;
    // INCLUDE(A)  IS_EX(B), TO_EX(B)  EXCLUDE({},B)     (mode)=GMI
    //        of many:                 EXCLUDE(A*B,B-A)  (mode)=GMI; TO_EX: (A*B)=LMQT
    case IgmpV3GroupRecordType::modeIsExclude:
    case IgmpV3GroupRecordType::changeToExcludeMode:
      if (isOfMany)
        excludeSome(record.sources, times,
                    record.type == IgmpV3GroupRecordType::changeToExcludeMode);
      else
        state(Mode::exclude, record.sources, times.renewed);
      break;
  }
}

void FilterState::hearInExcludeMode(GroupRecord const& record, Times times) {
  bool const isOfMany = membership_.isOfMany();
  switch (record.type) {
    // EXCLUDE(X,Y)  IS_IN(A), ALLOW(A)  EXCLUDE(X+A,Y-A)  (A)=GMI
    case IgmpV3GroupRecordType::modeIsInclude:
    case IgmpV3GroupRecordType::allowNewSources:
      requestBesides(record.sources, times.renewed);
      break;
    // EXCLUDE(X,Y)  TO_IN(A)  INCLUDE(A)                  (A)=GMI
    //          of many:       EXCLUDE(X+A,Y-A)            (A)=GMI (X-A)=LMQT (mode)=LMQT
    case IgmpV3GroupRecordType::changeToIncludeMode:
      if (isOfMany) {
        lowerMode(times.doubtful);
        requestBesides(record.sources, times.renewed);
      } else {
        state(Mode::include, record.sources, times.renewed);
      }
      break;
    // EXCLUDE(X,Y)  BLOCK(A)  EXCLUDE(X-A,Y+A)
    //          of many:       EXCLUDE(X+(A-Y),Y)          (A-X-Y)=(mode) (A-Y)=LMQT
    case IgmpV3GroupRecordType::blockOldSources:
      if (isOfMany)
        doubt(record.sources, times.doubtful);
      else
        exclude(record.sources);
      break;
    // EXCLUDE(X,Y)  IS_EX(Z), TO_EX(Z)  EXCLUDE({},Z)     (mode)=GMI
    //          of many:  EXCLUDE(Z-Y,Y*Z)  (mode)=GMI; IS_EX: (Z-X-Y)=GMI; TO_EX: (Z-Y)=LMQT
    case IgmpV3GroupRecordType::modeIsExclude:
    case IgmpV3GroupRecordType::changeToExcludeMode:
      if (isOfMany)
        excludeCommon(record.sources, times,
                      record.type == IgmpV3GroupRecordType::changeToExcludeMode);
      else
        state(Mode::exclude, record.sources, times.renewed);
      break;
  }
}

void FilterState::hearOlderReport(Times times) {
  state(Mode::exclude, {}, times.renewed);
}

void FilterState::hearLeave(Times times) {
  if (membership_.includes())
    lowerAll(times.doubtful);
  else
    lowerMode(times.doubtful);
}

void FilterState::restore(TimedFilter const& filter) {
  Time const now = timerWheel_.now();
  bool const excludes = filter.mode == Mode::exclude && filter.deadline > now;
  withdraw();
  if (excludes) {
    modeIs(Mode::exclude);
    for (IpAddr const source : filter.excluded) add(source);
    endAllAt(filter.deadline);
  }
  for (auto const& [source, end] : filter.requested) {
    if (end <= now || membership_.source(source)) continue;
    if (excludes)
      requestedTimeIs(source, Deadline(end));
    else
      requestOne(source, end);
  }
}

void FilterState::withdraw() {
  membership_.cancel();
  membership_.times_.reset();
  modeIs(Mode::include);
  if (!membership_.source().empty()) changed_ = true;
  membership_.sourceDelAll();
}

// ---- Either mode

/// A full statement: the reporter's filter is as it says, and all of it ends at one time.
void FilterState::state(Mode mode, SourceList const& sources, Time end) {
  modeIs(mode);
  if (!isRepeatedBy(sources, membership_.source())) {
    membership_.times_.reset();
    keepOnly(sources);
    for (IpAddr const source : sources) add(source);
  }
  endAllAt(end);
}

void FilterState::keepOnly(SourceList const& sources) {
  if (membership_.source().empty()) return;
  Named const named(sources);
  for (IpAddr const source : membership_.source().keys())
    if (!named.contains(source)) remove(source);
}

// ---- INCLUDE(A)

void FilterState::request(SourceList const& sources, Time end) {
  if (namesAll(sources)) {
    membership_.times_.reset();
    for (IpAddr const source : sources) add(source);
    if (!wantsNothing()) endAllAt(end);
    return;
  }
  if (sources.empty()) return;
  Deadline const deadline(end);
  auto& ofSources = times().ofSources;
  for (IpAddr const source : sources) {
    std::uint32_t const position = membership_.source().position(source);
    if (position != LearnedMembership::unlisted)
      ofSources[position] = deadline;
    else if (add(source))
      ofSources.push_back(deadline);
  }
  wakeUpBy(end);
}

void FilterState::requestOne(IpAddr source, Time end) {
  if (wantsNothing()) endAllAt(end);
  if (Deadline(membership_.deadline()) == Deadline(end) && !membership_.times_) {
    add(source);
  } else {
    auto& ofSources = times().ofSources;
    if (add(source)) ofSources.emplace_back(end);
    wakeUpBy(end);
  }
}

/// Whether no source that is known is missing among these.
bool FilterState::namesAll(SourceList const& sources) const {
  auto const& known = membership_.source();
  if (known.empty() || isRepeatedBy(sources, known)) return true;
  if (sources.size() < known.size()) return false;
  std::vector<bool> named(known.size());
  std::uint32_t missing = known.size();
  for (IpAddr const source : sources) {
    std::uint32_t const position = known.position(source);
    if (position == LearnedMembership::unlisted || named[position]) continue;
    named[position] = true;
    --missing;
  }
  return missing == 0;
}

void FilterState::lower(SourceList const& sources, Time end) {
  Deadline const deadline(end);
  for (IpAddr const source : sources) {
    std::uint32_t const position = membership_.source().position(source);
    if (position == LearnedMembership::unlisted || membership_.timeAt(position) <= end) continue;
    times().ofSources[position] = deadline;
    wakeUpBy(end);
  }
}

void FilterState::lowerAll(Time end) {
  if (membership_.times_)
    for (Deadline& time : membership_.times_->ofSources)
      if (time.near(end) > end) time = Deadline(end);
  wakeUpBy(end);
}

/// The first of many excludes: what others include is still requested.
void FilterState::excludeSome(SourceList const& sources, Times times, bool isChange) {
  Kel::Table<IpAddr, Deadline> requested;
  for (IpAddr const source : sources) {
    Time const end = membership_.wantedUntil(source);
    if (end == Time::zero() || requested.contains(source)) continue;
    requested.add(source, Deadline(isChange ? std::min(end, times.doubtful) : end));
  }
  membership_.times_.reset();
  modeIs(Mode::exclude);
  for (IpAddr const source : membership_.source().keys()) remove(source);
  for (IpAddr const source : sources)
    if (!requested.contains(source)) add(source);
  endAllAt(times.renewed);
  for (auto const [source, end] : requested) requestedTimeIs(source, end);
}

// ---- EXCLUDE(X,Y)

void FilterState::requestBesides(SourceList const& sources, Time end) {
  for (IpAddr const source : sources) {
    remove(source);
    requestedTimeIs(source, Deadline(end));
  }
}

void FilterState::exclude(SourceList const& sources) {
  for (IpAddr const source : sources) {
    if (auto* const times = membership_.times_.get())
      if (auto const at = times->ofRequested.position(source); at != LearnedMembership::unlisted)
        times->ofRequested.takeAt(at);
    add(source);
  }
}

void FilterState::doubt(SourceList const& sources, Time end) {
  Time const ofMode = membership_.everySourceWantedUntil();
  for (IpAddr const source : sources) {
    if (membership_.source(source)) continue;
    Deadline const* const known = requestedTime(source);
    Time const present = known ? known->near(end) : ofMode;
    requestedTimeIs(source, Deadline(std::min(present, end)));
  }
}

/// Many exclude: only what all of them exclude is excluded. What is new to the list is still
/// requested until it turns out that nobody wants it.
void FilterState::excludeCommon(SourceList const& sources, Times times, bool isChange) {
  Time const newEnd = isChange ? times.doubtful : times.renewed;
  keepOnly(sources);
  Kel::Table<IpAddr, Deadline> requested;
  for (IpAddr const source : sources) {
    if (membership_.source(source) || requested.contains(source)) continue;
    Deadline const* const known = requestedTime(source);
    requested.add(source, Deadline(known ? std::min(known->near(newEnd), newEnd) : newEnd));
  }
  membership_.times_.reset();
  endAllAt(times.renewed);
  for (auto const [source, end] : requested) requestedTimeIs(source, end);
}

void FilterState::lowerMode(Time end) {
  if (auto* const times = membership_.times_.get()) {
    if (times->ofMode.near(end) > end) times->ofMode = Deadline(end);
    for (auto const [source, time] : times->ofRequested)
      if (time.near(end) > end) time = Deadline(end);
  }
  wakeUpBy(end);
}

// ---- Time

void FilterState::expire() {
  Time const now = timerWheel_.now();
  if (!membership_.times_) {
    withdraw();
  } else if (membership_.includes()) {
    expireSources(now);
  } else if (membership_.times_->ofMode.near(now) <= now) {
    expireMode(now);
  } else {
    expireRequested(now);
  }
}

void FilterState::expireSources(Time now) {
  auto const& ofSources = membership_.times_->ofSources;
  for (std::uint32_t i = membership_.source().size(); i-- > 0;)
    if (ofSources[i].near(now) <= now) remove(IpAddr(membership_.source().keyAt(i)));
  if (wantsNothing()) {
    withdraw();
    return;
  }
  Time next = Time::max();
  for (Deadline const time : ofSources) next = std::min(next, time.near(now));
  timerWheel_.scheduleAt(membership_, next);
}

/// EXCLUDE(X,Y) becomes INCLUDE(X), less what of X has ended (RFC 9776 section 6.5).
void FilterState::expireMode(Time now) {
  auto const requested = std::move(membership_.times_->ofRequested);
  membership_.times_.reset();
  for (IpAddr const source : membership_.source().keys()) remove(source);
  modeIs(Mode::include);
  Time next = Time::max();
  auto times = std::make_unique<LearnedMembership::Times>(now);
  for (auto const [source, time] : requested) {
    if (time.near(now) <= now) continue;
    membership_.sourceIs(source);
    times->ofSources.push_back(time);
    next = std::min(next, time.near(now));
  }
  if (wantsNothing()) {
    withdraw();
    return;
  }
  membership_.times_ = std::move(times);
  timerWheel_.scheduleAt(membership_, next);
}

/// What of many nobody asks for any more is excluded, though others are still in EXCLUDE mode.
void FilterState::expireRequested(Time now) {
  auto& times = *membership_.times_;
  Time next = times.ofMode.near(now);
  for (std::uint32_t i = times.ofRequested.size(); i-- > 0;) {
    Time const end = times.ofRequested.mappedAt(i).near(now);
    if (end > now) {
      next = std::min(next, end);
      continue;
    }
    IpAddr const source = times.ofRequested.keyAt(i);
    times.ofRequested.takeAt(i);
    add(source);
  }
  if (times.ofRequested.empty())
    endAllAt(next);
  else
    timerWheel_.scheduleAt(membership_, next);
}

// ---- One change

void FilterState::modeIs(Mode mode) {
  if (membership_.filterMode() == mode) return;
  membership_.filterModeIs(mode);
  changed_ = true;
}

/// Lists a source in A or Y. Returns whether it is new there.
bool FilterState::add(IpAddr source) {
  if (membership_.source(source) || !hasRoom()) return false;
  membership_.sourceIs(source);
  return changed_ = true;
}

/// Takes a source from A or Y.
void FilterState::remove(IpAddr source) {
  std::uint32_t const position = membership_.source().position(source);
  if (position == LearnedMembership::unlisted) return;
  if (membership_.times_ && !membership_.times_->ofSources.empty()) {
    auto& ofSources = membership_.times_->ofSources;
    ofSources[position] = ofSources.back();  // as the list of sources does
    ofSources.pop_back();
  }
  membership_.sourceDel(source);
  changed_ = true;
}

bool FilterState::hasRoom() {
  if (membership_.sourceCount() < maxSources_) return true;
  refused_ = true;
  return false;
}

/// Makes room for times that differ.
LearnedMembership::Times& FilterState::times() {
  if (!membership_.times_) {
    Time const end = membership_.deadline();
    membership_.times_ = std::make_unique<LearnedMembership::Times>(end);
    if (membership_.includes())
      membership_.times_->ofSources.assign(membership_.source().size(), Deadline(end));
  }
  return *membership_.times_;
}

Deadline* FilterState::requestedTime(IpAddr source) {
  return membership_.times_ ? membership_.times_->ofRequested.find(source) : nullptr;
}

/// Puts a source into X.
void FilterState::requestedTimeIs(IpAddr source, Deadline end) {
  if (Deadline* const known = requestedTime(source))
    *known = end;
  else if (hasRoom())
    times().ofRequested.add(source, end);
  else
    return;
  if (membership_.isOfMany()) wakeUpBy(end.near(membership_.deadline()));
}

void FilterState::endAllAt(Time end) {
  membership_.times_.reset();
  timerWheel_.scheduleAt(membership_, end);
}

/// Has the timer be due no later.
void FilterState::wakeUpBy(Time time) {
  if (membership_.scheduled() && membership_.deadline() <= time) return;
  timerWheel_.scheduleAt(membership_, time);
}

}  // namespace Bridging::IgmpSnooping
