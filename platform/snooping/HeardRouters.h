#pragma once

#include <vector>

#include "framework/kel/Export.h"
#include "framework/types/IpAddr.h"
#include "platform/horix/Clock.h"

namespace Bridging::IgmpSnooping {

/// The routers heard on a port, each until its time is over. Each has a time of its own, so that
/// one that says goodbye, or has a short one, does not take the others with it.
class KEL_EXPORT HeardRouters {
 public:
  /// A router, and until when it is taken to be there.
  struct Router {
    Wirex::IpAddr address;  ///< of its messages
    Horix::Time until{};
  };

  /// A link with more is not believed: the one that is over first makes room.
  static constexpr std::size_t most = 16;

  /// A router was heard; one that is known has its time renewed.
  void heard(Router const& router);
  /// A router has said that it goes.
  void gone(Wirex::IpAddr router);
  /// The port is gone, and with it all that was heard there.
  void allGone() { routers_.clear(); }

  /// Drops those whose time is over.
  void nowIs(Horix::Time now);

  /// All that are heard.
  std::vector<Router> const& all() const { return routers_; }

  /// The one that stays longest; 0.0.0.0 if there is none.
  Router latest() const;

  /// When the first of them is over; Horix::Time::max() if none ever is.
  Horix::Time nextEnd() const;

 private:
  std::vector<Router> routers_;
};

}  // namespace Bridging::IgmpSnooping
