#pragma once

#include <cstdint>
#include <vector>

#include "platform/igmp/HostMemory.h"
#include "platform/igmp/host/ReceptionState.h"
#include "platform/igmp/host/ReportWriter.h"

namespace Igmp {

/// What is still to be told of a group's changes, and how often: the retransmission state of the
/// group and of its sources (RFC 9776 section 5.1).
class StateChange {
 public:
  bool pending() const noexcept { return modeTransmissions_ > 0 || !sources_.empty(); }

  /// Merges a change with what is pending. It is told `transmissions` times.
  void add(ReceptionState const& before, ReceptionState const& after, std::uint8_t transmissions);

  /// The same towards a router that may have heard all or nothing of what was told so far: the
  /// whole state after is told as if it were new, and again what was pending.
  void addAsNew(ReceptionState const& before, ReceptionState const& after,
                std::uint8_t transmissions);

  /// Writes the group's records of the next report, which must be pending.
  void write(Wirex::IpAddr group, ReceptionState const& current, ReportWriter& writer);

  void clear() noexcept;

  /// What is pending, and to have it pending again.
  void remember(HostMemory::Told& told) const;
  void rememberedIs(HostMemory::Told const& told);

 private:
  using Source = HostMemory::PendingSource;

  void addModeChange(std::uint8_t transmissions) noexcept;
  void addSources(std::vector<Wirex::IpAddr> const& changed, std::uint8_t transmissions);
  void writeSources(Wirex::IpAddr group, ReceptionState const& current, ReportWriter& writer) const;

  std::uint8_t modeTransmissions_ = 0;
  std::vector<Source> sources_;  // ascending, each to be told at least once more
};

}  // namespace Igmp
