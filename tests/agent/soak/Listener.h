#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>

#include "tests/agent/soak/Agenda.h"

namespace Agent::Soak {

/// A host that listens to groups and speaks IGMPv1, v2 or v3, and towards an older querier its
/// version (RFC 9776 sections 5 and 7.2, RFC 2236, RFC 1112). Nobody else's reports reach it.
class Listener {
 public:
  using Send = std::function<void(Message const&)>;

  /// @param version the highest it knows.
  Listener(Address address, int version, Agenda& agenda, Chance& chance, Send send);

  Address address() const { return address_; }
  int version() const { return version_; }

  /// From which sources it wants which groups.
  std::map<Address, Filter> const& wanted() const { return wanted_; }
  Filter wanted(Address group) const;

  /// Joins a group, changes its sources, or leaves it.
  void wantedIs(Address group, Filter const& filter);

  /// Wants nothing any more, and tells nobody.
  void vanish();

  void hear(Message const& query);

  /// What it reports of a group in the version that it speaks now; include without sources if
  /// nothing.
  Filter reported(Address group) const;

 private:
  /// What of a group's change has not been sent often enough (RFC 9776 section 5.1).
  struct Change {
    unsigned modeLeft = 0;
    std::map<Address, unsigned> sourceLeft;
    std::optional<Time> repeat;

    bool done() const { return modeLeft == 0 && sourceLeft.empty(); }
  };
  struct Answer {
    Time due{};
    bool everySource = true;
    Sources sources;
  };

  int speaks() const;
  void change(Address group, Filter const& before, Filter const& after);
  void sendChange(Address group);
  std::vector<Record> recordsOf(Address group, Change& change) const;
  void sendOlder(Address group);
  void answerGeneral(Time due);
  void answerLater(Address group, Time due, Sources const& sources);
  void answer(Address group, Time due);
  void send(std::vector<Record> records);

  Address address_;
  int version_;
  Agenda& agenda_;
  Chance& chance_;
  Send send_;
  std::map<Address, Filter> wanted_;
  std::map<Address, Change> changes_;
  std::optional<Time> generalAnswer_;
  std::map<Address, Answer> answers_;
  std::map<int, Time> olderQuerierUntil_;  // by version
};

}  // namespace Agent::Soak
