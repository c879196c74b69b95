#pragma once

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "framework/entities/AdapterVlanConfig.h"
#include "framework/entities/IgmpContextStatus.h"
#include "platform/igmp/IgmpHost.h"
#include "proxy/ProxyAdapterSm.h"
#include "tests/proxy/model/AdapterModel.h"
#include "tests/proxy/model/Event.h"

namespace Bridging::IgmpSnooping::Proxy::Model {

/// Applies events to the entities around a real adapter and to their plain counterparts around
/// the model, and compares what became of both. Each entity has one plain twin.
class AdapterDriver {
 public:
  /// Begins with two empty statuses, an adapter that follows the first, and no hosts.
  explicit AdapterDriver(Perturbation perturbation);

  /// Returns false, and does nothing, if there is nothing that the event could apply to.
  bool apply(Event const& event);

  /// How adapter and model differ after the latest event; empty where they agree. An event that
  /// can only have queued notifications is followed by a look at its group alone.
  std::string difference() const;

  // What there is, for the choice of the next event.
  bool hasAdapter() const { return model_.has_value(); }
  Igmp::IgmpHostDir const& hostDir() const { return *hostDir_; }
  Status const& status(bool other) const {
    return *statuses_[other ? 1 - followed_ : followed_].twin;
  }

 private:
  template <class Real, class Twin>
  struct Twins {
    Kel::Ptr<Real> real;
    std::shared_ptr<Twin> twin;

    template <class... Parameters>
    static Twins made(Parameters const&... parameters) {
      Twins twins;
      twins.real = Kel::make<Real>(parameters...);
      twins.twin = std::make_shared<Twin>();
      return twins;
    }

    explicit operator bool() const { return twin != nullptr; }
  };
  using Statuses = Twins<IgmpContextStatus, Status>;
  using Groups = Twins<IgmpGroup, Group>;
  using Ports = Twins<IgmpIntfStatus, Port>;
  using Memberships = Twins<IgmpMembership, Membership>;

  Statuses const& statusOf(Event const& event) const;
  Groups groupOf(Event const& event) const;
  Ports portOf(Event const& event) const;
  Memberships membershipOf(Event const& event) const;

  static Groups newGroup(int group, std::vector<Reporter> const& reporters);
  static Ports newPort(int port, std::vector<Reporter> const& reporters);
  static Memberships newMembership(Reporter const& reporter);

  bool makeGroup(Event const& event);
  bool removeGroup(Event const& event);
  bool replaceGroup(Event const& event);
  bool putGroupBack(Event const& event);
  bool shareGroup(Event const& event);
  bool putGroup(Statuses const& status, int group, Groups const& put);

  bool makePort(Event const& event);
  bool removePort(Event const& event);
  bool replacePort(Event const& event);
  bool putPortBack(Event const& event);
  bool putPort(Event const& event, Ports const& put);

  bool makeReporter(Event const& event);
  bool removeReporter(Event const& event);
  bool replaceReporter(Event const& event);
  bool putReporterBack(Event const& event);
  bool putReporter(Event const& event, Memberships const& put);

  bool setMode(Event const& event);
  bool raiseMode(Event const& event);
  bool addSources(Event const& event, Memberships const& membership);
  bool removeSources(Event const& event);
  bool clearSources(Event const& event);
  bool raiseSources(Event const& event);

  bool setHostKey(Event const& event);
  bool removeHostKey(Event const& event);
  bool raiseHostKey(Event const& event);
  bool makeHost(Event const& event);
  bool removeHost(Event const& event);

  bool switchStatus();
  bool dropAdapter();
  bool makeAdapter();
  bool runActivities();
  bool raiseReport();

  void groupWasChanged(Statuses const& status, int group);
  void portWasChanged(Event const& event, Groups const& group);
  void reporterWasChanged(Event const& event, Ports const& port);
  void hostKeyWasChanged(HostKey const& key);

  VlanPicture observedGroup(int group) const;
  VlanPicture observed() const;

  Perturbation perturbation_;
  std::array<Statuses, 2> statuses_;
  std::size_t followed_ = 0;
  Kel::Ptr<AdapterVlanConfig> config_;
  Kel::Ptr<Igmp::IgmpHostDir> hostDir_;
  HostKeys hostKeys_;
  Hosts hosts_;

  // The last one removed in each place.
  std::map<Place, Groups> removedGroups_;
  std::map<Place, Ports> removedPorts_;
  std::map<Place, Memberships> removedMemberships_;

  Kel::Ptr<AdapterSm> adapter_;
  std::optional<AdapterModel> model_;

  Event latest_;
  std::string deliveryDifference_;
};

}  // namespace Bridging::IgmpSnooping::Proxy::Model
