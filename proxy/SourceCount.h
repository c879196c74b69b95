#pragma once

#include <cstdint>

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/types/IgmpFilterMode.h"
#include "framework/types/IpAddr.h"

namespace Bridging::IgmpSnooping::Proxy {

/// How many member ports of a group want what: one instance for all ports of a group, and free
/// ones as scratch space. `incRefCount` and `decRefCount` keep an entry only while its count is at
/// least 1.
class KEL_EXPORT SourceCount : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<SourceCount const> {
   public:
    virtual void onStarGCount() {}
    virtual void onInclude(Wirex::IpAddr /*source*/) {}
    virtual void onIncludekelImmediate() {}
    virtual void onExclude(Wirex::IpAddr /*source*/) {}
    virtual void onExcludekelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Count = std::uint16_t;
  using Includes = Kel::Values<Wirex::IpAddr, Count, &NotifieeConst::onInclude>;
  using Excludes = Kel::Values<Wirex::IpAddr, Count, &NotifieeConst::onExclude>;

  static Kel::Ptr<SourceCount> SourceCountIs() { return Kel::make<SourceCount>(); }

  /// The ports that want every source: *,G, exclude mode without sources.
  Count starGCount() const { return starGCount_.get(); }
  void starGCountIs(Count count) {
    ++version_;
    starGCount_.is(*this, count);
  }
  void starGCountInc(Count by) { starGCountIs(static_cast<Count>(starGCount() + by)); }
  void starGCountDec(Count by) { starGCountIs(static_cast<Count>(starGCount() - by)); }

  /// The ports that list a source in include mode; 0 where it is absent.
  Includes const& include() const { return include_; }
  Count include(Wirex::IpAddr source) const { return include_.get(source); }
  void includeIs(Wirex::IpAddr source, Count count) { includes().is(*this, source, count); }
  void includeInc(Wirex::IpAddr source, Count by) { includes().inc(*this, source, by); }
  void includeDec(Wirex::IpAddr source, Count by) { includes().dec(*this, source, by); }
  void includeDel(Wirex::IpAddr source) { includes().del(*this, source); }
  void includeDelAll() { includes().delAll(*this); }
  /// Rebuilds the includes from empty with the sources of other ones.
  void includeRefill(Includes const& sources, Count count) {
    includes().refill(*this, sources, count);
  }
  void includeNotify(Wirex::IpAddr source) { include_.notify(*this, source); }
  void includeNotify() { notify<&NotifieeConst::onIncludekelImmediate>(); }

  /// The ports that list a source in exclude mode; 0 where it is absent.
  Excludes const& exclude() const { return exclude_; }
  Count exclude(Wirex::IpAddr source) const { return exclude_.get(source); }
  void excludeIs(Wirex::IpAddr source, Count count) { excludes().is(*this, source, count); }
  void excludeInc(Wirex::IpAddr source, Count by) { excludes().inc(*this, source, by); }
  void excludeDec(Wirex::IpAddr source, Count by) { excludes().dec(*this, source, by); }
  void excludeDel(Wirex::IpAddr source) { excludes().del(*this, source); }
  void excludeDelAll() { excludes().delAll(*this); }
  void excludeNotify(Wirex::IpAddr source) { exclude_.notify(*this, source); }
  void excludeNotify() { notify<&NotifieeConst::onExcludekelImmediate>(); }

  /// Between two equal readings, nothing has changed, and no exclude.
  std::uint32_t version() const noexcept { return version_; }
  std::uint32_t excludeVersion() const noexcept { return excludeVersion_; }
  static constexpr std::uint32_t noVersion = 0;

 private:
  Includes& includes() noexcept {
    ++version_;
    return include_;
  }
  Excludes& excludes() noexcept {
    ++version_;
    ++excludeVersion_;
    return exclude_;
  }

  Kel::Value<Count, &NotifieeConst::onStarGCount> starGCount_;
  std::uint32_t excludeVersion_ = noVersion + 1;
  std::uint32_t version_ = noVersion + 1;
  Includes include_;
  Excludes exclude_;
};

/// The count of a source: in `exclude` for exclude mode, in `include` for any other.
KEL_EXPORT SourceCount::Count getRefCount(Kel::Ptr<SourceCount> const& counts,
                                          Gmp::Igmp::IgmpFilterMode mode, Wirex::IpAddr source);

/// Counts one port more.
KEL_EXPORT void incRefCount(Kel::Ptr<SourceCount> const& counts, Gmp::Igmp::IgmpFilterMode mode,
                            Wirex::IpAddr source);

/// Counts one port less; a source that is absent stays so.
KEL_EXPORT void decRefCount(Kel::Ptr<SourceCount> const& counts, Gmp::Igmp::IgmpFilterMode mode,
                            Wirex::IpAddr source);

}  // namespace Bridging::IgmpSnooping::Proxy
