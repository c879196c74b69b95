#include "platform/igmp/IgmpHostDirSm.h"

#include <utility>

#include "framework/kel/Reactors.h"
#include "platform/igmp/host/HostSm.h"

namespace Igmp {

class IgmpHostDirSm::KelIgmpHostDir final
    : public Kel::ReactorFor<IgmpHostDirSm, IgmpHostDir::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onIgmpHost(Kel::Name const& name) override {
    if (!notificationActive()) return;
    Kel::Ptr<IgmpHostDirSm> const machine(&owner());
    machine->handleIgmpHost(name);
  }
  void onIgmpHostkelImmediate() override {
    if (!notificationActive()) return;
    Kel::Ptr<IgmpHostDirSm> const machine(&owner());
    machine->handleIgmpHosts();
  }
};

IgmpHostDirSm::IgmpHostDirSm(Kel::Ptr<Kel::ActivityConfig> activity,
                             Kel::Ptr<IgmpHostDir> igmpHostDir,
                             Kel::Ptr<IgmpHostStatusDir> igmpHostStatusDir,
                             Kel::Ptr<Horix::TimerWheel const> timerWheel)
    : activity_(activity ? std::move(activity) : Kel::make<Kel::ActivityConfig>()),
      igmpHostDir_(std::move(igmpHostDir)),
      igmpHostStatusDir_(std::move(igmpHostStatusDir)),
      timerWheel_(std::move(timerWheel)),
      kelIgmpHostDir_(Kel::make<KelIgmpHostDir>(igmpHostDir_, this)) {
  handleIgmpHosts();
}

IgmpHostDirSm::~IgmpHostDirSm() {
  kelIgmpHostDir_->kelDoZombieReactors(true);
  for (Kel::Name const& name : hosts_.keys()) {
    hosts_.del(name);
    igmpHostStatusDir_->igmpHostStatusDel(name);
  }
}

void IgmpHostDirSm::hasNotificationActiveIs(bool active) {
  kelIgmpHostDir_->hasNotificationActiveIs(active);
  for (auto const [name, host] : hosts_) host->hasNotificationActiveIs(active);
  if (active) handleIgmpHosts();
}

void IgmpHostDirSm::kelDoZombieReactors(bool zombie) {
  kelIgmpHostDir_->kelDoZombieReactors(zombie);
  for (auto const [name, host] : hosts_) host->kelDoZombieReactors(zombie);
}

void IgmpHostDirSm::handleIgmpHosts() {
  for (Kel::Name const& name : igmpHostDir_->igmpHost().keys()) handleIgmpHost(name);
  for (Kel::Name const& name : hosts_.keys()) handleIgmpHost(name);
}

void IgmpHostDirSm::handleIgmpHost(Kel::Name const& name) {
  Kel::Ptr<IgmpHost const> const host = igmpHostDir_->igmpHost(name);
  HostSm const* const present = hosts_.find(name);
  if (present && present->host() == host) return;
  if (present) remove(name);
  if (!host) return;
  auto const machine =
      hosts_
          .ensure(name,
                  [&] {
                    return Kel::make<HostSm>(activity_, host,
                                             igmpHostStatusDir_->igmpHostStatusIs(name), sent_,
                                             timerWheel_);
                  })
          .first;
  if (auto const at = memories_.position(name); at != memories_.absent)
    machine->memoryIs(memories_.takeAt(at));
}

HostMemory IgmpHostDirSm::memory(Kel::Name const& host) const {
  HostSm const* const machine = hosts_.find(host);
  return machine ? machine->memory() : HostMemory();
}

std::optional<SentRecords::Sent> IgmpHostDirSm::lastSent(Kel::Name const& host,
                                                         Wirex::IpAddr group) const {
  HostSm const* const machine = hosts_.find(host);
  return machine ? machine->lastSent(group) : std::nullopt;
}

void IgmpHostDirSm::memoryIs(Kel::Name const& host, HostMemory memory) {
  if (HostMemory* const former = memories_.find(host))
    *former = std::move(memory);
  else
    memories_.add(host, std::move(memory));
}

void IgmpHostDirSm::memoryDelAll() {
  memories_ = {};
  for (auto const [name, host] : hosts_) host->memoryIs(std::nullopt);
}

void IgmpHostDirSm::remove(Kel::Name const& name) {
  Kel::Ptr<HostSm> const host = hosts_.get(name);
  hosts_.del(name);
  host->leave();
  igmpHostStatusDir_->igmpHostStatusDel(name);
}

}  // namespace Igmp
