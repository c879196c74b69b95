#include "platform/interface/SocketOpener.h"

#include <utility>

namespace Interface {

SocketOpener::~SocketOpener() = default;

SocketOpener::Request::~Request() = default;

std::unique_ptr<SocketOpener::Request> DirectSocketOpener::open(
    IntfStatusAndDeviceName const& device, EthDevSettings const& settings, Opened opened) {
  auto socket = std::make_unique<PacketSocket>(system_);
  try {
    socket->open(device, settings);
  } catch (FailedCall const& failed) {
    opened(failed);
    return nullptr;
  }
  opened(std::move(socket));
  return nullptr;
}

void DirectSocketOpener::close(std::unique_ptr<PacketSocket> socket) {
  socket.reset();
}

}  // namespace Interface
