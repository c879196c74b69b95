#pragma once

#include <cstddef>
#include <cstdint>

#include "framework/entities/DeviceIntfStatus.h"
#include "platform/interface/EthDevPamCollection.h"

namespace Interface {

/// Opens device packet access for exactly those desired interfaces that the kernel has, through
/// the thread's EthDevPams, and keeps it in a collection. It follows interfaces that come, go and
/// are made again or renamed. It is off until it is switched on, so that all settings are there
/// before a device can receive its first frame.
class KEL_EXPORT EthDevPamManager : public Kel::PtrInterface {
 public:
  /// @param desired on which interfaces packet access is desired
  /// @param opened where the manager keeps what it opens
  /// @param kernelIntfStatusDir the interfaces that the kernel has
  EthDevPamManager(Kel::Ptr<PamDesiredIntfDir const> desired, Kel::Ptr<EthDevPamCollection> opened,
                   Kel::Ptr<DeviceIntfStatusDir const> kernelIntfStatusDir);
  ~EthDevPamManager() override;

  EthDevSettings const& settings() const { return settings_; }
  /// The size of the receive buffers, in bytes.
  void bufferSizeIs(std::size_t bytes);
  /// The packet sockets' protocol, in host byte order (linux/if_ether.h).
  void protocolIs(std::uint16_t protocol);
  /// The program that frames have to pass: `instructions` of them.
  void filterIs(std::size_t instructions, BpfInstruction const* program);

  bool enabled() const { return enabled_; }
  void enabledIs(bool enabled);

  void hasNotificationActiveIs(bool active) override;
  void kelDoZombieReactors(bool zombie) override;

 private:
  class KelDesired;
  class KelKernelIntfStatusDir;

  void handleIntf();
  void handleIntf(Wirex::IntfId const& intf);

  EthDevSettings settings_;
  bool enabled_ = false;
  Kel::Ptr<EthDevPamCollection> opened_;
  Kel::Ptr<KelDesired> desired_;
  Kel::Ptr<KelKernelIntfStatusDir> kernelIntfStatusDir_;
};

}  // namespace Interface
