#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/proxy/random/Change.h"
#include "tests/proxy/random/ChangeGenerator.h"
#include "tests/proxy/random/ProxyDriver.h"

namespace Bridging::IgmpSnooping::Proxy::Random {

/// Changes after the last of which proxy and model differ.
struct Failure {
  std::vector<Change> events;
  std::string difference;

  /// The changes as a numbered story, then the difference.
  std::string story() const;
};

/// How much has been played.
struct Tally {
  std::size_t changes = 0;  // that found something to apply to
  std::size_t machines = 0;
  std::size_t hosts = 0;    // those there are after each change, summed up
  std::size_t records = 0;  // and their records
};

/// Plays changes to a fresh proxy and a fresh model, up to the first difference.
std::optional<Failure> replay(std::vector<Change> const& changes, Perturbation perturbation);

/// Draws and plays the sequence of a seed, up to the first difference. Last the proxy is dropped.
/// @param beforeEach is called before each change
std::optional<Failure> explore(
    std::uint64_t seed, ChangeGenerator::Kind kind, Perturbation perturbation, Tally& tally,
    std::function<void(ProxyDriver const&)> const& beforeEach = [](auto const&) {});

Failure shrunk(Failure failure, Perturbation perturbation);

}  // namespace Bridging::IgmpSnooping::Proxy::Random
