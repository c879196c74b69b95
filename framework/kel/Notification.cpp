#include "framework/kel/Notification.h"

#include <algorithm>

namespace Kel {

thread_local constinit std::uint64_t mutations = 0;

Notifiee::~Notifiee() {
  callOffPending();
}

void Notifiee::kelDoZombieReactors(bool zombie) {
  zombie_ = zombie;
  if (zombie) callOffPending();
}

ActivityConfig* Notifiee::kelFwkActivity() const {
  return nullptr;
}

void Notifiee::callOffPending() noexcept {
  while (hasPendingNotification()) takeOldestPending().discard();
}

void Notifiee::indexPending(ActivityQueue& queue) {
  pendingIndexed_ = true;
  PendingNotification* pending = newestPending_;
  do {
    pending = pending->nextOfReactor_;
    queue.addToIndex(*pending);
  } while (pending != newestPending_);
}

NotifieeSlots::~NotifieeSlots() {
  delete many();
}

void NotifieeSlots::add(Notifiee& notifiee) {
  if (Many* const several = many()) {
    several->slots.push_back(&notifiee);
  } else if (empty()) {
    content_ = reinterpret_cast<std::uintptr_t>(&notifiee);
  } else {
    auto* const list = new Many{{single(), &notifiee}};
    content_ = reinterpret_cast<std::uintptr_t>(list) | manyTag;
  }
}

void NotifieeSlots::remove(Notifiee& notifiee) noexcept {
  Many* const list = many();
  if (!list) {
    content_ = 0;
    return;
  }
  auto const slot = std::find(list->slots.begin(), list->slots.end(), &notifiee);
  if (list->walks > 0) {
    *slot = nullptr;
    list->blanked = true;
    return;
  }
  list->slots.erase(slot);
  if (list->slots.empty()) {
    delete list;
    content_ = 0;
  }
}

void NotifieeSlots::compact() noexcept {
  Many* const list = many();
  std::erase(list->slots, nullptr);
  list->blanked = false;
  if (list->slots.empty()) {
    delete list;
    content_ = 0;
  }
}

}  // namespace Kel
