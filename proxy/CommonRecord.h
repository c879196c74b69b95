#pragma once

#include <cstdint>
#include <utility>

#include "platform/igmp/IgmpV3GroupRecord.h"
#include "proxy/SourceCount.h"

namespace Bridging::IgmpSnooping::Proxy {

/// A group's record for the hosts that leave nothing out, because their own port is no member or
/// wants only what others want too: the same for all of them. Made once for each state of the
/// group's counts, with whether every member port is such a one.
class CommonRecord {
 public:
  using Record = Kel::Ptr<Igmp::IgmpV3GroupRecord>;

  /// Null where such hosts report nothing.
  Record const& record() const noexcept { return record_; }

  /// Whether every wish of a port is also one of another port. May be false where ports exclude
  /// sources.
  bool everyWishIsShared() const noexcept { return everyWishIsShared_; }

  /// @param ports how many member ports there are
  /// @param make makes the record
  template <class Make>
  void update(SourceCount const& counts, std::uint32_t ports, Make make) {
    if (version_ == counts.version() && ports_ == ports) return;
    version_ = counts.version();
    ports_ = ports & 0x7fffffff;
    record_ = make();
    if (record_) record_->sharedIs(true);
    everyWishIsShared_ = ports > 1 && eachIsOfTwo(counts);
  }

  void forget() {
    version_ = SourceCount::noVersion;
    record_ = nullptr;
  }

 private:
  static bool eachIsOfTwo(SourceCount const& counts) {
    if (counts.starGCount() != 0) return counts.starGCount() > 1;
    if (!counts.exclude().empty()) return false;
    for (auto const [source, including] : counts.include())
      if (including < 2) return false;
    return true;
  }

  Record record_;
  std::uint32_t version_ = SourceCount::noVersion;  // of the counts that it was made from
  std::uint32_t ports_ : 31 = 0;
  std::uint32_t everyWishIsShared_ : 1 = 0;
};

}  // namespace Bridging::IgmpSnooping::Proxy
