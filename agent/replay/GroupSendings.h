#pragma once

#include "agent/config/Configuration.h"
#include "agent/output/Explanation.h"
#include "platform/igmp/wire/Message.h"

namespace Agent {

/// Writes down what the host of a port sends for one group. Memory is constant.
class GroupSendings {
 public:
  GroupSendings(Configuration const& configuration, Bridging::VlanId vlan,
                Wirex::IntfId const& interface, Wirex::IpAddr group);

  /// A host has sent this.
  void sent(Wirex::IntfId const& port, Horix::Time time, Wirex::Bytes bytes);

  /// As they are explained at this time.
  ExplainedGroupSendings explained(Horix::Time now) const;

 private:
  void note(Horix::Time time, Igmp::Message const& message);

  Bridging::VlanId vlan_;
  bool tagged_ = false;
  Wirex::IntfId interface_;
  Wirex::IpAddr group_;
  ExplainedGroupSendings::Counts counts_;
  std::string latest_;
  Horix::Time at_{};
};

}  // namespace Agent
