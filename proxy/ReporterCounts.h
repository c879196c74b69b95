#pragma once

#include <cstdint>

#include "framework/entities/IgmpContextStatus.h"
#include "framework/kel/Table.h"
#include "proxy/SourceCount.h"

namespace Bridging::IgmpSnooping::Proxy {

/// What the reporters on a port list: for each source, how many of them include it and how many
/// exclude it. A source that nobody lists has no entry.
class ReporterCounts {
 public:
  using FilterMode = Gmp::Igmp::IgmpFilterMode;
  using Count = SourceCount::Count;
  using Sources = Kel::Table<Wirex::IpAddr, std::uint32_t>;

  void addAll(FilterMode mode, IgmpMembership::Sources const& sources) {
    if (mode == FilterMode::exclude) ++excludingReporters_;
    for (Wirex::IpAddr const source : sources) add(mode, source);
  }
  void removeAll(FilterMode mode, IgmpMembership::Sources const& sources) {
    if (mode == FilterMode::exclude) --excludingReporters_;
    for (Wirex::IpAddr const source : sources) remove(mode, source);
  }

  void add(FilterMode mode, Wirex::IpAddr source) {
    Sources& sources = of(mode);
    if (std::uint32_t* const count = sources.find(source))
      ++*count;
    else
      sources.add(source, 1);
  }
  void remove(FilterMode mode, Wirex::IpAddr source) {
    Sources& sources = of(mode);
    std::uint32_t const at = sources.position(source);
    if (--sources.mappedAt(at) == 0) sources.takeAt(at);
  }

  Sources const& include() const noexcept { return include_; }
  Sources const& exclude() const noexcept { return exclude_; }
  std::uint32_t size() const noexcept { return include_.size() + exclude_.size(); }
  /// 0 where nobody lists the source. Counts are as wide as those of a group, and wrap likewise.
  Count include(Wirex::IpAddr source) const noexcept { return count(include_, source); }
  Count exclude(Wirex::IpAddr source) const noexcept { return count(exclude_, source); }

  /// How many of the reporters are in exclude mode.
  std::uint32_t excludingReporters() const noexcept { return excludingReporters_; }

  /// The version of the group's excludes among which no source was that a reporter includes, less
  /// those that reporters have come to include since.
  std::uint32_t disjointExcludes() const noexcept { return disjointExcludes_; }
  void disjointExcludesIs(std::uint32_t version) noexcept { disjointExcludes_ = version; }

 private:
  Sources& of(FilterMode mode) noexcept {
    return mode == FilterMode::exclude ? exclude_ : include_;
  }
  static Count count(Sources const& sources, Wirex::IpAddr source) noexcept {
    std::uint32_t const* const count = sources.find(source);
    return count ? static_cast<Count>(*count) : Count{0};
  }

  Sources include_;
  Sources exclude_;
  std::uint32_t excludingReporters_ = 0;
  std::uint32_t disjointExcludes_ = SourceCount::noVersion;
};

}  // namespace Bridging::IgmpSnooping::Proxy
