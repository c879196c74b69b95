#pragma once

#include <vector>

#include "framework/kel/Export.h"

namespace Bridging::IgmpSnooping {

class VlanLearning;

/// The VLANs in which a batch of input has changed memberships. However many reports did so, the
/// readers of each VLAN hear of it once, at the end of the batch.
class KEL_EXPORT ReportBatch {
 public:
  void add(VlanLearning& learning);
  void forget(VlanLearning& learning) { std::erase(changed_, &learning); }

  /// Has the readers of all VLANs hear what is written so far, without telling them that it is all.
  /// To be called in the midst of a batch: activities run for every VLAN, and what one has half
  /// said would be taken for its word.
  void settle();

  void publish();

 private:
  // Few: a batch is what one wake-up read.
  std::vector<VlanLearning*> changed_;
};

}  // namespace Bridging::IgmpSnooping
