#include "proxy/SourceCount.h"

namespace Bridging::IgmpSnooping::Proxy {

using Gmp::Igmp::IgmpFilterMode;

SourceCount::Count getRefCount(Kel::Ptr<SourceCount> const& counts, IgmpFilterMode mode,
                               Wirex::IpAddr source) {
  return mode == IgmpFilterMode::exclude ? counts->exclude(source) : counts->include(source);
}

void incRefCount(Kel::Ptr<SourceCount> const& counts, IgmpFilterMode mode, Wirex::IpAddr source) {
  if (mode == IgmpFilterMode::exclude)
    counts->excludeInc(source, 1);
  else
    counts->includeInc(source, 1);
}

void decRefCount(Kel::Ptr<SourceCount> const& counts, IgmpFilterMode mode, Wirex::IpAddr source) {
  SourceCount::Count const count = getRefCount(counts, mode, source);
  if (count == 0) return;
  if (mode == IgmpFilterMode::exclude)
    count == 1 ? counts->excludeDel(source) : counts->excludeDec(source, 1);
  else
    count == 1 ? counts->includeDel(source) : counts->includeDec(source, 1);
}

}  // namespace Bridging::IgmpSnooping::Proxy
