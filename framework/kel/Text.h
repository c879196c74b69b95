#pragma once

#include <compare>
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <utility>

#include "framework/kel/Export.h"

namespace Kel {

/// An immutable byte string behind one pointer: copies share it, and its hash is computed once.
/// Sharing follows the process-wide switch for thread-safe pointers, as `Kel::Ptr` does.
class KEL_EXPORT String8 {
 public:
  String8() noexcept = default;
  // Text literals are texts, so these two convert.
  String8(char const* text) : String8(std::string_view(text)) {}  // NOLINT
  String8(std::string_view text);                                 // NOLINT
  String8(String8 const& other) noexcept;
  String8(String8&& other) noexcept : body_(std::exchange(other.body_, nullptr)) {}
  String8& operator=(String8 const& other) noexcept;
  String8& operator=(String8&& other) noexcept {
    std::swap(body_, other.body_);
    return *this;
  }
  ~String8();

  std::string_view view() const noexcept;

  /// Ends in a zero byte.
  char const* c_str() const noexcept;
  std::uint32_t size() const noexcept;
  bool empty() const noexcept { return body_ == nullptr; }

  /// FNV-1a over the bytes.
  std::uint32_t hash() const noexcept;

  friend bool operator==(String8 const& a, String8 const& b) noexcept {
    return a.body_ == b.body_ || (a.hash() == b.hash() && a.view() == b.view());
  }
  friend std::strong_ordering operator<=>(String8 const& a, String8 const& b) noexcept {
    return a.view() <=> b.view();
  }
  friend String8 operator+(String8 const& a, String8 const& b);

 private:
  struct Body;  // null for the empty text

  Body* body_ = nullptr;
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
