#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <ostream>
#include <type_traits>
#include <utility>

#include "framework/kel/Export.h"
#include "framework/kel/ReferenceCount.h"

namespace Kel {

template <class T>
class Ptr;
template <class T, class... Arguments>
Ptr<T> make(Arguments&&... arguments);

/// The base of every entity, reactor and state machine: an object that lives as long as some
/// `Ptr` holds it. Children refer to their owner by plain pointer, so that no cycle can form.
///
/// An object is born with one reference, which `make` hands to its first handle. `new` outside of
/// `make` would lose that reference, and the object with it, so it does not compile.
class KEL_EXPORT PtrInterface {
 public:
  PtrInterface(PtrInterface const&) = delete;
  PtrInterface& operator=(PtrInterface const&) = delete;
  virtual ~PtrInterface();

  static void operator delete(void* object) noexcept { ::operator delete(object); }

  std::uint32_t references() const noexcept { return references_.value(); }

  /// On a reactor: registers it with its notifier, or takes it off. On a state machine: does so
  /// for every reactor that it owns. An entity that owns no reactors ignores it.
  virtual void hasNotificationActiveIs(bool active);

  /// Makes every reactor of this object a zombie, whose callbacks call no handler, or revives
  /// them. The framework does the former before it removes a member.
  virtual void kelDoZombieReactors(bool zombie);

 protected:
  PtrInterface() noexcept = default;

 private:
  template <class T>
  friend class Ptr;
  template <class T, class... Arguments>
  friend Ptr<T> make(Arguments&&... arguments);

  static void* operator new(std::size_t size) { return ::operator new(size); }

  /// Destroys an object whose last handle is gone, or leaves that to the callback under way on it.
  static void lastHandleGone(PtrInterface const* object) noexcept;

  mutable ReferenceCount references_;
};

/// The owning handle; may be null. `Ptr<T const>` is the handle to what is only read.
template <class T>
class Ptr {
 public:
  constexpr Ptr() noexcept = default;
  constexpr Ptr(std::nullptr_t) noexcept {}  // NOLINT: null is a handle
  explicit Ptr(T* object) noexcept : object_(object) { retain(); }
  Ptr(Ptr const& other) noexcept : object_(other.object_) { retain(); }
  Ptr(Ptr&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}

  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U> const& other)  // NOLINT: as pointers convert
  noexcept : object_(other.get()) { retain(); }
  template <class U>
  requires std::is_convertible_v<U*, T*> Ptr(Ptr<U>&& other)  // NOLINT: as pointers convert
  noexcept : object_(other.detach()) {}

  Ptr& operator=(Ptr other) noexcept {
    swap(other);
    return *this;
  }

  ~Ptr() {
    if (object_ && object_->references_.decrease() == 0) PtrInterface::lastHandleGone(object_);
  }

  /// Takes over the reference that a new object is born with.
  static Ptr adopt(T* object) noexcept {
    Ptr adopted;
    adopted.object_ = object;
    return adopted;
  }

  /// Gives up the object without dropping its reference.
  T* detach() noexcept { return std::exchange(object_, nullptr); }

  T* get() const noexcept { return object_; }
  T* operator->() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }

  void swap(Ptr& other) noexcept { std::swap(object_, other.object_); }

  template <class U>
  friend bool operator==(Ptr const& a, Ptr<U> const& b) noexcept {
    return a.get() == b.get();
  }
  friend bool operator==(Ptr const& a, std::nullptr_t) noexcept { return a.get() == nullptr; }

 private:
  void retain() const noexcept {
    if (object_) object_->references_.increase();
  }

  T* object_ = nullptr;
};

template <class T>
std::ostream& operator<<(std::ostream& out, Ptr<T> const& handle) {
  return out << static_cast<void const*>(handle.get());
}

/// Makes an object and returns its first handle. What the constructor throws passes through.
template <class T, class... Arguments>
Ptr<T> make(Arguments&&... arguments) {
  constexpr bool constructible = std::is_constructible_v<T, Arguments...>;
  static_assert(constructible, "no constructor of the class takes these arguments");
  static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__, "entities are not over-aligned");
  if constexpr (constructible)
    return Ptr<T>::adopt(new T(std::forward<Arguments>(arguments)...));
  else
    return nullptr;
}

/// A callback under way, on the stack of whoever calls it: its notifier and its reactor stay alive
/// until the call is over. To count two references up and down again would cost more than most
/// callbacks do. Instead, who drops the last handle to either leaves that reference to the call.
/// With thread-safe pointers the handle may go in another thread, so the call holds both itself.
class KEL_EXPORT CallUnderWay {
 public:
  explicit CallUnderWay(PtrInterface const* notifier) noexcept
      : notifier_(notifier), outer_(std::exchange(innermost_, this)) {
    if (notifier && threadSafePtr()) holdNotifier();
  }
  CallUnderWay(CallUnderWay const&) = delete;
  CallUnderWay& operator=(CallUnderWay const&) = delete;
  ~CallUnderWay() {
    innermost_ = outer_;
    if (holds_ != nothing) unwatchSome();
  }

  /// Calls one reactor; the next one that is called takes its place.
  template <class Callback>
  void operator()(PtrInterface const& reactor, Callback callback) {
    reactor_ = &reactor;
    if (threadSafePtr()) holdReactor();
    callback();
    if ((holds_ & theReactor) != 0) letGoOfReactor();
  }

 private:
  friend class PtrInterface;

  static thread_local constinit CallUnderWay* innermost_ [[gnu::tls_model("initial-exec")]];

  enum Holds : std::uint8_t { nothing = 0, theReactor = 1, theNotifier = 2 };

  void holdNotifier() noexcept;
  void holdReactor() noexcept;
  void letGoOfReactor() noexcept;
  void unwatchSome() noexcept;

  PtrInterface const* const notifier_;
  PtrInterface const* reactor_ = nullptr;  // the last one, once its callback is over
  CallUnderWay* const outer_;
  std::uint8_t holds_ = nothing;  // the references that it has
};

}  // namespace Kel
