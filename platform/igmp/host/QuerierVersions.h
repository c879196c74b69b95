#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "platform/horix/TimerWheel.h"
#include "platform/igmp/wire/Message.h"

namespace Igmp {

/// Which older versions the queriers on a link, or in a VLAN, speak: the Older Version Querier
/// Present timers of a host (RFC 9776 section 7.2.1).
class KEL_EXPORT QuerierVersions {
 public:
  /// @param onChange is called when the oldest version may have changed by time alone.
  QuerierVersions(Kel::Ptr<Horix::TimerWheel const> timerWheel, std::function<void()> onChange);

  /// A query was heard: one of an older version starts that version's timer anew.
  void heard(Wirex::IpAddr querier, Query const& query);

  /// An older version that is spoken, by whom at last, and until when if it is not heard again.
  struct Present {
    IgmpVersion version;
    Wirex::IpAddr querier;  ///< 0.0.0.0 from one without an address
    Horix::Time until;

    friend bool operator==(Present const&, Present const&) noexcept = default;
  };

  /// All queriers that are present, to be restored by presentIs().
  std::vector<Present> present() const;
  void presentIs(Present const& present);

  /// The oldest version of the queriers that are present.
  IgmpVersion oldest() const noexcept;

  /// The last one heard that speaks it, if that is an older version; else 0.0.0.0, which may also
  /// be the address of a querier without one.
  Wirex::IpAddr oldestQuerier() const noexcept;

 private:
  class PresentTimer final : public Horix::Timer {
   public:
    explicit PresentTimer(std::function<void()> const& onEnd) : onEnd_(onEnd) {}

    Wirex::IpAddr querier;

   private:
    void onExpiry() override { onEnd_(); }

    std::function<void()> const& onEnd_;
  };

  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  std::function<void()> onChange_;
  PresentTimer v1_{onChange_};
  PresentTimer v2_{onChange_};
};

}  // namespace Igmp
