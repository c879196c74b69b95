#pragma once

#include <cstdint>
#include <utility>

#include "platform/igmp/IgmpV3GroupRecord.h"
#include "proxy/SourceCount.h"

namespace Bridging::IgmpSnooping::Proxy {

/// A group's record for the hosts that leave nothing out, because their own port is no member or
/// wants only what others want too: the same for all of them, and made once for each state of the
/// group's counts.
class CommonRecord {
 public:
  using Record = Kel::Ptr<Igmp::IgmpV3GroupRecord>;

  /// The record, or null where such hosts report nothing.
  /// @param ports how many member ports there are
  /// @param make makes it
  template <class Make>
  Record const& of(SourceCount const& counts, std::uint32_t ports, Make make) {
    if (version_ != counts.version() || ports_ != ports) {
      version_ = counts.version();
      ports_ = ports;
      record_ = make();
      if (record_) record_->sharedIs(true);
    }
    return record_;
  }

  void forget() {
    version_ = SourceCount::noVersion;
    record_ = nullptr;
  }

 private:
  Record record_;
  std::uint32_t version_ = SourceCount::noVersion;  // of the counts that it was made from
  std::uint32_t ports_ = 0;
};

}  // namespace Bridging::IgmpSnooping::Proxy
