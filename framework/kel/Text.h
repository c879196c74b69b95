#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <new>
#include <string_view>
#include <utility>

#include "framework/kel/Export.h"
#include "framework/kel/ReferenceCount.h"

namespace Kel {

/// An immutable byte string behind one pointer: copies share it, and its hash is computed once.
/// Sharing follows the process-wide switch for thread-safe pointers, as `Kel::Ptr` does.
class KEL_EXPORT String8 {
 public:
  String8() noexcept = default;
  // Text literals are texts, so these two convert.
  String8(char const* text) : String8(std::string_view(text)) {}  // NOLINT
  String8(std::string_view text);                                 // NOLINT
  String8(String8 const& other) noexcept : body_(other.body_) {
    if (body_) body_->references.increase();
  }
  String8(String8&& other) noexcept : body_(std::exchange(other.body_, nullptr)) {}
  String8& operator=(String8 const& other) noexcept { return *this = String8(other); }
  String8& operator=(String8&& other) noexcept {
    std::swap(body_, other.body_);
    return *this;
  }
  ~String8() {
    if (body_ && body_->references.decrease() == 0) ::operator delete(body_);
  }

  std::string_view view() const noexcept {
    return body_ ? std::string_view(body_->bytes(), body_->size) : std::string_view();
  }

  /// Ends in a zero byte.
  char const* c_str() const noexcept { return body_ ? body_->bytes() : ""; }
  std::uint32_t size() const noexcept { return body_ ? body_->size : 0; }
  bool empty() const noexcept { return body_ == nullptr; }

  /// FNV-1a over the bytes.
  std::uint32_t hash() const noexcept { return body_ ? body_->hash : fnvOffsetBasis; }

  friend bool operator==(String8 const& a, String8 const& b) noexcept {
    return a.body_ == b.body_ || (a.hash() == b.hash() && haveEqualBytes(a, b));
  }
  friend std::strong_ordering operator<=>(String8 const& a, String8 const& b) noexcept {
    return a.view() <=> b.view();
  }
  friend String8 operator+(String8 const& a, String8 const& b);

 private:
  static constexpr std::uint32_t fnvOffsetBasis = 2166136261u;

  /// The bytes and a closing zero follow the struct in the same allocation.
  struct Body {
    explicit Body(std::string_view text) noexcept;

    char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }

    ReferenceCount references;
    std::uint32_t hash;
    std::uint32_t size;
  };

  static bool haveEqualBytes(String8 const& a, String8 const& b) noexcept;

  Body* body_ = nullptr;  // null for the empty text
};

KEL_EXPORT String8 operator+(String8 const& a, String8 const& b);
KEL_EXPORT std::ostream& operator<<(std::ostream& out, String8 const& text);

using String = String8;

/// The name of an entity: the key of named collections.
class KEL_EXPORT Name {
 public:
  Name() noexcept = default;
  Name(char const* text) : text_(text) {}                  // NOLINT: literals name entities
  Name(String8 text) noexcept : text_(std::move(text)) {}  // NOLINT: and so do texts

  String8 const& stringValue() const noexcept { return text_; }
  std::uint32_t hash() const noexcept { return text_.hash(); }

  friend bool operator==(Name const&, Name const&) noexcept = default;
  friend std::strong_ordering operator<=>(Name const&, Name const&) noexcept = default;

 private:
  String8 text_;
};

KEL_EXPORT std::ostream& operator<<(std::ostream& out, Name const& name);

/// Formats with printf conventions.
[[gnu::format(printf, 1, 2)]] KEL_EXPORT String8 format(char const* conversion, ...);

}  // namespace Kel
