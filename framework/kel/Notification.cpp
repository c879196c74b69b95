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

void Notifiee::handleNotification(ActivityConfig* /*activity*/) {
  if (PendingNotification* const oldest = takeOldestPending()) oldest->deliver(*this);
}

void Notifiee::callOffPending() noexcept {
  while (takeOldestPending()) {
  }
}

PendingNotification* Notifiee::takeOldestPending() noexcept {
  if (!newestPending_) return nullptr;
  PendingNotification* const oldest = newestPending_->nextOfReactor_;
  if (oldest == newestPending_)
    newestPending_ = nullptr;
  else
    newestPending_->nextOfReactor_ = oldest->nextOfReactor_;
  oldest->queue_->unlinkFromBucket(*oldest);
  oldest->reactor_ = nullptr;
  return oldest;
}

void Notifiee::chainPending(PendingNotification& pending) noexcept {
  if (newestPending_) {
    pending.nextOfReactor_ = newestPending_->nextOfReactor_;
    newestPending_->nextOfReactor_ = &pending;
  } else {
    pending.nextOfReactor_ = &pending;
  }
  newestPending_ = &pending;
}

/// Reactors in order of registration. While walks are under way, one that leaves only blanks its
/// slot, and the end of the outermost walk compacts.
struct Many {
  std::vector<Notifiee*> slots;
  std::uint32_t walks = 0;
  bool blanked = false;
};

NotifieeSlots::~NotifieeSlots() {
  delete many();
}

void NotifieeSlots::add(Notifiee& notifiee) {
  if (Many* const list = many()) {
    list->slots.push_back(&notifiee);
  } else if (empty()) {
    content_ = reinterpret_cast<std::uintptr_t>(&notifiee);
  } else {
    auto first = reinterpret_cast<Notifiee*>(content_);
    content_ = reinterpret_cast<std::uintptr_t>(new Many{{first, &notifiee}}) | manyTag;
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

NotifieeSlots::Walk::Walk(NotifieeSlots& slots) noexcept : slots_(slots), many_(slots.many()) {
  if (many_) {
    ++many_->walks;
    count_ = many_->slots.size();
  } else {
    single_ = reinterpret_cast<Notifiee*>(slots.content_);
  }
}

Notifiee* NotifieeSlots::Walk::nextOfMany() noexcept {
  while (position_ < count_)
    if (Notifiee* const notifiee = many_->slots[position_++]) return notifiee;
  return nullptr;
}

void NotifieeSlots::Walk::end() noexcept {
  if (--many_->walks > 0 || !many_->blanked) return;
  std::erase(many_->slots, nullptr);
  many_->blanked = false;
  if (many_->slots.empty()) {
    slots_.content_ = 0;
    delete many_;
  }
}

}  // namespace Kel
