#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "framework/entities/DeviceIntfStatus.h"
#include "framework/types/IntfId.h"
#include "platform/interface/SocketFilter.h"
#include "platform/wirex/Pam.h"

namespace Interface {

class EthDevPams;

/// How packets are received on a device.
struct EthDevSettings {
  std::size_t bufferSize = 2048;  ///< bytes: the longest frame that is received whole
  std::uint16_t protocol = 0;     ///< of the packet socket, as in linux/if_ether.h; 0 receives none
  SocketFilter filter;            ///< what a frame has to pass

  friend bool operator==(EthDevSettings const&, EthDevSettings const&) noexcept = default;
};

/// The packet access of one Ethernet device. Who takes packets from it watches it; several may,
/// so that one device is opened once for all who want the same of it.
class KEL_EXPORT EthDevPam : public Wirex::Pam {
 public:
  /// What has happened on the device so far.
  struct Counters {
    std::uint64_t received = 0;          ///< frames
    std::uint64_t sent = 0;              ///< frames
    std::uint64_t receiveDropped = 0;    ///< by the kernel, because we were too slow
    std::uint64_t receiveTruncated = 0;  ///< longer than packets may be, and therefore ignored
    std::uint64_t receiveFailed = 0;     ///< errors that the device reported
    std::uint64_t sendDropped = 0;       ///< frames that could not be sent
  };

  EthDevPam(Wirex::IntfId intfId, IntfStatusAndDeviceName device, EthDevSettings settings)
      : intfId_(std::move(intfId)), device_(std::move(device)), settings_(std::move(settings)) {}
  ~EthDevPam() override;

  Wirex::IntfId const& intfId() const { return intfId_; }
  IntfStatusAndDeviceName const& device() const { return device_; }
  EthDevSettings const& settings() const { return settings_; }

  /// What has happened so far.
  virtual Counters counters() const = 0;

  /// Why nothing can be heard here, and what to do; empty if something can.
  virtual std::string deafness() const { return {}; }

 protected:
  /// Null once that is gone.
  EthDevPams* openedBy() const { return openedBy_; }

 private:
  friend class EthDevPams;

  Wirex::IntfId intfId_;
  IntfStatusAndDeviceName device_;
  EthDevSettings settings_;
  EthDevPams* openedBy_ = nullptr;
};

}  // namespace Interface
