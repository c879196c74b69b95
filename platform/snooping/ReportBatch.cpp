#include "platform/snooping/ReportBatch.h"

#include <algorithm>

#include "platform/snooping/VlanLearning.h"

namespace Bridging::IgmpSnooping {

void ReportBatch::add(VlanLearning& learning) {
  if (std::find(changed_.begin(), changed_.end(), &learning) == changed_.end())
    changed_.push_back(&learning);
}

void ReportBatch::settle() {
  for (std::size_t i = 0; i < changed_.size(); ++i) changed_[i]->settle();
}

// What readers do may change memberships, and end the learning of VLANs that still wait.
void ReportBatch::publish() {
  std::size_t const waiting = changed_.size();
  for (std::size_t i = 0; i < waiting && !changed_.empty(); ++i) {
    VlanLearning* const learning = changed_.front();
    changed_.erase(changed_.begin());
    learning->publish();
  }
}

}  // namespace Bridging::IgmpSnooping
