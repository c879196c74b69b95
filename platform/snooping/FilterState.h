#pragma once

#include "framework/entities/IgmpContextStatus.h"
#include "framework/kel/Table.h"
#include "platform/igmp/wire/Message.h"

namespace Bridging::IgmpSnooping {

/// A reporter's filter for a group: INCLUDE(A) or EXCLUDE(A), in the letters of RFC 9776.
/// Somebody of whom nothing is known is in INCLUDE({}), and so is who has left.
class KEL_EXPORT FilterState {
 public:
  using Mode = Gmp::Igmp::IgmpFilterMode;
  using Sources = Kel::Table<Wirex::IpAddr, Kel::Nothing>;

  FilterState() = default;

  /// The state of an IGMPv1 or IGMPv2 reporter: EXCLUDE({}).
  static FilterState everySource();

  /// The state that a group record leaves a reporter in (RFC 9776 section 4.2.12).
  /// @param membership its present one, or null.
  static FilterState after(Igmp::GroupRecord const& record, IgmpMembership const* membership);

  /// Whether a record states a membership's filter as it is, its sources in the same order. It may
  /// be missed, but costs little to find out, and most reports only repeat what is known.
  static bool isRepeatedBy(Igmp::GroupRecord const& record, IgmpMembership const& membership);

  Mode mode() const { return mode_; }
  std::uint32_t sourceCount() const { return sources_.size(); }
  bool wantsNothing() const { return mode_ == Mode::include && sources_.empty(); }
  bool describes(IgmpMembership const& membership) const;

  /// Brings a membership into this state, changing only what differs.
  void applyTo(IgmpMembership& membership) const;

 private:
  explicit FilterState(Mode mode) : mode_(mode) {}

  void add(Wirex::IpAddr source);
  void remove(Wirex::IpAddr source);

  Mode mode_ = Mode::include;
  Sources sources_;
};

}  // namespace Bridging::IgmpSnooping
