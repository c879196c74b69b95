#include "platform/interface/InheritedSockets.h"

#include <utility>

namespace Interface {

InheritedSockets::InheritedSockets(std::shared_ptr<SocketOpener> opener,
                                   std::vector<PacketSocket::PassedOn> const& inherited,
                                   SystemCalls& system)
    : opener_(std::move(opener)), system_(system) {
  for (PacketSocket::PassedOn const& socket : inherited)
    left_.emplace(static_cast<std::uint32_t>(socket.interfaceIndex), socket);
}

InheritedSockets::~InheritedSockets() {
  closeRest();
}

std::unique_ptr<SocketOpener::Request> InheritedSockets::open(IntfStatusAndDeviceName const& device,
                                                              EthDevSettings const& settings,
                                                              Opened opened) {
  auto socket = fitting(device, settings);
  if (!socket) return opener_->open(device, settings, std::move(opened));
  opened(std::move(socket));
  return nullptr;
}

/// One that does not fit now never will.
std::unique_ptr<PacketSocket> InheritedSockets::fitting(IntfStatusAndDeviceName const& device,
                                                        EthDevSettings const& settings) {
  while (auto const found = left_.extract(device.deviceIndex)) {
    auto socket = std::make_unique<PacketSocket>(system_, found.mapped());
    if (socket->continueWith(device, settings)) return socket;
    close(std::move(socket));
  }
  return nullptr;
}

void InheritedSockets::close(std::unique_ptr<PacketSocket> socket) {
  opener_->close(std::move(socket));
}

void InheritedSockets::closeRest() {
  for (auto const& [interface, passed] : std::exchange(left_, {}))
    close(std::make_unique<PacketSocket>(system_, passed));
}

}  // namespace Interface
