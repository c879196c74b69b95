#include "framework/kel/Text.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <ostream>
#include <string>

#include "framework/kel/ReferenceCount.h"

namespace Kel {

namespace {

constexpr std::uint32_t fnvOffsetBasis = 2166136261u;
constexpr std::uint32_t fnvPrime = 16777619u;

std::uint32_t fnv1a(std::string_view text) noexcept {
  std::uint32_t hash = fnvOffsetBasis;
  for (char const c : text) hash = (hash ^ static_cast<unsigned char>(c)) * fnvPrime;
  return hash;
}

}  // namespace

/// The bytes and a closing zero follow the struct in the same allocation.
struct String8::Body {
  explicit Body(std::string_view text) noexcept
      : hash(fnv1a(text)), size(static_cast<std::uint32_t>(text.size())) {
    std::memcpy(bytes(), text.data(), text.size());
    bytes()[text.size()] = '\0';
  }

  char* bytes() noexcept { return reinterpret_cast<char*>(this + 1); }

  ReferenceCount references;
  std::uint32_t hash;
  std::uint32_t size;
};

String8::String8(std::string_view text) {
  if (text.empty()) return;
  body_ = new (::operator new(sizeof(Body) + text.size() + 1)) Body(text);
}

String8::String8(String8 const& other) noexcept : body_(other.body_) {
  if (body_) body_->references.increase();
}

String8& String8::operator=(String8 const& other) noexcept {
  return *this = String8(other);
}

String8::~String8() {
  if (body_ && body_->references.decrease() == 0) ::operator delete(body_);
}

std::string_view String8::view() const noexcept {
  return body_ ? std::string_view(body_->bytes(), body_->size) : std::string_view();
}

char const* String8::c_str() const noexcept {
  return body_ ? body_->bytes() : "";
}

std::uint32_t String8::size() const noexcept {
  return body_ ? body_->size : 0;
}

std::uint32_t String8::hash() const noexcept {
  return body_ ? body_->hash : fnvOffsetBasis;
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
