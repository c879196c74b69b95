#pragma once

#include <iosfwd>
#include <utility>

#include "framework/kel/Export.h"
#include "framework/kel/Text.h"

namespace Wirex {

/// An interface, known by its name. Copies share the name.
class KEL_EXPORT IntfId {
 public:
  IntfId() noexcept = default;
  explicit IntfId(Kel::String8 name) noexcept : name_(std::move(name)) {}
  explicit IntfId(char const* name) : name_(name) {}

  Kel::String8 const& stringValue() const noexcept { return name_; }
  std::uint32_t hash() const noexcept { return name_.hash(); }

  friend bool operator==(IntfId const& a, IntfId const& b) noexcept { return a.name_ == b.name_; }
  friend std::strong_ordering operator<=>(IntfId const& a, IntfId const& b) noexcept {
    return a.name_ <=> b.name_;
  }

 private:
  Kel::String8 name_;
};

KEL_EXPORT std::ostream& operator<<(std::ostream& out, IntfId const& intf);

}  // namespace Wirex
