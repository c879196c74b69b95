#pragma once

#include <cstdint>
#include <sstream>
#include <type_traits>
#include <utility>

#include "framework/kel/Exception.h"
#include "framework/kel/Notification.h"
#include "framework/kel/Table.h"

namespace Kel {

/// A visitor of keys that does nothing.
struct Unheeded {
  template <class Key>
  void operator()(Key const& /*key*/) const noexcept {}
};

/// Refuses to take an existing member for one that was asked for with another value of a
/// constructor parameter. Members call it for each of their parameters, in
/// `requireConstructedWith(parameters...)`.
template <class T>
void requireEqual(char const* attribute, T const& newValue, T const& currentValue) {
  if (newValue == currentValue) return;
  std::ostringstream newText;
  std::ostringstream currentText;
  newText << newValue;
  currentText << currentValue;
  refuseReinstantiation(attribute, newText.str(), currentText.str());
}

/// What the reading side of every collection offers: `for (auto [key, mapped] : collection)`,
/// in an order that stays as long as the collection does.
template <class Key, class Mapped>
class Collection {
 public:
  std::uint32_t size() const noexcept { return table_.size(); }
  bool empty() const noexcept { return table_.empty(); }
  bool contains(Key const& key) const noexcept { return table_.contains(key); }

  /// The place of a key in the collection's order, or `absent`.
  static constexpr std::uint32_t absent = Table<Key, Mapped>::absent;
  std::uint32_t position(Key const& key) const noexcept { return table_.position(key); }
  /// The same, found without hashing where the key still is in its former place.
  std::uint32_t position(Key const& key, std::uint32_t formerPlace) const noexcept {
    return formerPlace < size() && keyAt(formerPlace) == key ? formerPlace : position(key);
  }
  Key const& keyAt(std::uint32_t position) const noexcept { return table_.keyAt(position); }

  auto begin() const noexcept { return table_.begin(); }
  auto end() const noexcept { return table_.end(); }

  /// The keys as they are now, for loops that change the collection.
  KeySnapshot<Key> keys() const { return KeySnapshot<Key>(table_); }

 protected:
  template <class OtherKey, class T, auto Callback>
  friend class Values;

  [[no_unique_address]] Table<Key, Mapped> table_;
};

/// Members that the collection owns: entities or reactors. No callback is raised for them.
///
/// `ensure` throws RangeException where the key holds null, and NameInUseException where the
/// member was constructed with other parameters; both leave everything as it is. A member that
/// goes is first taken out, then made a zombie, then let go of, so what its destructor runs finds
/// the collection without it.
template <class Key, class Member>
class OwnedMembers : public Collection<Key, Ptr<Member>> {
 public:
  OwnedMembers() = default;
  OwnedMembers(OwnedMembers const&) = delete;
  OwnedMembers& operator=(OwnedMembers const&) = delete;
  ~OwnedMembers() { delAll(); }

  /// The member, or null.
  Member* find(Key const& key) const noexcept {
    auto const* const member = this->table_.find(key);
    return member ? member->get() : nullptr;
  }
  /// The same, for repeated lookups. @param place where the member was found before, or anything;
  /// afterwards where it is.
  Member* find(Key const& key, std::uint32_t& place) const noexcept {
    place = this->position(key, place);
    return place == this->absent ? nullptr : this->table_.mappedAt(place).get();
  }
  Ptr<Member> get(Key const& key) const noexcept { return Ptr<Member>(find(key)); }

  /// Ensures that there is a member for the key: one that is there must have been constructed
  /// with equal parameters, one that is missing is made by `newMember()`.
  /// @return the member, and whether it is new.
  template <class NewMember, class... Parameters>
  std::pair<Ptr<Member>, bool> ensure(Key const& key, NewMember newMember,
                                      Parameters const&... parameters) {
    if (Ptr<Member> present = existing(key)) {
      if constexpr (sizeof...(parameters) > 0) requireConstructedWith(*present, parameters...);
      return {std::move(present), false};
    }
    Ptr<Member> member = newMember();
    // The constructor may have run handlers that got here first.
    if (Ptr<Member> present = existing(key)) {
      member->kelDoZombieReactors(true);
      return {std::move(present), false};
    }
    ++mutations;
    this->table_.add(key, member);
    return {std::move(member), true};
  }

  /// Puts a member, or null, in the place of what is there. Returns whether that is a change.
  bool put(Key const& key, Ptr<Member> member) {
    if (Ptr<Member>* const place = this->table_.find(key)) {
      if (*place == member) return false;
      ++mutations;
      place->swap(member);
      retire(std::move(member));
    } else {
      ++mutations;
      this->table_.add(key, std::move(member));
    }
    return true;
  }

  /// Returns whether there was a member to remove.
  bool del(Key const& key) {
    std::uint32_t const at = this->table_.position(key);
    if (at == Table<Key, Ptr<Member>>::absent) return false;
    ++mutations;
    retire(this->table_.takeAt(at));
    return true;
  }

  void delAll() {
    while (!this->empty()) del(Key(this->keyAt(this->size() - 1)));
  }

  /// What a machine passes on to its reactors and to the machines that it owns.
  void hasNotificationActiveIs(bool active) const {
    for (Key const& key : this->keys())
      if (auto const member = get(key)) member->hasNotificationActiveIs(active);
  }
  void kelDoZombieReactors(bool zombie) const {
    for (Key const& key : this->keys())
      if (auto const member = get(key)) member->kelDoZombieReactors(zombie);
  }

 private:
  template <class... Parameters>
  static void requireConstructedWith(Member const& present, Parameters const&... parameters) {
    constexpr bool compares = requires {
      present.requireConstructedWith(parameters...);
    };
    static_assert(compares, "requireConstructedWith() of the member takes other parameters");
    if constexpr (compares) present.requireConstructedWith(parameters...);
  }

  /// The member that find-or-create finds.
  Ptr<Member> existing(Key const& key) const {
    auto const* const present = this->table_.find(key);
    if (!present) return nullptr;
    if (!*present) refuseNullMember();
    return *present;
  }

  /// A removed member's reactors stop calling handlers before the collection lets go of it,
  /// whoever else may hold it.
  static void retire(Ptr<Member> member) {
    if (member) member->kelDoZombieReactors(true);
  }
};

/// Raises the callback of a collection attribute for the key whose entry has changed.
template <auto Callback, class Owner, class Key>
void notifyOfKey(Owner const& owner, Key const& key) {
  static_assert(CallbackOf<decltype(Callback)>::keys == 1,
                "the callback of a collection attribute takes its key");
  static_assert(RaisedBy<Owner, Callback>, "the callback is of another entity's reactors");
  owner.template notify<Callback>(key);
}

/// Raises the callback of a collection attribute that is heard at once, where it has one.
template <auto AtOnce, class Owner, class Key>
void tellAtOnceOfKey(Owner const& owner, Key const& key) {
  if constexpr (!std::is_null_pointer_v<decltype(AtOnce)>) {
    static_assert(CallbackOf<decltype(AtOnce)>::keys == 1,
                  "the callback of a collection attribute takes its key");
    static_assert(RaisedBy<Owner, AtOnce>, "the callback is of another entity's reactors");
    owner.template tellAtOnce<AtOnce>(key);
  }
}

/// A collection attribute of members, whose changes raise a callback with the key.
///
///     Kel::Ptr<Port> port(Wirex::IntfId const& intf) const { return port_.get(intf); }
///     Kel::Ptr<Port> portIs(Wirex::IntfId const& intf) { return port_.is(*this, intf); }
///     void portDel(Wirex::IntfId intf) { port_.del(*this, intf); }
///    private:
///     Kel::Members<Wirex::IntfId, Port, &NotifieeConst::onTopoPort> port_;
template <class Key, class Member, auto Callback>
class Members : private OwnedMembers<Key, Member> {
  using Owned = OwnedMembers<Key, Member>;

 public:
  using Owned::absent, Owned::begin, Owned::contains, Owned::empty, Owned::end, Owned::find,
      Owned::keyAt, Owned::keys, Owned::position, Owned::size;

  /// The member, or null. Who may only read the collection may only read its members.
  Ptr<Member> get(Key const& key) noexcept { return Owned::get(key); }
  Ptr<Member const> get(Key const& key) const noexcept { return Owned::get(key); }

  /// Find-or-create: a new member is constructed from the key and the parameters.
  template <class Owner, class... Parameters>
  Ptr<Member> is(Owner const& owner, Key const& key, Parameters const&... parameters) {
    auto [member, isNew] = Owned::ensure(
        key, [&] { return make<Member>(key, parameters...); }, parameters...);
    if (isNew) notify(owner, key);
    return member;
  }

  // Each change works in the order that Entity describes.
  // What is removed may be where the key lives, and its destructor may run handlers that let go of
  // the owner: so removals take the key by value and hold the owner.

  /// Sets an entry to a member made elsewhere, or to null.
  template <class Owner>
  void put(Owner const& owner, Key key, Ptr<Member> member) {
    Ptr<Entity const> const self(&owner);
    if (Owned::put(key, std::move(member))) notify(owner, key);
  }

  template <class Owner>
  void del(Owner const& owner, Key key) {
    Ptr<Entity const> const self(&owner);
    if (Owned::del(key)) notify(owner, key);
  }

  template <class Owner>
  void delAll(Owner const& owner) {
    Ptr<Entity const> const self(&owner);
    for (Key const& key : this->keys()) del(owner, key);
  }

  template <class Owner>
  void notify(Owner const& owner, Key const& key) const {
    notifyOfKey<Callback>(owner, key);
  }
};

/// A collection attribute of values; an absent entry reads as the default value.
template <class Key, class T, auto Callback>
class Values : public Collection<Key, T> {
 public:
  T get(Key const& key) const {
    T const* const value = this->table_.find(key);
    return value ? *value : T{};
  }

  template <class Owner>
  void is(Owner const& owner, Key const& key, T value) {
    if (T* const present = this->table_.find(key)) {
      if (*present == value) return;
      *present = std::move(value);
    } else {
      this->table_.add(key, std::move(value));
    }
    ++mutations;
    notify(owner, key);
  }

  /// Adds to a count, which starts at 0 where it is absent; counts wrap as their type does.
  /// Returns the new count.
  template <class Owner>
  T inc(Owner const& owner, Key const& key, T by) {
    T* const present = this->table_.find(key);
    if (present && by == 0) return *present;
    T& count = present ? *present : this->table_.add(key, T{});
    T const sum = count = static_cast<T>(count + by);
    ++mutations;
    notify(owner, key);
    return sum;
  }
  template <class Owner>
  T dec(Owner const& owner, Key const& key, T by) {
    return inc(owner, key, static_cast<T>(-by));
  }

  template <class Owner>
  void del(Owner const& owner, Key key) {
    std::uint32_t const at = this->table_.position(key);
    if (at == Table<Key, T>::absent) return;
    this->table_.takeAt(at);
    ++mutations;
    notify(owner, key);
  }

  template <class Owner>
  void delAll(Owner const& owner) {
    if (this->empty()) return;
    if (owner.watched()) {
      delEach(owner);
      return;
    }
    this->table_.clear();
    ++mutations;
  }

  /// Empties the collection and fills it with one value for each key of another one. Whoever
  /// watches hears of every key that goes and of every key that comes.
  /// @param goes, comes are called with each key before that.
  template <class Owner, class OtherMapped, class Goes = Unheeded, class Comes = Unheeded>
  void refill(Owner const& owner, Collection<Key, OtherMapped> const& other, T const& value,
              Goes const& goes = {}, Comes const& comes = {}) {
    if (owner.watched()) {
      Ptr<Entity const> const self(&owner);
      for (Key const& key : this->keys()) {
        goes(key);
        del(owner, key);
      }
      for (Key const& key : other.keys()) {
        comes(key);
        is(owner, key, value);
      }
      return;
    }
    for (auto const [key, unused] : *this) goes(key);
    for (auto const [key, unused] : other) comes(key);
    this->table_.refill(other.table_, value);
    ++mutations;
  }

  template <class Owner>
  void notify(Owner const& owner, Key const& key) const {
    notifyOfKey<Callback>(owner, key);
  }

 private:
  template <class Owner>
  void delEach(Owner const& owner) {
    Ptr<Entity const> const self(&owner);
    for (Key const& key : this->keys()) del(owner, key);
  }
};

/// A collection attribute that is a set of keys.
/// @tparam AtOnce a callback that each change raises with the key before that one
/// (`Entity::tellAtOnce`), or null.
template <class Key, auto Callback, auto AtOnce = nullptr>
class Set : private Collection<Key, Nothing> {
  using Base = Collection<Key, Nothing>;

 public:
  using Base::contains, Base::empty, Base::keyAt, Base::keys, Base::position, Base::size;

  Key const* begin() const noexcept { return empty() ? nullptr : &keyAt(0); }
  Key const* end() const noexcept { return begin() + size(); }

  template <class Owner>
  void is(Owner const& owner, Key const& key) {
    if (this->table_.contains(key)) return;
    this->table_.add(key, Nothing{});
    changed(owner, key);
  }

  template <class Owner>
  void del(Owner const& owner, Key key) {
    std::uint32_t const at = this->table_.position(key);
    if (at == Table<Key, Nothing>::absent) return;
    this->table_.takeAt(at);
    changed(owner, key);
  }

  template <class Owner>
  void delAll(Owner const& owner) {
    Ptr<Entity const> const self(&owner);
    for (Key const& key : this->keys()) del(owner, key);
  }

  template <class Owner>
  void notify(Owner const& owner, Key const& key) const {
    notifyOfKey<Callback>(owner, key);
  }

 private:
  template <class Owner>
  void changed(Owner const& owner, Key const& key) {
    ++mutations;
    tellAtOnceOfKey<AtOnce>(owner, key);
    notify(owner, key);
  }
};

}  // namespace Kel
