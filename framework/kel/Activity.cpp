#include "framework/kel/Activity.h"

#include "framework/kel/Notification.h"

namespace Kel {

namespace {

constexpr std::size_t firstBucketCount = 64;

}  // namespace

PendingNotification::~PendingNotification() = default;

ActivityQueue::ActivityQueue() : buckets_(firstBucketCount) {}

ActivityQueue::~ActivityQueue() {
  while (oldest_) {
    PendingNotification* const pending = std::exchange(oldest_, oldest_->nextInQueue_);
    if (pending->reactor_) pending->reactor_->callOffPending();
    recycle(pending);
  }
  while (firstFree_) delete std::exchange(firstFree_, firstFree_->nextFree);
}

ActivityQueue& ActivityQueue::ofThread() {
  static thread_local ActivityQueue queue;
  return queue;
}

std::size_t ActivityQueue::run() {
  struct Recycled {
    ~Recycled() { queue.recycle(pending); }
    ActivityQueue& queue;
    PendingNotification* pending;
  };

  std::size_t delivered = 0;
  while (oldest_) {
    Recycled const next{*this, std::exchange(oldest_, oldest_->nextInQueue_)};
    if (!oldest_) newest_ = nullptr;
    if (!next.pending->reactor_) continue;
    Ptr<Notifiee> const reactor(next.pending->reactor_);
    ++delivered;
    reactor->handleNotification(reactor->kelFwkActivity());
  }
  return delivered;
}

void* ActivityQueue::freePlace() {
  if (!firstFree_) return new Place;
  return std::exchange(firstFree_, firstFree_->nextFree);
}

void ActivityQueue::link(PendingNotification& pending, Notifiee& reactor, std::uint32_t hash) {
  if (pendingCount_ == buckets_.size()) moreBuckets();
  ++pendingCount_;
  pending.hash_ = hash;
  pending.nextInBucket_ = std::exchange(bucket(hash), &pending);

  (newest_ ? newest_->nextInQueue_ : oldest_) = &pending;
  newest_ = &pending;

  pending.queue_ = this;
  pending.reactor_ = &reactor;
  reactor.chainPending(pending);
}

void ActivityQueue::unlinkFromBucket(PendingNotification& pending) noexcept {
  PendingNotification** place = &bucket(pending.hash_);
  while (*place != &pending) place = &(*place)->nextInBucket_;
  *place = pending.nextInBucket_;
  --pendingCount_;
}

void ActivityQueue::moreBuckets() {
  std::vector<PendingNotification*> const former =
      std::exchange(buckets_, std::vector<PendingNotification*>(buckets_.size() * 2));
  for (PendingNotification* pending : former) {
    while (pending) {
      PendingNotification* const next = pending->nextInBucket_;
      pending->nextInBucket_ = std::exchange(bucket(pending->hash_), pending);
      pending = next;
    }
  }
}

void ActivityQueue::recycle(PendingNotification* pending) noexcept {
  pending->~PendingNotification();
  firstFree_ = new (static_cast<void*>(pending)) Place{firstFree_};
}

std::size_t runActivities() {
  return ActivityQueue::ofThread().run();
}

}  // namespace Kel
