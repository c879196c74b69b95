#pragma once

#include <utility>
#include <variant>

#include "platform/igmp/wire/IgnoreReason.h"

namespace Igmp {

/// What parsing gives: a value, or the reason why there is none.
template <class T>
class Parsed {
 public:
  Parsed(T value) : content_(std::move(value)) {}    // NOLINT: a parser returns either
  Parsed(IgnoreReason reason) : content_(reason) {}  // NOLINT

  /// Whether there is a value.
  explicit operator bool() const noexcept { return content_.index() == 0; }

  /// The value, of which there must be one.
  T const& operator*() const { return std::get<0>(content_); }
  T const* operator->() const { return &std::get<0>(content_); }

  /// The reason, of which there must be one.
  IgnoreReason reason() const { return std::get<1>(content_); }

 private:
  std::variant<T, IgnoreReason> content_;
};

}  // namespace Igmp
