#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/proxy/model/Event.h"
#include "tests/proxy/model/EventGenerator.h"

namespace Bridging::IgmpSnooping::Proxy::Model {

/// Events after the last of which adapter and model differ.
struct Failure {
  std::vector<Event> events;
  std::string difference;

  /// The events as a numbered story, then the difference.
  std::string story() const;
};

/// Plays events to a fresh adapter and a fresh model, up to the first difference.
std::optional<Failure> replay(std::vector<Event> const& events, Perturbation perturbation);

/// Draws and plays the sequence of a seed, up to the first difference.
/// @param played is increased by the number of events that found something to apply to
/// @param beforeEach is called before each event
std::optional<Failure> explore(
    std::uint64_t seed, EventGenerator::Kind kind, Perturbation perturbation, std::size_t& played,
    std::function<void(AdapterDriver const&)> const& beforeEach = [](auto const&) {});

/// Delta debugging: leaves events out, first in chunks, then one by one, and then what the
/// remaining ones carry, as long as there is still a difference.
Failure shrunk(Failure failure, Perturbation perturbation);

}  // namespace Bridging::IgmpSnooping::Proxy::Model
