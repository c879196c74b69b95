#include "platform/interface/EthDevPamManager.h"

#include <utility>

#include "framework/kel/Assertion.h"
#include "framework/kel/Exception.h"
#include "framework/kel/Reactors.h"
#include "framework/kel/Trace.h"
#include "platform/interface/EthDevPams.h"

KEL_TRACE_MODULE("Interface::EthDevPam", "EthDevPamManager")

namespace Interface {

using Wirex::IntfId;

class EthDevPamManager::KelDesired final
    : public Kel::ReactorFor<EthDevPamManager, PamDesiredIntfDir::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onIntfDesired(IntfId intf) override {
    if (notificationActive()) owner().handleIntf(intf);
  }
  void onIntfDesiredkelImmediate() override {
    if (notificationActive()) owner().handleIntf();
  }
};

class EthDevPamManager::KelKernelIntfStatusDir final
    : public Kel::ReactorFor<EthDevPamManager, DeviceIntfStatusDir::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onIntfStatusAndDeviceName(IntfId intf) override {
    if (notificationActive()) owner().handleIntf(intf);
  }
  void onIntfStatusAndDeviceNamekelImmediate() override {
    if (notificationActive()) owner().handleIntf();
  }
};

EthDevPamManager::EthDevPamManager(Kel::Ptr<PamDesiredIntfDir const> desired,
                                   Kel::Ptr<EthDevPamCollection> opened,
                                   Kel::Ptr<DeviceIntfStatusDir const> kernelIntfStatusDir)
    : opened_(std::move(opened)) {
  Kel::nonNull(desired, "Interface::EthDevPamManager", "desired");
  Kel::nonNull(opened_, "Interface::EthDevPamManager", "opened");
  Kel::nonNull(kernelIntfStatusDir, "Interface::EthDevPamManager", "kernelIntfStatusDir");
  desired_ = Kel::make<KelDesired>(std::move(desired), this);
  kernelIntfStatusDir_ = Kel::make<KelKernelIntfStatusDir>(std::move(kernelIntfStatusDir), this);
}

EthDevPamManager::~EthDevPamManager() {
  EthDevPamManager::kelDoZombieReactors(true);
}

void EthDevPamManager::bufferSizeIs(std::size_t bytes) {
  if (bytes == settings_.bufferSize) return;
  settings_.bufferSize = bytes;
  handleIntf();
}

void EthDevPamManager::protocolIs(std::uint16_t protocol) {
  if (protocol == settings_.protocol) return;
  settings_.protocol = protocol;
  handleIntf();
}

void EthDevPamManager::filterIs(std::size_t instructions, BpfInstruction const* program) {
  SocketFilter filter(program, program + instructions);
  if (filter == settings_.filter) return;
  settings_.filter = std::move(filter);
  handleIntf();
}

void EthDevPamManager::enabledIs(bool enabled) {
  if (enabled == enabled_) return;
  enabled_ = enabled;
  handleIntf();
}

// A reactor that is not active hears of nothing, so one that is active again looks at all.
void EthDevPamManager::hasNotificationActiveIs(bool active) {
  bool const awakes = active && !desired_->hasNotificationActive();
  desired_->hasNotificationActiveIs(active);
  kernelIntfStatusDir_->hasNotificationActiveIs(active);
  if (awakes && !desired_->isZombie()) handleIntf();
}

void EthDevPamManager::kelDoZombieReactors(bool zombie) {
  desired_->kelDoZombieReactors(zombie);
  kernelIntfStatusDir_->kelDoZombieReactors(zombie);
}

void EthDevPamManager::handleIntf() {
  Kel::Ptr<EthDevPamManager> const self(this);
  for (IntfId const& intf : opened_->intfPam().keys()) handleIntf(intf);
  for (IntfId const& intf : desired_->notifier()->intfDesired().keys()) handleIntf(intf);
}

void EthDevPamManager::handleIntf(IntfId const& intf) {
  Kel::Ptr<EthDevPamManager> const self(this);
  auto const device = kernelIntfStatusDir_->notifier()->intfStatusAndDeviceName(intf);
  bool const wanted =
      enabled_ && desired_->notifier()->intfDesired(intf) && device != IntfStatusAndDeviceName();
  if (!wanted) {
    KEL_TRACE(8, intf << " is closed");
    opened_->intfPamDel(intf);
    return;
  }
  if (auto const open = opened_->intfPam(intf);
      open && open->device() == device && open->settings() == settings_)
    return;
  EthDevPams* const devices = EthDevPams::ofThread();
  KEL_ASSERT(devices, "EthDevPams::ofThread()");
  if (auto const pam = devices->pam(intf, device, settings_)) {
    KEL_TRACE(8, intf << " is opened on " << device.deviceName);
    opened_->intfPamIs(pam);
  } else {
    opened_->intfPamDel(intf);
  }
}

}  // namespace Interface
