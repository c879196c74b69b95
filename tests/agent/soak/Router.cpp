#include "tests/agent/soak/Router.h"

#include <algorithm>

namespace Agent::Soak {

namespace {

constexpr auto lastMemberQueryTime = robustness * lastMemberQueryInterval;

}  // namespace

Router::Router(Address address, Agenda& agenda, Send send)
    : address_(address), agenda_(agenda), send_(std::move(send)) {}

void Router::runsIs(bool runs) {
  if (runs == runs_) return;
  runs_ = runs;
  ++run_;
  groups_.clear();
  otherQuerierUntil_ = Time::zero();
  startupQueriesLeft_ = robustness;
  if (runs) scheduleGeneralQuery(Time::zero());
}

void Router::scheduleGeneralQuery(Time delay) {
  agenda_.in(delay, [this, run = run_] {
    if (run != run_) return;
    if (isQuerier()) queryGenerally();
    if (startupQueriesLeft_ > 0) --startupQueriesLeft_;
    scheduleGeneralQuery(startupQueriesLeft_ > 0 ? queryInterval / 4 : Time(queryInterval));
  });
}

void Router::queryGenerally() {
  send_({Message::Kind::query, version_, address_, {}, {}, {}, queryResponseTime, {}});
}

void Router::query(Address group, Sources const& sources) {
  send_(
      {Message::Kind::query, version_, address_, {}, group, sources, lastMemberQueryInterval, {}});
}

void Router::hear(Message const& message) {
  if (!runs_) return;
  if (message.isQuery()) {
    if (message.source != Address() && message.source < address_)
      otherQuerierUntil_ = agenda_.now() + otherQuerierPresentInterval;
    return;
  }
  if (message.version > version_) return;  // unknown to a router of that version
  if (message.kind == Message::Kind::leave) {
    hear(Record{RecordType::toIn, message.group, {}});
  } else if (message.version < 3) {
    // RFC 9776 section 7.3.2.
    Group& group = groups_[message.group];
    Time& until = message.version == 1 ? group.v1HostUntil : group.v2HostUntil;
    until = agenda_.now() + groupMembershipInterval;
    hear(Record{RecordType::isEx, message.group, {}});
  } else {
    for (Record const& record : message.records) hear(record);
  }
}

/// Lets the timers of a group run out that are due.
void Router::settle(Address address) {
  auto const found = groups_.find(address);
  if (found == groups_.end()) return;
  Group& group = found->second;
  Time const now = agenda_.now();
  if (group.exclude && group.until <= now) group.exclude = false;
  if (!group.exclude)
    std::erase_if(group.sources, [&](auto const& entry) { return entry.second <= now; });
}

void Router::hear(Record const& record) {
  settle(record.group);
  Group& group = groups_[record.group];
  bool const v1 = version_ == 1 || group.v1HostUntil > agenda_.now();
  bool const v2 = version_ == 2 || group.v2HostUntil > agenda_.now();
  Record meant = record;
  if (v1 || v2) {
    if (record.type == RecordType::block) return;
    if (record.type == RecordType::toEx) meant.sources.clear();
  }
  if (v1 && record.type == RecordType::toIn) return;
  hearRecord(group, meant);
}

/// RFC 9776 sections 6.4.1 and 6.4.2.
void Router::hearRecord(Group& group, Record const& record) {
  Time const now = agenda_.now();
  Time const gmi = now + groupMembershipInterval;
  Sources const& a = record.sources;
  auto const running = [&](Address source) {
    auto const found = group.sources.find(source);
    return found != group.sources.end() && found->second > now;
  };
  auto const excluded = [&](Address source) {
    return group.sources.contains(source) && !running(source);
  };
  Sources x;
  for (auto const& [source, until] : group.sources)
    if (until > now) x.insert(source);
  auto const without = [](Sources const& from, auto drop) {
    Sources left;
    for (Address const source : from)
      if (!drop(source)) left.insert(source);
    return left;
  };
  auto const inA = [&](Address source) { return a.contains(source); };

  switch (record.type) {
    // INCLUDE (A), IS_IN (B), ALLOW (B): INCLUDE (A+B), (B)=GMI.
    // EXCLUDE (X,Y), IS_IN (A), ALLOW (A): EXCLUDE (X+A,Y-A), (A)=GMI.
    case RecordType::isIn:
    case RecordType::allow:
      for (Address const source : a) group.sources[source] = gmi;
      return;

    // INCLUDE (A), TO_IN (B): INCLUDE (A+B), (B)=GMI, Send Q(G,A-B).
    // EXCLUDE (X,Y), TO_IN (A): EXCLUDE (X+A,Y-A), (A)=GMI, Send Q(G,X-A), Send Q(G).
    case RecordType::toIn:
      for (Address const source : a) group.sources[source] = gmi;
      askFor(record.group, group, without(x, inA));
      if (group.exclude) askForAll(record.group, group);
      return;

    // INCLUDE (A), BLOCK (B): INCLUDE (A), Send Q(G,A*B).
    // EXCLUDE (X,Y), BLOCK (A): EXCLUDE (X+(A-Y),Y), (A-X-Y)=Group Timer, Send Q(G,A-Y).
    case RecordType::block:
      if (!group.exclude) {
        askFor(record.group, group, without(a, [&](Address s) { return !x.contains(s); }));
        return;
      }
      for (Address const source : a) group.sources.try_emplace(source, group.until);
      askFor(record.group, group, without(a, excluded));
      return;

    // INCLUDE (A), IS_EX (B): EXCLUDE (A*B,B-A), (B-A)=0, Delete (A-B), Group Timer=GMI.
    //              TO_EX (B): the same, Send Q(G,A*B).
    // EXCLUDE (X,Y), IS_EX (A): EXCLUDE (A-Y,Y*A), (A-X-Y)=GMI, Delete (X-A), Delete (Y-A),
    //                           Group Timer=GMI.
    //                TO_EX (A): the same with (A-X-Y)=Group Timer, Send Q(G,A-Y).
    case RecordType::isEx:
    case RecordType::toEx: {
      bool const changes = record.type == RecordType::toEx;
      Time const fresh = !group.exclude ? now : changes ? group.until : gmi;
      for (Address const source : a) group.sources.try_emplace(source, fresh);
      std::erase_if(group.sources, [&](auto const& entry) { return !inA(entry.first); });
      group.exclude = true;
      group.until = gmi;
      if (changes) askFor(record.group, group, without(a, [&](Address s) { return !running(s); }));
      return;
    }
  }
}

void Router::askFor(Address address, Group& group, Sources const& sources) {
  if (!isQuerier() || version_ < 3 || sources.empty()) return;
  for (Address const source : sources) {
    group.sources[source] = std::min(group.sources[source], agenda_.now() + lastMemberQueryTime);
    group.sourceQueriesLeft[source] = robustness;
  }
  continueAsking(address);
}

void Router::askForAll(Address address, Group& group) {
  if (!isQuerier() || version_ < 2) return;
  group.until = std::min(group.until, agenda_.now() + lastMemberQueryTime);
  group.queriesLeft = robustness;
  continueAsking(address);
}

void Router::continueAsking(Address address) {
  auto const found = groups_.find(address);
  if (found == groups_.end() || !isQuerier()) return;
  Group& group = found->second;
  Time const end = agenda_.now() + lastMemberQueryTime;
  if (group.queriesLeft > 0) {
    --group.queriesLeft;
    // Somebody has answered meanwhile: the query is repeated for routers and hosts that missed it.
    query(address, {});
  }
  Sources sources;
  for (auto& [source, left] : group.sourceQueriesLeft) {
    --left;
    auto const known = group.sources.find(source);
    if (known != group.sources.end() && known->second <= end) sources.insert(source);
  }
  std::erase_if(group.sourceQueriesLeft, [](auto const& entry) { return entry.second == 0; });
  if (!sources.empty()) query(address, sources);
  if (group.queriesLeft > 0 || !group.sourceQueriesLeft.empty())
    agenda_.in(lastMemberQueryInterval, [this, address, run = run_] {
      if (run == run_) continueAsking(address);
    });
}

std::map<Address, Filter> Router::belief() const {
  std::map<Address, Filter> belief;
  Time const now = agenda_.now();
  for (auto const& [address, group] : groups_) {
    Filter filter;
    filter.exclude = group.exclude && group.until > now;
    for (auto const& [source, until] : group.sources)
      if (filter.exclude == (until <= now)) filter.sources.insert(source);
    if (!filter.empty()) belief[address] = filter;
  }
  return belief;
}

}  // namespace Agent::Soak
