#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/horix/Clock.h"

/// The file of the kept state: a seal in front of the bytes of the entries. The seal has the
/// format's version, a checksum, and when the file was written, in a way that holds over a restart
/// of the machine and over clocks that are set.
namespace Agent {

/// A moment by all clocks. The monotonic clocks go on until the machine starts anew, which gets
/// another boot id; of these, CLOCK_BOOTTIME goes on while the machine is suspended.
struct Moment {
  std::array<std::uint8_t, 16> boot{};
  Horix::Time monotonic{};
  Horix::Time sinceBoot{};
  Horix::Time wall{};

  /// @param monotonic what the caller's clock reads, by which the entries' times are.
  static Moment now(Horix::Time monotonic);

  /// What has passed since an earlier moment. By the wall clock where the machine was started
  /// meanwhile; negative if that was set back since.
  Horix::Time since(Moment const& earlier) const;

  friend bool operator==(Moment const&, Moment const&) = default;
};

/// A file that is not to be used: why, for the operator.
struct UnusableState : std::runtime_error {
  using runtime_error::runtime_error;
};

/// An open seal.
struct SealedState {
  Moment written;
  std::string_view entries;
};

std::string seal(Moment const& written, std::string_view entries);

/// Throws UnusableState.
/// @param file outlives what is returned.
SealedState unseal(std::string_view file);

/// The file whole. Nothing if there is none. Throws UnusableState.
std::optional<std::string> readStateFile(std::string const& path);

/// Puts a file in the place of the one that may be there, so that at any time, also if the machine
/// stops, one or the other is there whole. May be called from any thread. Throws
/// std::runtime_error.
void replaceStateFile(std::string const& path, std::string_view content);

}  // namespace Agent
