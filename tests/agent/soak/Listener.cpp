#include "tests/agent/soak/Listener.h"

#include <algorithm>

namespace Agent::Soak {

namespace {

constexpr auto unsolicitedReportInterval = std::chrono::seconds(1);
constexpr auto olderUnsolicitedReportInterval = std::chrono::seconds(10);
constexpr auto olderQuerierPresentTimeout = groupMembershipInterval;

void countDown(std::map<Address, unsigned>& left) {
  for (auto& [source, count] : left) --count;
  std::erase_if(left, [](auto const& entry) { return entry.second == 0; });
}

}  // namespace

Listener::Listener(Address address, int version, Agenda& agenda, Chance& chance, Send send)
    : address_(address),
      version_(version),
      agenda_(agenda),
      chance_(chance),
      send_(std::move(send)) {}

Filter Listener::wanted(Address group) const {
  auto const found = wanted_.find(group);
  return found == wanted_.end() ? Filter() : found->second;
}

Filter Listener::reported(Address group) const {
  Filter const filter = wanted(group);
  return filter.empty() || speaks() == 3 ? filter : Filter::everySource();
}

int Listener::speaks() const {
  int speaks = version_;
  for (auto const& [version, until] : olderQuerierUntil_)
    if (until > agenda_.now()) speaks = std::min(speaks, version);
  return speaks;
}

void Listener::wantedIs(Address group, Filter const& filter) {
  Filter const before = wanted(group);
  if (filter == before) return;
  if (filter.empty())
    wanted_.erase(group);
  else
    wanted_[group] = filter;
  change(group, before, filter);
}

void Listener::vanish() {
  wanted_.clear();
  changes_.clear();
  answers_.clear();
  generalAnswer_.reset();
  std::erase_if(olderQuerierUntil_,
                [this](auto const& entry) { return entry.second <= agenda_.now(); });
}

void Listener::change(Address group, Filter const& before, Filter const& after) {
  if (speaks() < 3) {
    if (before.empty() == after.empty()) return;
    changes_.erase(group);
    if (!after.empty()) {
      changes_[group].modeLeft = robustness;
      sendChange(group);
    } else if (speaks() == 2) {
      send_({Message::Kind::leave, 2, address_, {}, group, {}, {}, {}});
    }
    return;
  }
  Change& change = changes_[group];
  if (before.exclude != after.exclude) {
    change.modeLeft = robustness;
    change.sourceLeft.clear();
  } else {
    for (Sources const* const sources : {&before.sources, &after.sources})
      for (Address const source : *sources)
        if (before.wants(source) != after.wants(source)) change.sourceLeft[source] = robustness;
  }
  sendChange(group);
}

/// Sends what is left of a change, and sees to its repetition.
void Listener::sendChange(Address group) {
  Change& change = changes_[group];
  if (speaks() < 3) {
    sendOlder(group);
    --change.modeLeft;
  } else {
    send(recordsOf(group, change));
  }
  if (change.done()) {
    changes_.erase(group);
    return;
  }
  Time const due = agenda_.now() + chance_.delay(speaks() < 3 ? Time(olderUnsolicitedReportInterval)
                                                              : Time(unsolicitedReportInterval));
  change.repeat = due;
  agenda_.at(due, [this, group, due] {
    auto const found = changes_.find(group);
    if (found != changes_.end() && found->second.repeat == due) sendChange(group);
  });
}

std::vector<Record> Listener::recordsOf(Address group, Change& change) const {
  Filter const filter = wanted(group);
  if (change.modeLeft > 0) {
    --change.modeLeft;
    countDown(change.sourceLeft);
    return {{filter.exclude ? RecordType::toEx : RecordType::toIn, group, filter.sources}};
  }
  Record allow{RecordType::allow, group, {}};
  Record block{RecordType::block, group, {}};
  for (auto const& [source, left] : change.sourceLeft)
    (filter.wants(source) ? allow : block).sources.insert(source);
  countDown(change.sourceLeft);
  std::vector<Record> records;
  if (!allow.sources.empty()) records.push_back(std::move(allow));
  if (!block.sources.empty()) records.push_back(std::move(block));
  return records;
}

void Listener::sendOlder(Address group) {
  send_({Message::Kind::report, speaks(), address_, {}, group, {}, {}, {}});
}

void Listener::send(std::vector<Record> records) {
  if (records.empty()) return;
  send_({Message::Kind::report, 3, address_, {}, {}, {}, {}, std::move(records)});
}

void Listener::hear(Message const& query) {
  int const before = speaks();
  if (query.version < version_)
    olderQuerierUntil_[query.version] = agenda_.now() + olderQuerierPresentTimeout;
  if (speaks() != before) {
    // RFC 9776 section 7.2.1.
    changes_.clear();
    answers_.clear();
    generalAnswer_.reset();
  }
  bool const general = query.group == Address();
  if (version_ == 1 && !general) return;  // it knows of none but general queries
  Time const longest = version_ == 1 ? Time(queryResponseTime) : query.maxResponseTime;
  if (speaks() < 3) {
    if (general)
      for (auto const& [group, filter] : wanted_)
        answerLater(group, agenda_.now() + chance_.delay(longest), {});
    else
      answerLater(query.group, agenda_.now() + chance_.delay(longest), {});
    return;
  }
  // RFC 9776 section 5.2.
  Time const due = agenda_.now() + chance_.delay(longest);
  if (generalAnswer_ && *generalAnswer_ <= due) return;
  if (general)
    answerGeneral(due);
  else
    answerLater(query.group, due, query.sources);
}

void Listener::answerGeneral(Time due) {
  generalAnswer_ = due;
  agenda_.at(due, [this, due] {
    if (generalAnswer_ != due) return;
    generalAnswer_.reset();
    std::vector<Record> records;
    for (auto const& [group, filter] : wanted_)
      records.push_back(
          {filter.exclude ? RecordType::isEx : RecordType::isIn, group, filter.sources});
    send(std::move(records));
  });
}

void Listener::answerLater(Address group, Time due, Sources const& sources) {
  if (!wanted_.contains(group)) return;
  auto const [pending, isNew] = answers_.try_emplace(group, Answer{due, sources.empty(), sources});
  Answer& answer = pending->second;
  if (!isNew) {
    answer.everySource = answer.everySource || sources.empty();
    answer.sources.insert(sources.begin(), sources.end());
    if (answer.due <= due) return;
    answer.due = due;
  }
  agenda_.at(due, [this, group, due] { this->answer(group, due); });
}

void Listener::answer(Address group, Time due) {
  auto const pending = answers_.find(group);
  if (pending == answers_.end() || pending->second.due != due) return;
  Answer const answer = pending->second;
  answers_.erase(pending);
  Filter const filter = wanted(group);
  if (filter.empty()) return;
  if (speaks() < 3) {
    sendOlder(group);
  } else if (answer.everySource) {
    send({{filter.exclude ? RecordType::isEx : RecordType::isIn, group, filter.sources}});
  } else {
    Record record{RecordType::isIn, group, {}};
    for (Address const source : answer.sources)
      if (filter.wants(source)) record.sources.insert(source);
    if (!record.sources.empty()) send({record});
  }
}

}  // namespace Agent::Soak
