#pragma once

#include <algorithm>
#include <utility>
#include <vector>

#include "framework/entities/IgmpContextStatus.h"

namespace Bridging::IgmpSnooping {

/// The VLANs in which a batch of input has changed memberships. However many reports did so, each
/// VLAN gets one `newIgmpReport`, at the end of the batch.
class ReportBatch {
 public:
  void add(Kel::Ptr<IgmpContextStatus> const& status) {
    if (std::find(changed_.begin(), changed_.end(), status) == changed_.end())
      changed_.push_back(status);
  }

  void publish() {
    for (auto const& status : std::exchange(changed_, {})) status->newIgmpReportNotify();
  }

 private:
  std::vector<Kel::Ptr<IgmpContextStatus>> changed_;  // few: a batch is what one wake-up read
};

}  // namespace Bridging::IgmpSnooping
