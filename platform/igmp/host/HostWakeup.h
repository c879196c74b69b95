#pragma once

#include "framework/kel/Notification.h"

namespace Igmp {

/// A host's note to itself that something is to be compared or said once the present batch of
/// changes is over. Its reactor is bound to an activity.
class HostWakeup final : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<HostWakeup const> {
   public:
    virtual void onDue() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  void dueNotify() const { notify<&NotifieeConst::onDue>(); }
};

}  // namespace Igmp
