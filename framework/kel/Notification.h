#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <vector>

#include "framework/kel/Activity.h"
#include "framework/kel/Export.h"
#include "framework/kel/Ptr.h"

namespace Kel {

/// How many attributes this thread has changed so far: between two equal readings no entity has
/// changed, and no reactor was re-pointed.
KEL_EXPORT extern thread_local constinit std::uint64_t mutations [[gnu::tls_model("initial-exec")]];
inline std::uint64_t mutationCount() noexcept {
  return mutations;
}

/// What all reactors have in common: the flags that rule delivery, and the notifications that
/// wait for the reactor's activity.
class KEL_EXPORT Notifiee : public PtrInterface {
 public:
  ~Notifiee() override;

  bool hasNotificationActive() const noexcept { return active_; }
  bool isZombie() const noexcept { return zombie_; }

  /// Whether a callback may call its handler.
  bool notificationActive() const noexcept { return active_ && !zombie_; }

  void kelDoZombieReactors(bool zombie) override;

  /// Set at the end of a reactor's own first pass, where it has one.
  bool initialized() const noexcept { return initialized_; }
  void initializedIs(bool initialized) noexcept { initialized_ = initialized; }

  /// The activity that delivers to this reactor; null where delivery is immediate.
  virtual ActivityConfig* kelFwkActivity() const;

  /// Takes the oldest pending notification and dispatches it to its callback.
  void handleNotification(ActivityConfig* /*activity*/) {
    if (hasPendingNotification()) takeOldestPending().deliver(*this);
  }

  bool hasPendingNotification() const noexcept { return newestPending_ != nullptr; }

 protected:
  enum class Delivery : std::uint8_t { immediate, byActivity };

  explicit Notifiee(Delivery delivery) noexcept
      : byActivity_(delivery == Delivery::byActivity), slot_(0) {}

  void activeFlagIs(bool active) noexcept { active_ = active; }

  /// A number from 0 to 3 for the class that derives, of which there may be millions: a member of
  /// its own would take a word.
  unsigned smallNumber() const noexcept { return smallNumber_; }
  void smallNumberIs(unsigned number) noexcept { smallNumber_ = number & 3; }
  void callOffPending() noexcept;

 private:
  friend class ActivityQueue;
  friend class Entity;
  friend class NotifieeSlots;

  /// Queues the callback with its key, unless it is pending already.
  template <auto Callback, class... Key>
  void postpone(Key const&... key) {
    using Pending = PendingCallback<Callback, Key...>;
    static_assert(sizeof(Pending) <= sizeof(ActivityQueue::Place));
    ActivityQueue& queue = ActivityQueue::ofThread();
    // Most reactors have none pending, so this is laid out for them.
    PendingNotification* const newest = newestPending_;
    if (newest) [[unlikely]] {
      if (isPending<Pending>(callbackIdentity(Callback), queue, key...)) return;
    }
    auto& pending = *new (queue.takePlace()) Pending(*this, key...);
    newestPending_ = &pending;
    pending.nextOfReactor_ = &pending;
    if (newest) [[unlikely]] {
      std::swap(pending.nextOfReactor_, newest->nextOfReactor_);
      if (pendingIndexed_) queue.addToIndex(pending);
    }
  }

  /// Whether the callback is pending with this key. A chain that is long is indexed on the way.
  template <class Pending, class... Key>
  bool isPending(std::uintptr_t callback, ActivityQueue& queue, Key const&... key) {
    auto const isThis = [&](PendingNotification const& other) {
      return other.reactor_ == this && other.callback_ == callback &&
             static_cast<Pending const&>(other).hasKey(key...);
    };
    if (pendingIndexed_) [[unlikely]] {
      std::uint32_t const hash =
          ActivityQueue::hashOf(*this, callback, (0u + ... + Kel::hash(key)));
      for (auto* other = queue.bucket(hash); other; other = other->nextInBucket_)
        if (isThis(*other)) return true;
      return false;
    }
    std::uint32_t length = 0;
    PendingNotification* other = newestPending_;
    do {
      other = other->nextOfReactor_;
      if (isThis(*other)) return true;
      ++length;
    } while (other != newestPending_);
    if (length == longChain) indexPending(queue);
    return false;
  }

  void unchainOldestPending(PendingNotification& oldest, ActivityQueue& queue) noexcept {
    bool const isLast = &oldest == newestPending_;
    if (pendingIndexed_) [[unlikely]] {
      queue.removeFromIndex(oldest);
      pendingIndexed_ = !isLast;
    }
    if (isLast) [[likely]] {
      newestPending_ = nullptr;
    } else {
      newestPending_->nextOfReactor_ = oldest.nextOfReactor_;
    }
  }

  PendingNotification& takeOldestPending() noexcept {
    PendingNotification& oldest = *newestPending_->nextOfReactor_;
    unchainOldestPending(oldest, ActivityQueue::ofThread());
    oldest.reactor_ = nullptr;  // the queue still has it
    return oldest;
  }

  void indexPending(ActivityQueue& queue);

  static constexpr std::uint32_t longChain = 8;
  static constexpr unsigned slotBits = 25;

  bool active_ : 1 = true;
  bool zombie_ : 1 = false;
  bool initialized_ : 1 = false;
  bool pendingIndexed_ : 1 = false;
  bool byActivity_ : 1;
  std::uint8_t smallNumber_ : 2 = 0;
  std::uint32_t slot_ : slotBits;  // where the entity has this reactor, if it has many
  // The newest, whose successor in the chain is the oldest.
  PendingNotification* newestPending_ = nullptr;
};

/// The reactors registered with one entity, in order of registration: none or one in place, more
/// in an allocation of their own.
///
/// 1. Among many, a reactor knows its slot. One that leaves only blanks it, so that thousands of
///    reactors can leave in any order at the same cost each.
/// 2. Fewer than half of the slots are blank, except while walks are under way: nothing moves
///    under a walk, and the end of the outermost one compacts.
class KEL_EXPORT NotifieeSlots {
 public:
  NotifieeSlots() noexcept = default;
  NotifieeSlots(NotifieeSlots const&) = delete;
  NotifieeSlots& operator=(NotifieeSlots const&) = delete;
  ~NotifieeSlots();

  bool empty() const noexcept { return content_ == 0; }
  void add(Notifiee& notifiee);
  void remove(Notifiee& notifiee) noexcept;

  struct Many {
    bool compactable() const noexcept { return walks == 0 && blank >= slots.size() - blank; }

    std::vector<Notifiee*> slots;
    std::uint32_t walks = 0;
    std::uint32_t blank = 0;
  };

  /// Visits the reactors of an entity that has many: those that were registered when it began,
  /// less those that leave meanwhile.
  class KEL_EXPORT Walk {
   public:
    explicit Walk(NotifieeSlots& slots) noexcept
        : slots_(slots), many_(*slots.many()), count_(many_.slots.size()) {
      ++many_.walks;
    }
    Walk(Walk const&) = delete;
    Walk& operator=(Walk const&) = delete;
    ~Walk() {
      --many_.walks;
      if (many_.compactable()) slots_.compact();
    }

    /// The next one, or null.
    Notifiee* next() noexcept {
      while (position_ < count_)
        if (Notifiee* const notifiee = many_.slots[position_++]) return notifiee;
      return nullptr;
    }

   private:
    NotifieeSlots& slots_;
    Many& many_;
    std::size_t position_ = 0;
    std::size_t const count_;
  };

 private:
  friend class Entity;

  void compact() noexcept;

  static constexpr std::uintptr_t manyTag = 1;
  static constexpr std::uint32_t slotMask = (1U << Notifiee::slotBits) - 1;

  // NOLINTBEGIN(performance-no-int-to-ptr): the tag shares the word with the pointer
  bool hasMany() const noexcept { return (content_ & manyTag) != 0; }
  Many* many() const noexcept {
    return hasMany() ? reinterpret_cast<Many*>(content_ & ~manyTag) : nullptr;
  }
  Notifiee* single() const noexcept { return reinterpret_cast<Notifiee*>(content_); }
  // NOLINTEND(performance-no-int-to-ptr)

  std::uintptr_t content_ = 0;  // a Notifiee*, or a Many* with the tag
};

/// Whether a callback is one that the reactors of an entity have. An entity whose storage named
/// another class's callback would call reactors through an interface that they do not have.
template <class Owner, auto Callback>
concept RaisedBy = std::is_base_of_v < typename CallbackOf<decltype(Callback)>::InterfaceType,
typename Owner::NotifieeConst > ;

/// An object with attributes that reactors may watch.
///
/// A mutator works in this order: it refuses what it must, by an exception, with nothing changed;
/// it compares, and returns if nothing would change; it changes the attribute; it notifies the
/// immediate reactors one after the other, in the order in which they began to watch, and queues
/// the callback for those of activities. It touches nothing of the entity afterwards, so a
/// callback may change, empty or drop the entity. What a callback throws leaves the mutator with
/// the attribute changed and the later reactors not told.
class KEL_EXPORT Entity : public PtrInterface {
 public:
  /// Whether some reactor is registered. Mutators of many keys may take a shorter way for an
  /// entity that nobody watches.
  bool watched() const noexcept { return !notifiees_.empty(); }

  /// Raises a callback of the entity's notifiee interface. The entity, and each reactor while it
  /// is called, stay alive for the length of it.
  template <auto Callback, class... Key>
  void notify(Key const&... key) const {
    if (notifiees_.empty()) return;
    if (notifiees_.hasMany()) {
      notifyEach<Callback, Key...>(key...);
      return;
    }
    Notifiee& only = *notifiees_.single();
    if (only.zombie_) return;
    if (only.byActivity_)
      only.postpone<Callback>(key...);
    else
      notifyOnly<Callback, Key...>(only, key...);
  }

  /// Raises a callback that every reactor hears inside the mutation, also zombies and those that an
  /// activity tells of the change later. It is for keeping counts: the callback changes no entity,
  /// and registers, unregisters and destroys no reactor.
  template <auto Callback, class... Key>
  void tellAtOnce(Key const&... key) const {
    using Interface = typename CallbackOf<decltype(Callback)>::InterfaceType;
    if (notifiees_.empty()) return;
    if (!notifiees_.hasMany()) {
      (static_cast<Interface&>(*notifiees_.single()).*Callback)(key...);
      return;
    }
    NotifieeSlots::Walk walk(notifiees_);
    while (Notifiee* const notifiee = walk.next())
      (static_cast<Interface&>(*notifiee).*Callback)(key...);
  }

 protected:
  Entity() noexcept = default;

  /// A number for the class that derives, of which there may be millions: it takes no room, a
  /// member of its own would.
  std::uint32_t ownNumber() const noexcept { return ownNumber_; }
  void ownNumberIs(std::uint32_t number) noexcept { ownNumber_ = number; }

 private:
  template <class T>
  friend class NotifieeOf;

  // What a callback removes may be the key's own storage: so these take the key by value.

  template <auto Callback, class... Key>
  void notifyOnly(Notifiee& notifiee, Key... key) const {
    CallUnderWay call(this);
    tell<Callback>(notifiee, call, key...);
  }

  template <auto Callback, class... Key>
  void notifyEach(Key... key) const {
    CallUnderWay call(this);
    NotifieeSlots::Walk walk(notifiees_);
    while (Notifiee* const notifiee = walk.next()) {
      if (notifiee->zombie_) continue;
      if (notifiee->byActivity_)
        notifiee->template postpone<Callback>(key...);
      else
        tell<Callback>(*notifiee, call, key...);
    }
  }

  template <auto Callback, class... Key>
  static void tell(Notifiee& notifiee, CallUnderWay& call, Key const&... key) {
    using Interface = typename CallbackOf<decltype(Callback)>::InterfaceType;
    call(notifiee, [&] { (static_cast<Interface&>(notifiee).*Callback)(key...); });
  }

  std::uint32_t ownNumber_ = 0;  // beside the reference count
  mutable NotifieeSlots notifiees_;
};

/// A reactor on one entity of type T (const for an input that is only read). It holds its
/// notifier, so an entity never dies under a reactor; the entity knows its reactors by plain
/// pointer. The callbacks are virtual functions of T's nested `NotifieeConst`.
template <class T>
class NotifieeOf : public Notifiee {
 public:
  ~NotifieeOf() override { unregister(); }

  Ptr<T> const& notifier() const noexcept { return notifier_; }

  /// Re-points the reactor at another object; what was pending from the former one is called off.
  virtual void notifierIs(Ptr<T> notifier) {
    unregister();
    callOffPending();
    notifier_.swap(notifier);  // what goes may take this reactor along, so it goes last
    ++mutations;
    registerIfActive();
  }

  void hasNotificationActiveIs(bool active) override {
    if (active == hasNotificationActive()) return;
    unregister();
    callOffPending();
    activeFlagIs(active);
    registerIfActive();
  }

 protected:
  explicit NotifieeOf(Delivery delivery = Delivery::immediate) noexcept : Notifiee(delivery) {}

  /// For constructors: begins to watch, without what a re-pointing does beyond that.
  void watch(Ptr<T> notifier) {
    notifier_ = std::move(notifier);
    registerIfActive();
  }

 private:
  void registerIfActive() {
    if (hasNotificationActive() && notifier_) notifier_->notifiees_.add(*this);
  }
  void unregister() noexcept {
    if (hasNotificationActive() && notifier_) notifier_->notifiees_.remove(*this);
  }

  Ptr<T> notifier_;
};

}  // namespace Kel
