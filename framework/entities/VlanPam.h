#pragma once

#include "framework/kel/Notification.h"
#include "framework/kel/Text.h"

namespace Wirex {

/// The packet access of one (port, VLAN), as the entity that an IGMP host holds. How packets move
/// through it is the packet library's business.
class KEL_EXPORT VlanPam : public Kel::Entity {
 public:
  explicit VlanPam(Kel::Name name) : name_(std::move(name)) {}

  Kel::Name const& name() const { return name_; }

 private:
  Kel::Name name_;
};

}  // namespace Wirex
