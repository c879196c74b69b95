#pragma once

#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "agent/replay/CaptureMerge.h"

namespace Agent {

/// The packets of captures, given once what follows within some milliseconds has been looked at:
/// who sent a packet shows in what the same system sends next. Takes the memory of a thousand
/// packets at most.
class LookAhead {
 public:
  /// @param packets live longer.
  /// @param onRead hears of each packet before next() gives it.
  LookAhead(CaptureMerge& packets, std::function<void(MergedPacket const&)> onRead)
      : packets_(packets), onRead_(std::move(onRead)) {}

  /// The next packet, there until the next call; nothing after the last one. What is wrong with a
  /// capture is thrown when all before it has been given.
  std::optional<MergedPacket> next();

 private:
  struct Held {
    MergedPacket packet;
    std::vector<std::uint8_t> bytes;
  };

  bool isFarEnough() const;
  void read();

  CaptureMerge& packets_;
  std::function<void(MergedPacket const&)> onRead_;
  std::deque<Held> held_;  // the first of them has been given, if `given_`
  bool given_ = false;
  bool ended_ = false;
  std::exception_ptr failure_;
};

}  // namespace Agent
