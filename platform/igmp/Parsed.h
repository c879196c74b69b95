#pragma once

#include <utility>
#include <variant>

#include "platform/igmp/Cause.h"

namespace Igmp {

/// What parsing gives: a value, or the cause why there is none.
template <class T>
class Parsed {
 public:
  Parsed(T value) : content_(std::move(value)) {}  // NOLINT: a parser returns either
  Parsed(Cause cause) : content_(cause) {}         // NOLINT

  explicit operator bool() const noexcept { return content_.index() == 0; }

  /// The value, of which there must be one.
  T const& operator*() const { return std::get<0>(content_); }
  T const* operator->() const { return &std::get<0>(content_); }

  /// The cause, of which there must be one.
  Cause cause() const { return std::get<1>(content_); }

 private:
  std::variant<T, Cause> content_;
};

}  // namespace Igmp
