#include "platform/wirex/PktManager.h"

namespace Wirex {

PktManager& PktManager::instance() noexcept {
  static PktManager manager;
  return manager;
}

}  // namespace Wirex
