#pragma once

#include <type_traits>
#include <utility>

#include "framework/kel/Exception.h"
#include "framework/kel/Notification.h"

namespace Kel {

/// Storage of a value attribute. The type names the callback that a change raises.
///
///     bool blocked() const { return blocked_.get(); }
///     void blockedIs(bool blocked) { blocked_.is(*this, blocked); }
///    private:
///     Kel::Value<bool, &NotifieeConst::onBlocked> blocked_;
///
/// It holds no back pointer to its entity, of which there may be millions: mutators pass it.
/// @tparam AtOnce a callback that each change raises before that one (`Entity::tellAtOnce`), or
/// null.
template <class T, auto Callback, auto AtOnce = nullptr>
class Value {
  static_assert(CallbackOf<decltype(Callback)>::keys == 0,
                "the callback of a value or pointer attribute takes no key");

 public:
  Value() = default;
  explicit Value(T value) : value_(std::move(value)) {}

  T const& get() const noexcept { return value_; }

  /// Storing an equal value notifies nobody.
  template <class Owner>
  void is(Owner const& owner, T value) {
    if (value_ == value) return;
    std::swap(value_, value);  // what goes may take the owner along, so it goes last
    ++mutations;
    if constexpr (!std::is_null_pointer_v<decltype(AtOnce)>) {
      static_assert(RaisedBy<Owner, AtOnce>, "the callback is of another entity's reactors");
      owner.template tellAtOnce<AtOnce>();
    }
    notify(owner);
  }

  template <class Owner>
  void notify(Owner const& owner) const {
    static_assert(RaisedBy<Owner, Callback>, "the callback is of another entity's reactors");
    owner.template notify<Callback>();
  }

 private:
  T value_{};
};

/// Storage of a pointer attribute that may be null.
template <class T, auto Callback>
using NullablePointer = Value<Ptr<T>, Callback>;

/// Storage of a pointer attribute that refuses null.
template <class T, auto Callback>
class Pointer {
 public:
  Pointer() = default;
  explicit Pointer(Ptr<T> object) : object_(std::move(object)) {}

  Ptr<T> const& get() const noexcept { return object_.get(); }

  /// Throws RangeException for null.
  /// @param ownerName, attribute how the exception names the mutator that refused null.
  template <class Owner>
  void is(Owner const& owner, Ptr<T> object, char const* ownerName, char const* attribute) {
    nonNull(object, ownerName, attribute);
    object_.is(owner, std::move(object));
  }

  template <class Owner>
  void notify(Owner const& owner) const {
    object_.notify(owner);
  }

 private:
  NullablePointer<T, Callback> object_;
};

}  // namespace Kel
