#include "framework/kel/Notification.h"

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
    notifiee.slot_ = several->slots.size() & slotMask;
    several->slots.push_back(&notifiee);
  } else if (empty()) {
    content_ = reinterpret_cast<std::uintptr_t>(&notifiee);
  } else {
    auto* const list = new Many{{single(), &notifiee}};
    single()->slot_ = 0;
    notifiee.slot_ = 1;
    content_ = reinterpret_cast<std::uintptr_t>(list) | manyTag;
  }
}

void NotifieeSlots::remove(Notifiee& notifiee) noexcept {
  Many* const list = many();
  if (!list) {
    content_ = 0;
    return;
  }
  list->slots[notifiee.slot_] = nullptr;
  ++list->blank;
  if (list->compactable()) compact();
}

void NotifieeSlots::compact() noexcept {
  Many* const list = many();
  if (list->blank == list->slots.size()) {
    delete list;
    content_ = 0;
    return;
  }
  std::erase(list->slots, nullptr);
  list->blank = 0;
  std::uint32_t slot = 0;
  for (Notifiee* const notifiee : list->slots) notifiee->slot_ = slot++ & slotMask;
}

}  // namespace Kel
