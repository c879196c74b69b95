#pragma once

#include <cstdint>
#include <utility>

#include "framework/kel/Table.h"
#include "framework/types/IpAddr.h"

namespace Bridging::IgmpSnooping::Proxy {

/// Whether a member port's lists are what its latest evaluation made of its reporters, and of which
/// sources its reporters have changed since: only those need be looked at again.
class PortSettlement {
 public:
  using Sources = Kel::Table<Wirex::IpAddr, Kel::Nothing>;

  bool isSettled() const noexcept { return settled_ != 0; }

  /// Anything may be amiss: the next evaluation looks at everything.
  void unsettle() {
    settled_ = 0;
    changed_ = Sources();
  }

  /// The lists are what so many reporters want.
  void settle(std::uint32_t reporters) {
    settled_ = 1;
    reporters_ = reporters & 0x7fffffff;
    changed_ = Sources();
  }

  /// A reporter lists a source, or does no longer. Of many changes among few sources none is kept,
  /// because to look at everything costs no more.
  /// @param sources how many the reporters list
  void noteChange(Wirex::IpAddr source, std::uint32_t sources) {
    if (!isSettled() || changed_.contains(source)) return;
    if (changed_.size() >= few && changed_.size() > sources / 2)
      unsettle();
    else
      changed_.add(source, {});
  }

  Sources takeChanges() noexcept { return std::move(changed_); }

  /// How many reporters there were at the latest evaluation.
  std::uint32_t reporters() const noexcept { return reporters_; }

 private:
  static constexpr std::uint32_t few = 8;

  Sources changed_;
  std::uint32_t reporters_ : 31 = 0;
  std::uint32_t settled_ : 1 = 0;
};

}  // namespace Bridging::IgmpSnooping::Proxy
