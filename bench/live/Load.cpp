#include "bench/live/Load.h"

#include <algorithm>
#include <optional>
#include <thread>

#include "bench/live/PacketPort.h"

namespace Bench {

namespace {

using Clock = std::chrono::steady_clock;

/// What a port says over and over, and how far it has come.
class Talker {
 public:
  Talker(std::string const& interface, std::vector<Frame> frames)
      : port_(interface, false), frames_(std::move(frames)) {}

  /// Up to so many of the next frames, none from the round after; returns how many.
  std::size_t send(std::size_t most) {
    std::size_t const count = std::min(most, frames_.size() - next_);
    port_.send(std::span<Frame const>(frames_).subspan(next_, count));
    next_ = (next_ + count) % frames_.size();
    return count;
  }

  std::size_t framesPerRound() const { return frames_.size(); }

 private:
  PacketPort port_;
  std::vector<Frame> frames_;
  std::size_t next_ = 0;
};

std::vector<Frame> said(Listeners const& listeners, bool changes) {
  if (!changes) return reports(listeners, Saying::current);
  std::vector<Frame> frames = reports(listeners, Saying::leave);
  std::vector<Frame> joins = reports(listeners, Saying::join);
  frames.insert(frames.end(), std::make_move_iterator(joins.begin()),
                std::make_move_iterator(joins.end()));
  return frames;
}

}  // namespace

LoadResult load(LoadOptions const& options) {
  std::vector<Talker> talkers;
  for (unsigned port = 0; port < options.interfaces.size(); ++port) {
    Listeners listeners = options.listeners;
    listeners.port = port;
    talkers.emplace_back(options.interfaces[port], said(listeners, options.changes));
  }
  constexpr std::size_t batch = 16;
  std::uint64_t const round = talkers.front().framesPerRound() * talkers.size();
  LoadResult result;
  auto const start = Clock::now();
  for (std::size_t turn = 0;;) {
    std::chrono::duration<double> const elapsed = Clock::now() - start;
    result.seconds = elapsed.count();
    bool const enough =
        options.frames > 0 ? result.sent >= options.frames : result.seconds >= options.seconds;
    // Every port ends with a whole round, so that the state at the end is known.
    if (enough && result.sent % round == 0) return result;
    double const ahead =
        options.rate > 0 ? static_cast<double>(result.sent) / options.rate - result.seconds : 0;
    if (ahead > 0) {
      // Leaves the processor to others while there is time, without oversleeping.
      if (ahead > 200e-6) std::this_thread::sleep_for(std::chrono::microseconds(50));
      continue;
    }
    result.sent += talkers[turn++ % talkers.size()].send(batch);
  }
}

LatencyResult latency(LatencyOptions const& options) {
  PacketPort const listener(options.from, false);
  PacketPort router(options.to, true);
  constexpr unsigned groups = 250;
  Listeners listeners;
  listeners.groups = groups;
  std::vector<Frame> const joins = reports(listeners, Saying::join);
  std::vector<Frame> const leaves = reports(listeners, Saying::leave);
  LatencyResult result;
  for (unsigned sample = 0; sample < options.samples; ++sample) {
    unsigned const number = sample % groups;
    Frame const& change = (sample / groups % 2 == 0 ? joins : leaves)[number];
    while (!router.receive().frame.empty()) {
    }
    auto const sent = PacketPort::now();
    listener.send({&change, 1});
    std::optional<PacketPort::Time> heard;
    while (!heard && PacketPort::now() < sent + std::chrono::seconds(1)) {
      auto const received = router.receive();
      if (!received.frame.empty() && speaksOf(received.frame, groupOf(0, number)))
        heard = received.time;
    }
    if (heard)
      result.latencies.push_back(*heard - sent);
    else
      ++result.lost;
    std::this_thread::sleep_for(options.pause);
  }
  std::sort(result.latencies.begin(), result.latencies.end());
  return result;
}

}  // namespace Bench
