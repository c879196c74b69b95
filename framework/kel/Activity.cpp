#include "framework/kel/Activity.h"

#include <algorithm>

#include "framework/kel/Notification.h"

namespace Kel {

ActivityQueue::~ActivityQueue() {
  while (oldest_) {
    PendingNotification* const pending = std::exchange(oldest_, oldest_->nextInQueue_);
    if (pending->reactor_) pending->reactor_->callOffPending();
    giveBack(pending);
  }
  while (firstFree_) delete std::exchange(firstFree_, firstFree_->nextFree);
}

thread_local constinit ActivityQueue* ActivityQueue::ofThread_ = nullptr;

ActivityQueue& ActivityQueue::newOfThread() {
  static thread_local ActivityQueue queue;
  ofThread_ = &queue;
  return queue;
}

std::size_t ActivityQueue::run() {
  struct Taken {
    ~Taken() { queue.giveBack(pending); }
    ActivityQueue& queue;
    PendingNotification* pending;
  };

  std::size_t delivered = 0;
  while (oldest_) {
    Taken const next{*this, std::exchange(oldest_, oldest_->nextInQueue_)};
    if (!oldest_) newest_ = nullptr;
    if (!next.pending->reactor_) continue;
    Ptr<Notifiee> const reactor(next.pending->reactor_);
    ++delivered;
    reactor->handleNotification(next.pending->activity_);
  }
  return delivered;
}

void ActivityQueue::addToIndex(PendingNotification& pending) {
  if (indexed_ == buckets_.size()) moreBuckets();
  ++indexed_;
  pending.nextInBucket_ = std::exchange(bucket(hashOf(pending)), &pending);
}

void ActivityQueue::removeFromIndex(PendingNotification& pending) noexcept {
  PendingNotification** place = &bucket(hashOf(pending));
  while (*place != &pending) place = &(*place)->nextInBucket_;
  *place = pending.nextInBucket_;
  --indexed_;
}

void ActivityQueue::moreBuckets() {
  constexpr std::size_t firstBuckets = 64;
  std::vector<PendingNotification*> const former = std::exchange(
      buckets_, std::vector<PendingNotification*>(std::max(firstBuckets, buckets_.size() * 2)));
  for (PendingNotification* pending : former) {
    while (pending) {
      PendingNotification* const next = pending->nextInBucket_;
      pending->nextInBucket_ = std::exchange(bucket(hashOf(*pending)), pending);
      pending = next;
    }
  }
}

std::size_t runActivities() {
  return ActivityQueue::ofThread().run();
}

}  // namespace Kel
