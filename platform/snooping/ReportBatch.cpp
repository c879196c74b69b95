#include "platform/snooping/ReportBatch.h"

#include <algorithm>
#include <utility>

#include "platform/snooping/VlanLearning.h"

namespace Bridging::IgmpSnooping {

void ReportBatch::add(Kel::Ptr<IgmpContextStatus> const& status) {
  if (std::find(changed_.begin(), changed_.end(), status) == changed_.end())
    changed_.push_back(status);
}

void ReportBatch::publish() {
  for (VlanLearning* const learning : std::exchange(removals_, {})) learning->removeWithdrawn();
  for (auto const& status : std::exchange(changed_, {})) status->newIgmpReportNotify();
}

}  // namespace Bridging::IgmpSnooping
