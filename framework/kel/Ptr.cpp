#include "framework/kel/Ptr.h"

namespace Kel {

constinit std::atomic<bool> threadSafePointers{false};

thread_local constinit CallUnderWay* CallUnderWay::innermost_ = nullptr;

PtrInterface::~PtrInterface() = default;

void PtrInterface::lastHandleGone(PtrInterface const* object) noexcept {
  for (CallUnderWay* call = CallUnderWay::innermost_; call; call = call->outer_) {
    if (object == call->notifier_)
      call->holds_ |= CallUnderWay::theNotifier;
    else if (object == call->reactor_)
      call->holds_ |= CallUnderWay::theReactor;
    else
      continue;
    return;
  }
  delete object;
}

void CallUnderWay::holdNotifier() noexcept {
  Ptr<PtrInterface const>(notifier_).detach();  // leaves the reference to the call
  holds_ |= theNotifier;
}

void CallUnderWay::holdReactor() noexcept {
  Ptr<PtrInterface const>(reactor_).detach();
  holds_ |= theReactor;
}

void CallUnderWay::letGoOfReactor() noexcept {
  holds_ &= theNotifier;
  Ptr<PtrInterface const>::adopt(std::exchange(reactor_, nullptr));
}

void CallUnderWay::unwatchSome() noexcept {
  // The reactor goes first: it may hold the notifier.
  if ((holds_ & theReactor) != 0) letGoOfReactor();
  if ((holds_ & theNotifier) != 0) Ptr<PtrInterface const>::adopt(notifier_);
}

void PtrInterface::hasNotificationActiveIs(bool /*active*/) {}

void PtrInterface::kelDoZombieReactors(bool /*zombie*/) {}

}  // namespace Kel
