#pragma once

#include <map>
#include <memory>
#include <vector>

#include "platform/interface/SocketOpener.h"

namespace Interface {

/// Goes on with the sockets that a former program in the same process has left open, so that the
/// frames that came meanwhile are heard. A device for which none was left, or whose interface or
/// settings are others now, is opened anew.
class KEL_EXPORT InheritedSockets final : public SocketOpener {
 public:
  /// @param opener opens the others, and closes.
  /// @param system outlives it.
  InheritedSockets(std::shared_ptr<SocketOpener> opener,
                   std::vector<PacketSocket::PassedOn> const& inherited,
                   SystemCalls& system = SystemCalls::ofKernel());
  ~InheritedSockets() override;

  std::unique_ptr<Request> open(IntfStatusAndDeviceName const& device,
                                EthDevSettings const& settings, Opened opened) override;
  void close(std::unique_ptr<PacketSocket> socket) override;

  /// Closes those that nobody has asked for. For when all interfaces are known.
  void closeRest();

 private:
  std::unique_ptr<PacketSocket> fitting(IntfStatusAndDeviceName const& device,
                                        EthDevSettings const& settings);

  std::shared_ptr<SocketOpener> opener_;
  std::multimap<std::uint32_t, PacketSocket::PassedOn> left_;  // by their interfaces' indices
  SystemCalls& system_;
};

}  // namespace Interface
