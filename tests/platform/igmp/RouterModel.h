#pragma once

#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "tests/platform/igmp/HostTesting.h"

namespace IgmpTest {

using AddressSet = std::set<IpAddr>;

inline AddressSet operator+(AddressSet a, AddressSet const& b) {
  a.insert(b.begin(), b.end());
  return a;
}
inline AddressSet operator-(AddressSet a, AddressSet const& b) {
  for (IpAddr const each : b) a.erase(each);
  return a;
}
inline AddressSet operator*(AddressSet const& a, AddressSet const& b) {
  return a - (a - b);
}

/// What an IGMPv3 router that is its link's querier knows of it, naively after RFC 9776 section 6:
/// sets, and a time for each timer.
class RouterModel {
 public:
  static constexpr seconds groupMembershipInterval{270};
  static constexpr seconds lastMemberQueryInterval{1};

  struct Group {
    bool excludes = false;
    Horix::Time groupTimer{};
    std::map<IpAddr, Horix::Time> timers;  // of the sources that are requested: A, or X
    AddressSet excluded;                   // Y
  };

  struct Query {
    IpAddr group;
    AddressSet sources;
  };

  explicit RouterModel(int robustness) : robustness_(robustness) {}

  /// The queries to be sent by now.
  std::vector<Query> advance(Horix::Time now) {
    now_ = now;
    for (auto& [address, group] : groups_) expire(group);
    std::vector<Query> due;
    for (auto const end = queries_.upper_bound(now); queries_.begin() != end;)
      due.push_back(queries_.extract(queries_.begin()).mapped());
    return due;
  }

  /// Sections 6.4.1 and 6.4.2, with their letters.
  void hears(Record const& record) {
    using enum Wirex::IgmpV3GroupRecordType;
    auto const type = static_cast<Wirex::IgmpV3GroupRecordType>(record.type);
    Group& group = groups_[record.group];
    AddressSet const heard(record.sources.begin(), record.sources.end());
    if (!group.excludes) {
      AddressSet const& B = heard;
      AddressSet const A = requested(group);
      switch (type) {
        case modeIsInclude:
        case allowNewSources:  // INCLUDE (A+B); (B)=GMI
          timersAre(group, B, groupMembershipInterval);
          break;
        case blockOldSources:  // INCLUDE (A); Send Q(G,A*B)
          query(record.group, group, A * B);
          break;
        case changeToIncludeMode:  // INCLUDE (A+B); (B)=GMI; Send Q(G,A-B)
          timersAre(group, B, groupMembershipInterval);
          query(record.group, group, A - B);
          break;
        case modeIsExclude:
        case changeToExcludeMode:  // EXCLUDE (A*B,B-A); Delete (A-B); Group Timer=GMI
          group.excludes = true;
          group.excluded = B - A;
          erase(group, A - B);
          group.groupTimer = now_ + groupMembershipInterval;
          if (type == changeToExcludeMode) query(record.group, group, A * B);  // Send Q(G,A*B)
          break;
      }
      return;
    }
    AddressSet const& A = heard;
    AddressSet const X = requested(group);
    AddressSet const Y = group.excluded;
    switch (type) {
      case modeIsInclude:
      case allowNewSources:  // EXCLUDE (X+A,Y-A); (A)=GMI
        timersAre(group, A, groupMembershipInterval);
        group.excluded = Y - A;
        break;
      case blockOldSources:  // EXCLUDE (X+(A-Y),Y); (A-X-Y)=Group Timer; Send Q(G,A-Y)
        timersAre(group, A - X - Y, group.groupTimer - now_);
        query(record.group, group, A - Y);
        break;
      case changeToIncludeMode:  // EXCLUDE (X+A,Y-A); (A)=GMI; Send Q(G,X-A); Send Q(G)
        timersAre(group, A, groupMembershipInterval);
        group.excluded = Y - A;
        query(record.group, group, X - A);
        queryGroup(record.group, group);
        break;
      case modeIsExclude:  // EXCLUDE (A-Y,Y*A); (A-X-Y)=GMI; Delete (X-A), (Y-A); Group Timer=GMI
      case changeToExcludeMode:  // ... (A-X-Y)=Group Timer; ... Send Q(G,A-Y)
        erase(group, X - A);
        group.excluded = Y * A;
        timersAre(
            group, A - X - Y,
            type == modeIsExclude ? Horix::Time(groupMembershipInterval) : group.groupTimer - now_);
        group.groupTimer = now_ + groupMembershipInterval;
        if (type == changeToExcludeMode) query(record.group, group, A - Y);
        break;
    }
  }

  /// What the router takes the members of a group to want, as a host's record would say it.
  std::string state(IpAddr address) {
    Group& group = groups_[address];
    AddressSet const& sources = group.excludes ? group.excluded : requested(group);
    if (!group.excludes && sources.empty()) return "nothing";
    return text(group.excludes ? 2 : 1, address, {sources.begin(), sources.end()});
  }

 private:
  static AddressSet requested(Group const& group) {
    AddressSet sources;
    for (auto const& [source, end] : group.timers) sources.insert(source);
    return sources;
  }
  static void erase(Group& group, AddressSet const& sources) {
    for (IpAddr const source : sources) group.timers.erase(source);
  }
  void timersAre(Group& group, AddressSet const& sources, Horix::Time time) {
    for (IpAddr const source : sources) group.timers[source] = now_ + time;
  }

  /// Section 6.3, and 6.5 for the group timer.
  void expire(Group& group) {
    for (auto each = group.timers.begin(); each != group.timers.end();) {
      if (each->second > now_) {
        ++each;
        continue;
      }
      if (group.excludes) group.excluded.insert(each->first);
      each = group.timers.erase(each);
    }
    if (group.excludes && group.groupTimer <= now_) {
      group.excludes = false;
      group.excluded.clear();
    }
  }

  // Section 6.6.3: timers are lowered to the last member query time, and the query is repeated.
  void query(IpAddr address, Group& group, AddressSet const& sources) {
    if (sources.empty()) return;
    for (IpAddr const source : sources)
      group.timers[source] = std::min(group.timers[source], now_ + lastMemberQueryTime());
    schedule({address, sources});
  }
  void queryGroup(IpAddr address, Group& group) {
    group.groupTimer = std::min(group.groupTimer, now_ + lastMemberQueryTime());
    schedule({address, {}});
  }
  Horix::Time lastMemberQueryTime() const {
    return (robustness_ + 1) * lastMemberQueryInterval;  // with the answer to the last query
  }
  void schedule(Query const& query) {
    for (int i = 0; i < robustness_; ++i)
      queries_.emplace(now_ + i * lastMemberQueryInterval, query);
  }

  int robustness_;
  Horix::Time now_{};
  std::map<IpAddr, Group> groups_;
  std::multimap<Horix::Time, Query> queries_;
};

}  // namespace IgmpTest
