#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/Switch.h"
#include "agent/replay/CaptureMerge.h"
#include "agent/replay/OwnFrames.h"
#include "agent/replay/PortCapture.h"
#include "agent/replay/SentCaptures.h"
#include "agent/watch/RecordWatch.h"
#include "platform/horix/EventLoop.h"
#include "platform/interface/CaptureEthDevPams.h"

namespace Agent {

/// Drives a switch with captures under a virtual clock, which reads the time since the first packet
/// of all captures. Timers that are due come before the packets of the same time. Packets of one
/// time make one batch of input, however many captures they come from. Every configured port is
/// there, with carrier, and has a MAC address of its own.
class Replay {
 public:
  /// Throws CaptureError; and std::invalid_argument, see requireConfiguredPorts().
  Replay(Configuration const& configuration, std::vector<PortCapture> const& captures);

  Replay(Replay const&) = delete;
  Replay& operator=(Replay const&) = delete;
  ~Replay();

  /// Stores what hosts send from now on in a directory, whole at the end of run(). Throws
  /// CaptureError, also if that would replace one of the captures.
  void writeSent(std::string const& directory);

  /// Keeps every change of the hosts' records from now on in events().
  void watchRecords();

  /// Feeds the captures to their end, and ends at the last packet's time; or ends at `until`, which
  /// may lie before the last packet or after it. Throws CaptureError, also if nothing is heard for
  /// longer than a month: every query that would be sent meanwhile costs time.
  void run(std::optional<Horix::Time> until);

  Switch const& result() const { return switch_; }
  std::vector<RecordEvent> const& events() const { return events_; }

  /// What of the captures the switch itself had sent, and was left out.
  OwnFrames const& ownFrames() const { return ownFrames_; }

 private:
  void letTimePass(Horix::Time to);

  Horix::EventLoop loop_;
  Interface::CaptureEthDevPams devices_;
  Switch switch_;
  std::vector<Wirex::IntfId> ports_;    // by capture
  std::vector<std::string> fileNames_;  // of the captures
  CaptureMerge packets_;
  OwnFrames ownFrames_;
  std::unique_ptr<SentCaptures> sent_;
  std::unique_ptr<RecordWatch> watch_;
  std::vector<RecordEvent> events_;
};

}  // namespace Agent
