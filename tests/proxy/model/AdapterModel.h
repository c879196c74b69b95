#pragma once

#include <cstddef>
#include <deque>
#include <map>
#include <memory>
#include <set>
#include <tuple>
#include <vector>

#include "tests/proxy/model/Picture.h"

/// A naive second adapter, in plain containers and without entities, reactors or shared code, to
/// which the real one is compared. It does everything the long way.
namespace Bridging::IgmpSnooping::Proxy::Model {

/// Entries by key, and the order in which the real collection walks them: two of the adapter's
/// results depend on it (a clean-up stops at the first missing host, and ports that go over to
/// other objects count one after the other).
template <class Key, class T>
struct Keyed {
  std::map<Key, T> at;
  std::vector<Key> order;

  T find(Key const& key) const {
    auto const entry = at.find(key);
    return entry == at.end() ? T{} : entry->second;
  }
};

struct Membership {
  bool excludes = true;
  std::set<int> sources;
};

struct Port {
  Keyed<int, std::shared_ptr<Membership>> memberships;
};

struct Group {
  Keyed<int, std::shared_ptr<Port>> ports;
};

struct Status {
  Keyed<int, std::shared_ptr<Group>> groups;
};

/// What lies outside of an adapter: the keys of its hosts, and the hosts.
using HostKeys = Keyed<HostKey, bool>;
using Hosts = std::map<HostKey, HostPicture>;

/// Where a reactor stands; the numbers that it does not need are 0.
struct Place {
  int group = 0;
  int port = 0;
  int reporter = 0;

  friend bool operator<(Place const& a, Place const& b) {
    return std::tie(a.group, a.port, a.reporter) < std::tie(b.group, b.port, b.reporter);
  }
  friend bool operator==(Place const&, Place const&) = default;
};

/// Deliberate departures, by which the comparison is shown to notice what it should.
enum class Perturbation {
  none,
  starGThresholdOfThree,
  leavingReporterEvaluatesPort,
  leavingPortTakesBackItsCounts,
  clearingPassesMissingHosts,
  absentExcludeIsNotDecremented,
  mergeIsExact,
  newReporterIsNotStarG,
  replacedReporterIsNoChange,
  changesAreHeardAtOnce,
};

class AdapterModel {
 public:
  AdapterModel(HostKeys const& hostKeys, Hosts& hosts, std::shared_ptr<Status const> status,
               Perturbation perturbation);
  AdapterModel(AdapterModel const&) = delete;
  AdapterModel& operator=(AdapterModel const&) = delete;
  ~AdapterModel();

  /// Heard at once.
  void statusIs(std::shared_ptr<Status const> status);
  void groupChanged(Status const& status, int group);
  void hostKeyChanged(HostKey const& key);
  void reportRaised(Status const& status);

  /// Heard when activities run, if a reactor stands in that place and watches that object.
  void portChanged(Place const& groupPlace, Group const& group, int port);
  void reporterChanged(Place const& portPlace, Port const& port, int reporter);
  void modeChanged(Place const& place, Membership const& membership);
  void sourceChanged(Place const& place, Membership const& membership, int source);

  /// Returns how many notifications were delivered.
  std::size_t runActivities();

  bool hasGroup(int group) const { return groups_.contains(group); }
  GroupPicture picture(int group) const;
  VlanPicture picture() const;

 private:
  struct PortReactor {
    std::shared_ptr<Port const> watched;
    bool starG = false;
    bool includeMode = false;
    std::uint16_t changes = 0;
    Counts include;
    Counts exclude;
    std::map<int, std::shared_ptr<Membership const>> reporters;
  };

  struct GroupReactor {
    std::shared_ptr<Group const> watched;
    std::uint16_t starGCount = 0;
    Counts include;
    Counts exclude;
    bool hostChanged = false;
    std::map<int, PortReactor> ports;
  };

  enum class Callback { port, reporter, mode, source };

  struct Pending {
    Callback callback;
    Place place;
    int key;

    friend bool operator==(Pending const&, Pending const&) = default;
  };

  /// What a host is to report: the merged filters of some of a group's ports.
  struct Merged {
    bool starG = false;
    std::set<int> include;
    std::set<int> exclude;
  };

  bool perturbed(Perturbation perturbation) const { return perturbation_ == perturbation; }
  void queue(Pending const& pending);
  void deliver(Pending const& pending);
  bool hears(Place const& place, Membership const& membership);

  GroupReactor* groupAt(Place const& place);
  PortReactor* portAt(Place const& place);

  void followGroups();
  void groupIs(int group, std::shared_ptr<Group const> const& watched);
  void groupDel(int group);
  void portIs(Place const& place, std::shared_ptr<Port const> const& watched);
  void portDel(Place const& place);
  void reporterIs(Place const& place, std::shared_ptr<Membership const> const& watched);
  void reporterDel(Place const& place);

  void starGIs(GroupReactor& group, PortReactor& port, bool starG);
  static void list(GroupReactor& group, Counts& ofGroup, Counts& ofPort, int source);
  static void unlist(GroupReactor& group, Counts& ofGroup, Counts& ofPort, int source);
  void unlistExclude(GroupReactor& group, PortReactor& port, int source) const;
  void evaluate(GroupReactor& group, PortReactor& port);
  void mergeIncludes(GroupReactor& group, PortReactor& port, Counts const& included);
  void mergeExcludes(GroupReactor& group, PortReactor& port, Counts const& included,
                     Counts const& excluded);

  void updateHosts();
  void clear(int group);
  void report(HostKey const& key, int group);
  Merged allPorts(GroupReactor const& group) const;
  static Merged allPortsBut(GroupReactor const& group, PortReactor const& own);
  static Merged exactly(GroupReactor const& group);

  HostKeys const& hostKeys_;
  Hosts& hosts_;
  std::shared_ptr<Status const> status_;
  Perturbation perturbation_;
  std::map<int, GroupReactor> groups_;
  std::deque<Pending> pending_;
};

}  // namespace Bridging::IgmpSnooping::Proxy::Model
