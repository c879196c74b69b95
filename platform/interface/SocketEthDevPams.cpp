#include "platform/interface/SocketEthDevPams.h"

#include <cerrno>
#include <system_error>

#include "framework/kel/Trace.h"
#include "platform/interface/SocketEthDevPam.h"

KEL_TRACE_MODULE("Interface::EthDevPam", "SocketEthDevPams")

namespace Interface {

namespace {

char const* remedy(int error) {
  switch (error) {
    case EPERM:
    case EACCES:
      return "; packet sockets need the capability CAP_NET_RAW";
    case EMFILE:
    case ENFILE:
      return "; each device needs a descriptor, so raise the limit of open files";
    case ENOMEM:
    case ENOBUFS:
      return "; each device needs a megabyte of memory that cannot be swapped";
    case ENODEV:
    case ENXIO:
      return "; see 'ip link' for the devices that there are";
    default:
      return "";
  }
}

}  // namespace

Kel::Ptr<EthDevPam> SocketEthDevPams::newPam(Wirex::IntfId const& intfId,
                                             IntfStatusAndDeviceName const& device,
                                             EthDevSettings const& settings) try {
  return Kel::make<SocketEthDevPam>(loop_, system_, intfId, device, settings);
} catch (std::system_error const& failed) {
  KEL_TRACE(0, "cannot open device " << device.deviceName << " of " << intfId << ": "
                                     << failed.what() << remedy(failed.code().value()));
  return nullptr;
}

}  // namespace Interface
