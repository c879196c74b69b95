#pragma once

#include <cstdint>
#include <type_traits>

#include "framework/kel/Export.h"

namespace Kel {

/// Drawn once per process: listeners choose group and source addresses, and must not be able to
/// choose them so that they all fall into one place of a table.
KEL_EXPORT extern std::uint32_t const hashSeed;

/// Spreads a key's hash over all bits (the finalizer of MurmurHash3).
inline std::uint32_t spreadHash(std::uint32_t hash) noexcept {
  hash ^= hashSeed;
  hash ^= hash >> 16;
  hash *= 0x85ebca6bu;
  hash ^= hash >> 13;
  hash *= 0xc2b2ae35u;
  hash ^= hash >> 16;
  return hash;
}

/// What a key says of itself, or an enumerator's number.
template <class Key>
constexpr std::uint32_t hash(Key const& key) noexcept {
  if constexpr (std::is_enum_v<Key>)
    return static_cast<std::uint32_t>(key);
  else
    return key.hash();
}

}  // namespace Kel
