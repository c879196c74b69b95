#pragma once

#include <optional>
#include <string>

#include "agent/config/Configuration.h"
#include "agent/forwarding/BridgeLink.h"
#include "agent/forwarding/EntryWriter.h"
#include "platform/horix/TimerWheel.h"

/// What stands in the way of forwarding, with what to do about it.
namespace Agent {

/// Why the configured bridge cannot be used; empty if it can.
std::string obstacleTo(Configuration const& configuration, std::optional<LinkInfo> const& bridge);

/// Complains of what somebody has done or the kernel has refused: each kind of thing once a minute,
/// with how many there were.
class Complaints {
 public:
  /// An entry that the kernel refused.
  /// @param port its name.
  void refused(EntryWriter::Refusal const& refusal, std::string const& port, Horix::Time now);

  /// Somebody has deleted entries of a group.
  void deleted(Wirex::IpAddr group, Horix::Time now);

 private:
  /// Whether to speak now, and of how many others that were not spoken of.
  class Pace {
   public:
    bool isDue(Horix::Time now);
    std::string others(char const* what);

   private:
    Horix::Time next_{};
    std::uint64_t unsaid_ = 0;
  };

  Pace refusals_;
  Pace deletions_;
};

}  // namespace Agent
