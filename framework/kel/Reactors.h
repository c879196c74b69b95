#pragma once

#include <utility>

#include "framework/kel/Collection.h"

namespace Kel {

/// A reactor that calls the handlers of its owner, which it knows by plain pointer and which
/// destroys it, or makes it a zombie, before it goes.
///
///     class Lamp::KelSwitch final : public Kel::ReactorFor<Lamp, Switch::NotifieeConst> {
///      public:
///       using ReactorFor::ReactorFor;
///       void onPosition() override {
///         if (notificationActive()) owner().handleSwitch();
///       }
///     };
template <class Owner, class NotifieeInterface>
class ReactorFor : public NotifieeInterface {
 public:
  template <class Watched>
  ReactorFor(Ptr<Watched> watched, Owner* owner) : owner_(owner) {
    this->watch(std::move(watched));
  }

 protected:
  Owner& owner() const noexcept { return *owner_; }
  void ownerIs(Owner* owner) noexcept { owner_ = owner; }

 private:
  Owner* owner_;
};

/// A reactor of the activity that it is given; without one, it is told at once.
template <class NotifieeInterface>
class ActivityReactor : public NotifieeInterface {
 public:
  ActivityConfig* kelFwkActivity() const final { return activity_.get(); }

 protected:
  using typename NotifieeInterface::Delivery;

  explicit ActivityReactor(Ptr<ActivityConfig> activity = nullptr)
      : NotifieeInterface(activity ? Delivery::byActivity : Delivery::immediate),
        activity_(std::move(activity)) {}

 private:
  Ptr<ActivityConfig> activity_;
};

/// The reactors that an owner keeps on the members of a watched collection, by the members' keys.
template <class Key, class Reactor>
class Reactors : public OwnedMembers<Key, Reactor> {
 public:
  /// Ensures that the key's reactor watches this object: makes the reactor, or re-points the one
  /// that is there. A reactor kept over a replacement stays consistent with what it has already
  /// contributed elsewhere, which a new one would not know of.
  template <class Watched, class NewReactor>
  Ptr<Reactor> watch(Key const& key, Ptr<Watched> const& watched, NewReactor newReactor) {
    auto [reactor, isNew] = this->ensure(key, newReactor);
    if (!isNew && reactor->notifier() != watched) reactor->notifierIs(watched);
    return reactor;
  }

  /// Brings the reactors in step with the watched collection: `follow(key)` for each member, then
  /// for each reactor whose member is not there. `follow` watches the member that has the key, or
  /// deletes the reactor where there is none.
  template <class WatchedMembers, class Follow>
  void reconcile(WatchedMembers const& watched, Follow follow) const {
    for (Key const& key : watched.keys())
      if (watched.find(key)) follow(key);
    for (Key const& key : this->keys())
      if (!watched.find(key)) follow(key);
  }
};

}  // namespace Kel
