#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>
#include <vector>

#include "framework/kel/Export.h"
#include "framework/kel/Hash.h"
#include "framework/kel/Ptr.h"

namespace Kel {

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
/// 1. It stands in the queue of its thread, in the chain of its reactor (both oldest first), and
///    in the bucket of its hash, by which a second one of the same callback and key is refused.
/// 2. `reactor` is null once it was delivered or called off; the queue then only recycles it.
class KEL_EXPORT PendingNotification {
 public:
  PendingNotification(PendingNotification const&) = delete;
  PendingNotification& operator=(PendingNotification const&) = delete;

  virtual void deliver(Notifiee& reactor) = 0;

 protected:
  explicit PendingNotification(std::uintptr_t callback) noexcept : callback_(callback) {}
  virtual ~PendingNotification();

 private:
  friend class ActivityQueue;
  friend class Notifiee;

  PendingNotification* nextInQueue_ = nullptr;
  PendingNotification* nextOfReactor_ = nullptr;
  PendingNotification* nextInBucket_ = nullptr;
  Notifiee* reactor_ = nullptr;
  ActivityQueue* queue_ = nullptr;
  std::uintptr_t callback_;
  std::uint32_t hash_ = 0;
};

template <class MemberPointer>
struct CallbackOf;
template <class Interface, class... Key>
struct CallbackOf<void (Interface::*)(Key...)> {
  using InterfaceType = Interface;
};

template <auto Callback, class... Key>
class PendingCallback;

template <auto Callback>
class PendingCallback<Callback> final : public PendingNotification {
 public:
  PendingCallback() noexcept : PendingNotification(callbackIdentity(Callback)) {}
  void deliver(Notifiee& reactor) override {
    (static_cast<typename CallbackOf<decltype(Callback)>::InterfaceType&>(reactor).*Callback)();
  }
  static bool hasKey() noexcept { return true; }
};

template <auto Callback, class Key>
class PendingCallback<Callback, Key> final : public PendingNotification {
 public:
  explicit PendingCallback(Key const& key) noexcept
      : PendingNotification(callbackIdentity(Callback)), key_(key) {}
  void deliver(Notifiee& reactor) override {
    // A copy: should the handler run activities itself, this object may be recycled under it.
    Key const key = key_;
    (static_cast<typename CallbackOf<decltype(Callback)>::InterfaceType&>(reactor).*Callback)(key);
  }
  bool hasKey(Key const& key) const noexcept { return key_ == key; }

 private:
  Key key_;
};

/// The pending notifications of one thread, first in first out. It neither holds a reactor alive
/// nor calls a dead one: a reactor that dies, or is made a zombie or inactive, calls its own off.
class KEL_EXPORT ActivityQueue {
 public:
  ActivityQueue();
  ActivityQueue(ActivityQueue const&) = delete;
  ActivityQueue& operator=(ActivityQueue const&) = delete;
  ~ActivityQueue();

  static ActivityQueue& ofThread();

  /// Queues the callback with its key for the reactor, unless it is pending already.
  template <auto Callback, class... Key>
  void add(Notifiee& reactor, Key const&... key) {
    using Pending = PendingCallback<Callback, Key...>;
    static_assert(sizeof(Pending) <= sizeof(Place));
    std::uint32_t const hash = hashOf(reactor, callbackIdentity(Callback), (0u + ... + key.hash()));
    for (PendingNotification* other = bucket(hash); other; other = other->nextInBucket_) {
      if (other->reactor_ == &reactor && other->callback_ == callbackIdentity(Callback) &&
          static_cast<Pending*>(other)->hasKey(key...))
        return;
    }
    link(*new (freePlace()) Pending(key...), reactor, hash);
  }

  /// Delivers until none is pending; returns how many it delivered. If a handler throws, the
  /// notification that it was given is lost and the others stay.
  std::size_t run();

 private:
  friend class Notifiee;

  union Place {
    Place* nextFree;
    alignas(void*) std::byte bytes[96];
  };

  static std::uint32_t hashOf(Notifiee const& reactor, std::uintptr_t callback,
                              std::uint32_t keyHash) noexcept {
    auto const address = reinterpret_cast<std::uintptr_t>(&reactor);
    return spreadHash(static_cast<std::uint32_t>(address >> 4) + 31 * keyHash +
                      static_cast<std::uint32_t>(callback));
  }

  PendingNotification*& bucket(std::uint32_t hash) noexcept {
    return buckets_[hash & (buckets_.size() - 1)];
  }

  void* freePlace();
  void link(PendingNotification& pending, Notifiee& reactor, std::uint32_t hash);
  void unlinkFromBucket(PendingNotification& pending) noexcept;
  void moreBuckets();
  void recycle(PendingNotification* pending) noexcept;

  std::vector<PendingNotification*> buckets_;
  std::size_t pendingCount_ = 0;  // those in buckets
  PendingNotification* oldest_ = nullptr;
  PendingNotification* newest_ = nullptr;
  Place* firstFree_ = nullptr;
};

/// The unit of deferred execution. Reactors bound to one hear of changes when the activities of
/// their thread run, not inside the mutation. It belongs to the thread that made it.
class KEL_EXPORT ActivityConfig : public PtrInterface {
 public:
  ActivityConfig() : queue_(ActivityQueue::ofThread()) {}

  ActivityQueue& queue() const noexcept { return queue_; }

 private:
  ActivityQueue& queue_;
};

/// Delivers the thread's pending notifications, first in first out, until none is left. The event
/// loop calls it after each batch of input. Returns how many it delivered.
KEL_EXPORT std::size_t runActivities();

}  // namespace Kel
