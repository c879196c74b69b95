#include "framework/kel/Ptr.h"

namespace Kel {

constinit std::atomic<bool> threadSafePointers{false};

PtrInterface::~PtrInterface() = default;

void PtrInterface::hasNotificationActiveIs(bool /*active*/) {}

void PtrInterface::kelDoZombieReactors(bool /*zombie*/) {}

}  // namespace Kel
