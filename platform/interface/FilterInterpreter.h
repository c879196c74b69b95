#pragma once

#include "framework/kel/Export.h"
#include "platform/interface/SocketFilter.h"
#include "platform/wirex/Ethernet.h"

namespace Interface {

/// Runs a receive filter where no kernel does, with libpcap's interpreter.
class KEL_EXPORT FilterInterpreter {
 public:
  /// What a packet socket says of a frame beside its bytes, as in linux/if_packet.h.
  enum class PacketType : std::uint8_t { multicast = 2, outgoing = 4 };

  explicit FilterInterpreter(SocketFilter const& filter, PacketType type = PacketType::multicast);

  /// Whether the frame, from the destination's MAC address on, passes the filter.
  bool accepts(Wirex::Bytes frame) const;

 private:
  SocketFilter program_;
};

}  // namespace Interface
