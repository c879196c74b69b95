#include "platform/wirex/Pkt.h"

#include <algorithm>

#include "framework/kel/Exception.h"
#include "platform/wirex/PktManager.h"

namespace Wirex {

Pkt::Ptr Pkt::PktIs(std::size_t size) {
  if (size > PktManager::instance().bufferSize())
    throw Kel::RangeException("Pkt::size > PktManager::bufferSize not allowed");
  return Ptr::adopt(new (headroom + size) Pkt(size));
}

Pkt::Ptr Pkt::PktIs(Bytes content) {
  Ptr pkt = PktIs(content.size());
  std::copy(content.begin(), content.end(), pkt->bytes().begin());
  return pkt;
}

}  // namespace Wirex
