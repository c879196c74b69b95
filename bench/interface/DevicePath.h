#pragma once

#include <chrono>
#include <functional>
#include <utility>

#include "bench/interface/VethPair.h"
#include "platform/interface/SocketEthDevPams.h"
#include "proxy/ProxyPam.h"

namespace Bench {

/// The way of a frame through all layers: the socket, the multiplexer of its interface, the proxy's
/// manager and the packet access of its VLAN, on an event loop.
class DevicePath {
 public:
  DevicePath() {
    Wirex::IntfId const intf(VethPair::nearName());
    kernelIntfs_->intfStatusAndDeviceNameIs(
        intf, {VethPair::nearName(), VethPair::instance().nearIndex()});
    bridging_->vlanConfigIs(vlan)->intfConfigIs(intf);
    desired_->intfDesiredIs(intf, true);
    hosted_->portInfoIs(intf)->vlanIs(vlan, true);
    vlanPam_ = manager_->portVlanPamIs({vlan, intf});
    reader_ = Kel::make<Reader>(vlanPam_);
  }

  /// Waits for frames, and calls a function with each.
  template <class Action>
  void turn(Action action) {
    reader_->actionIs(std::ref(action));
    loop_.turn(loop_.now() + std::chrono::milliseconds(100));
  }

  Wirex::VlanPam& vlanPam() { return *vlanPam_; }
  void endBatch() { loop_.endBatch(); }

 private:
  static inline Bridging::VlanId const vlan{1};

  class Reader final : public Wirex::Pam::NotifieeConst {
   public:
    explicit Reader(Kel::Ptr<Wirex::Pam const> pam) { watch(std::move(pam)); }

    void actionIs(std::function<void(Wirex::Bytes)> action) { action_ = std::move(action); }

    void onInputPkt() override { action_(notifier()->inputPkt()->bytes()); }

   private:
    std::function<void(Wirex::Bytes)> action_;
  };

  Horix::EventLoop loop_{Kel::make<Horix::TimerWheel>(Kel::make<Horix::MonotonicClock>())};
  Interface::SocketEthDevPams devices_{loop_};
  Kel::Ptr<Bridging::Config> bridging_ = Kel::make<Bridging::Config>();
  Kel::Ptr<Interface::PamDesiredIntfDir> desired_ =
      Kel::make<Interface::PamDesiredIntfDir>("bench");
  Kel::Ptr<Bridging::IgmpSnooping::Proxy::PortVlanMapping> hosted_ =
      Kel::make<Bridging::IgmpSnooping::Proxy::PortVlanMapping>();
  Kel::Ptr<Interface::DeviceIntfStatusDir> kernelIntfs_ =
      Kel::make<Interface::DeviceIntfStatusDir>();
  Kel::Ptr<Bridging::IgmpSnooping::Proxy::ProxyPamManager> manager_ =
      Bridging::IgmpSnooping::Proxy::proxyPamManagerFactory(bridging_, desired_, hosted_,
                                                            kernelIntfs_);
  Wirex::VlanPam::Ptr vlanPam_;
  Kel::Ptr<Reader> reader_;
};

}  // namespace Bench
