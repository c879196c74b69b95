#pragma once

#include <functional>
#include <map>
#include <optional>

#include "tests/agent/soak/Agenda.h"

namespace Agent::Soak {

/// A multicast router on one network: queries while it is elected, and believes what reports say
/// (RFC 9776 section 6 and 7.3; RFC 2236 and RFC 1112 where it is set to an older version).
class Router {
 public:
  using Send = std::function<void(Message const&)>;

  Router(Address address, Agenda& agenda, Send send);

  Address address() const { return address_; }

  /// A router that starts knows nothing. One that stops is silent at once.
  bool runs() const { return runs_; }
  void runsIs(bool runs);

  int version() const { return version_; }
  void versionIs(int version) { version_ = version; }

  bool isQuerier() const { return runs_ && otherQuerierUntil_ <= agenda_.now(); }

  void hear(Message const& message);

  /// Asks for all groups, besides the queries that are due.
  void queryGenerally();

  /// Asks for one group, or sources of it, whatever it believes.
  void query(Address group, Sources const& sources);

  /// Which sources of which groups it forwards.
  std::map<Address, Filter> belief() const;

 private:
  struct Group {
    bool exclude = false;
    Time until{};                     // of exclude mode
    std::map<Address, Time> sources;  // in exclude mode, one that has run out is excluded
    Time v1HostUntil{};
    Time v2HostUntil{};
    unsigned queriesLeft = 0;
    std::map<Address, unsigned> sourceQueriesLeft;
  };

  void settle(Address address);
  void hear(Record const& record);
  void hearRecord(Group& group, Record const& record);
  void askFor(Address address, Group& group, Sources const& sources);
  void askForAll(Address address, Group& group);
  void continueAsking(Address address);
  void scheduleGeneralQuery(Time delay);

  Address address_;
  Agenda& agenda_;
  Send send_;
  bool runs_ = false;
  int version_ = 3;
  unsigned run_ = 0;  // counts the starts: what was put on the agenda before is void
  unsigned startupQueriesLeft_ = 0;
  Time otherQuerierUntil_{};
  std::map<Address, Group> groups_;
};

}  // namespace Agent::Soak
