#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "agent/replay/CaptureFile.h"

namespace Agent {

struct MergedPacket {
  /// Since the first packet of all captures.
  Horix::Time time;

  /// From which capture it is: its number in the order in which they were given.
  std::size_t capture;

  /// There until the next packet is read.
  Igmp::Bytes frame;

  std::uint64_t number;  ///< in its capture, from 1 on
  bool outgoing;         ///< the capture says that it was sent there, not heard
};

/// Several captures as one, in the order of their timestamps; packets of the same time in the
/// order in which the captures were given. Errors are CaptureErrors.
class CaptureMerge {
 public:
  explicit CaptureMerge(std::vector<std::string> const& fileNames);

  /// When the first packet was captured, since the epoch or before it.
  Horix::Time start() const { return start_; }

  /// The next packet; nothing after the last one.
  std::optional<MergedPacket> next();

  /// How many packets next() has given.
  std::uint64_t given() const { return count_; }

  /// How much of all captures together has been read, from 0 to 1; nothing if one has no size, as a
  /// pipe.
  std::optional<double> shareRead() const;

 private:
  struct Input {
    CaptureFile file;
    std::optional<CapturedPacket> head;  // none: the file is at its end
  };

  Input* earliest();

  std::vector<Input> inputs_;
  Horix::Time start_ = Horix::Time::zero();

  // The input that gave the last packet, whose bytes are in use until the next one is asked for.
  Input* given_ = nullptr;
  std::uint64_t count_ = 0;
};

}  // namespace Agent
