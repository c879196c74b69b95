#include "framework/kel/Text.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <ostream>
#include <string>

namespace Kel {

String8::Body::Body(std::string_view text) noexcept
    : hash(fnvOffsetBasis), size(static_cast<std::uint32_t>(text.size())) {
  constexpr std::uint32_t fnvPrime = 16777619u;
  for (char const c : text) hash = (hash ^ static_cast<unsigned char>(c)) * fnvPrime;
  std::memcpy(bytes(), text.data(), text.size());
  bytes()[text.size()] = '\0';
}

String8::String8(std::string_view text) {
  if (text.empty()) return;
  body_ = new (::operator new(sizeof(Body) + text.size() + 1)) Body(text);
}

bool String8::haveEqualBytes(String8 const& a, String8 const& b) noexcept {
  return a.view() == b.view();
}

String8 operator+(String8 const& a, String8 const& b) {
  std::string joined;
  joined.reserve(a.size() + b.size());
  joined.append(a.view()).append(b.view());
  return String8(joined);
}

std::ostream& operator<<(std::ostream& out, String8 const& text) {
  return out << text.view();
}

std::ostream& operator<<(std::ostream& out, Name const& name) {
  return out << name.stringValue();
}

String8 format(char const* conversion, ...) {
  va_list arguments;
  va_start(arguments, conversion);
  va_list measured;
  va_copy(measured, arguments);
  int const length = std::vsnprintf(nullptr, 0, conversion, measured);
  va_end(measured);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  if (length > 0) std::vsnprintf(text.data(), text.size() + 1, conversion, arguments);
  va_end(arguments);
  return String8(text);
}

}  // namespace Kel
