#pragma once

#include <vector>

#include "framework/entities/IgmpContextStatus.h"
#include "framework/kel/Export.h"

namespace Bridging::IgmpSnooping {

class VlanLearning;

/// The VLANs in which a batch of input has changed memberships. However many reports did so, each
/// VLAN gets one `newIgmpReport`, at the end of the batch.
class KEL_EXPORT ReportBatch {
 public:
  void add(Kel::Ptr<IgmpContextStatus> const& status);

  /// Has the learning remove withdrawn memberships before it publishes, unless it goes before.
  void addRemovals(VlanLearning& learning) { removals_.push_back(&learning); }
  void forget(VlanLearning& learning) { std::erase(removals_, &learning); }

  void publish();

 private:
  // Few: a batch is what one wake-up read.
  std::vector<Kel::Ptr<IgmpContextStatus>> changed_;
  std::vector<VlanLearning*> removals_;
};

}  // namespace Bridging::IgmpSnooping
