#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "framework/kel/Export.h"
#include "framework/kel/Hash.h"
#include "framework/kel/Ptr.h"

namespace Kel {

class ActivityConfig;
class ActivityQueue;
class Notifiee;

/// Tells callbacks of one notifiee interface apart. They are virtual functions, whose pointers
/// begin with the place in the virtual table, the same in every shared library.
template <class MemberPointer>
std::uintptr_t callbackIdentity(MemberPointer callback) noexcept {
  std::uintptr_t identity = 0;
  std::memcpy(&identity, &callback, sizeof identity);
  return identity;
}

/// A callback that waits for its reactor's activity.
///
/// 1. It stands in the queue of its thread and in the chain of its reactor, both oldest first.
/// 2. Once the chain of a reactor is long, its notifications also stand in the queue's index by
///    reactor, callback and key.
/// 3. `reactor` is null once it was delivered or called off, which ends the key's life; what is
///    left is a place in the queue, to be passed over.
class KEL_EXPORT PendingNotification {
 public:
  PendingNotification(PendingNotification const&) = delete;
  PendingNotification& operator=(PendingNotification const&) = delete;

 protected:
  PendingNotification(Notifiee& reactor, std::uintptr_t callback) noexcept
      : reactor_(&reactor), callback_(callback) {}
  ~PendingNotification() = default;

 private:
  friend class ActivityQueue;
  friend class Notifiee;

  virtual void deliver(Notifiee& reactor) = 0;
  virtual void discard() noexcept = 0;
  virtual std::uint32_t keyHash() const noexcept = 0;

  Notifiee* reactor_;
  std::uintptr_t const callback_;
  PendingNotification* nextOfReactor_;  // the reactor sets it
  PendingNotification* nextInBucket_;   // the index sets it
};

template <class MemberPointer>
struct CallbackOf;
template <class Interface, class... Key>
struct CallbackOf<void (Interface::*)(Key...)> {
  using InterfaceType = Interface;
  static constexpr std::size_t keys = sizeof...(Key);
};

template <auto Callback, class... Key>
class PendingCallback;

template <auto Callback>
class PendingCallback<Callback> final : public PendingNotification {
 public:
  explicit PendingCallback(Notifiee& reactor) noexcept
      : PendingNotification(reactor, callbackIdentity(Callback)) {}
  static bool hasKey() noexcept { return true; }

 private:
  void deliver(Notifiee& reactor) override {
    (static_cast<typename CallbackOf<decltype(Callback)>::InterfaceType&>(reactor).*Callback)();
  }
  void discard() noexcept override {}
  std::uint32_t keyHash() const noexcept override { return 0; }
};

template <auto Callback, class Key>
class PendingCallback<Callback, Key> final : public PendingNotification {
 public:
  PendingCallback(Notifiee& reactor, Key const& key) noexcept
      : PendingNotification(reactor, callbackIdentity(Callback)), key_(key) {}
  bool hasKey(Key const& key) const noexcept { return key_ == key; }

 private:
  void deliver(Notifiee& reactor) override {
    // Should the handler run activities itself, this object's place may be taken under it.
    Key const key = std::move(key_);
    std::destroy_at(&key_);
    (static_cast<typename CallbackOf<decltype(Callback)>::InterfaceType&>(reactor).*Callback)(key);
  }
  void discard() noexcept override { std::destroy_at(&key_); }
  std::uint32_t keyHash() const noexcept override { return hash(key_); }

  union {
    Key key_;  // lives until it is delivered or discarded
  };
};

/// The pending notifications of one thread, first in first out. It neither holds a reactor alive
/// nor calls a dead one: a reactor that dies, or is made a zombie or inactive, calls its own off.
class KEL_EXPORT ActivityQueue {
 public:
  ActivityQueue();
  ActivityQueue(ActivityQueue const&) = delete;
  ActivityQueue& operator=(ActivityQueue const&) = delete;
  ~ActivityQueue();

  static ActivityQueue& ofThread() { return ofThread_ ? *ofThread_ : newOfThread(); }

  /// Delivers until none is pending; returns how many it delivered. If a handler throws, the
  /// notification that it was given is lost and the others stay.
  std::size_t run();

 private:
  friend class Notifiee;

  static ActivityQueue& newOfThread();

  static thread_local constinit ActivityQueue* ofThread_ [[gnu::tls_model("initial-exec")]];

  /// Where a pending notification is built, in a cache line of its own.
  struct alignas(64) Place {
    std::byte bytes[64];
  };

  /// Places in the order of the queue, which are taken and left one after the other. The blocks
  /// form a ring: those that were left wait behind the newest one to be taken again.
  struct Block {
    Place* begin() noexcept { return places; }
    Place* end() noexcept { return places + std::size(places); }

    Place places[63];
    Block* next;
  };

  void* takePlace() {
    if (end_ == roomEnd_) moreRoom();
    return end_++;
  }
  void moreRoom();
  PendingNotification& takeOldest() noexcept;

  static std::uint32_t hashOf(Notifiee const& reactor, std::uintptr_t callback,
                              std::uint32_t keyHash) noexcept {
    auto const address = reinterpret_cast<std::uintptr_t>(&reactor);
    return spreadHash(static_cast<std::uint32_t>(address >> 4) + 31 * keyHash +
                      static_cast<std::uint32_t>(callback));
  }
  static std::uint32_t hashOf(PendingNotification const& pending) noexcept {
    return hashOf(*pending.reactor_, pending.callback_, pending.keyHash());
  }

  PendingNotification*& bucket(std::uint32_t hash) noexcept {
    return buckets_[hash & (buckets_.size() - 1)];
  }
  void addToIndex(PendingNotification& pending);
  void removeFromIndex(PendingNotification& pending) noexcept;
  void moreBuckets();

  Block* oldestBlock_;
  Block* newestBlock_;
  Place* oldest_;     // the next one to deliver
  Place* oldestEnd_;  // of its block
  Place* end_;        // behind the newest one
  Place* roomEnd_;    // of the newest one's block
  std::vector<PendingNotification*> buckets_;
  std::size_t indexed_ = 0;
};

/// The unit of deferred execution. Reactors bound to one hear of changes when the activities of
/// their thread run, not inside the mutation. All activities of a thread share its queue, which is
/// that of the thread that changes the entity.
class KEL_EXPORT ActivityConfig : public PtrInterface {};

/// Delivers the thread's pending notifications, first in first out, until none is left. The event
/// loop calls it after each batch of input. Returns how many it delivered.
inline std::size_t runActivities() {
  return ActivityQueue::ofThread().run();
}

}  // namespace Kel
