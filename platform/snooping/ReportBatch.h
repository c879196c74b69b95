#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "framework/kel/Export.h"
#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"

namespace Bridging::IgmpSnooping {

class VlanLearning;

/// The VLANs in which a batch of input has changed memberships. However many reports did so, the
/// readers of each VLAN hear of it once, at the end of the batch.
class KEL_EXPORT ReportBatch {
 public:
  /// The learning has written something that its readers have not heard.
  void add(VlanLearning& learning);

  /// Who hears of each group whose memberships change, as they do, so perhaps several times in a
  /// batch. That costs nothing for groups that stay as they are. Those of a VLAN whose learning
  /// ends are not told.
  using OnGroup = std::function<void(VlanId, Wirex::IpAddr)>;
  void onGroupIs(OnGroup action) { onGroup_ = std::move(action); }
  /// Tells who hears of groups.
  void groupHasChanged(VlanId vlan, Wirex::IpAddr group) const {
    if (onGroup_) onGroup_(vlan, group);
  }

  /// The learning ends: its readers hear nothing more of this batch.
  void forget(VlanLearning& learning) { std::erase(changed_, &learning); }

  /// Has the readers of all VLANs hear what is written so far, without telling them that it is all.
  /// To be called in the midst of a batch: activities run for every VLAN, and what one has half
  /// said would be taken for its word.
  void settle();

  void publish();

 private:
  // Few: a batch is what one wake-up read.
  std::vector<VlanLearning*> changed_;
  OnGroup onGroup_;
};

}  // namespace Bridging::IgmpSnooping
