#include "framework/kel/Activity.h"

#include <algorithm>
#include <new>

#include "framework/kel/Notification.h"

namespace Kel {

ActivityQueue::ActivityQueue()
    : oldestBlock_(new Block),
      newestBlock_(oldestBlock_),
      oldest_(oldestBlock_->begin()),
      oldestEnd_(oldestBlock_->end()),
      end_(oldest_),
      roomEnd_(oldestEnd_) {
  oldestBlock_->next = oldestBlock_;
}

ActivityQueue::~ActivityQueue() {
  while (oldest_ != end_)
    if (Notifiee* const reactor = takeOldest().reactor_) reactor->callOffPending();
  Block* block = std::exchange(newestBlock_->next, nullptr);
  while (block) delete std::exchange(block, block->next);
}

thread_local constinit ActivityQueue* ActivityQueue::ofThread_ = nullptr;

ActivityQueue& ActivityQueue::newOfThread() {
  static thread_local ActivityQueue queue;
  ofThread_ = &queue;
  return queue;
}

void ActivityQueue::moreRoom() {
  if (newestBlock_->next == oldestBlock_) {
    auto* const block = new Block;
    block->next = oldestBlock_;
    newestBlock_->next = block;
  }
  newestBlock_ = newestBlock_->next;
  end_ = newestBlock_->begin();
  roomEnd_ = newestBlock_->end();
}

PendingNotification& ActivityQueue::takeOldest() noexcept {
  if (oldest_ == oldestEnd_) {
    oldestBlock_ = oldestBlock_->next;
    oldest_ = oldestBlock_->begin();
    oldestEnd_ = oldestBlock_->end();
  }
  return *std::launder(reinterpret_cast<PendingNotification*>(oldest_++));
}

std::size_t ActivityQueue::run() {
  std::size_t delivered = 0;
  CallUnderWay call(nullptr);
  while (oldest_ != end_) {
    PendingNotification& pending = takeOldest();
    Notifiee* const reactor = pending.reactor_;
    if (!reactor) continue;
    ++delivered;
    reactor->unchainOldestPending(pending, *this);
    call(*reactor, [&] { pending.deliver(*reactor); });
  }
  oldest_ = end_ = oldestBlock_->begin();  // places that are still in the cache
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
}  // namespace Kel
