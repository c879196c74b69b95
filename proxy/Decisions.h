#pragma once

#include <utility>

#include "framework/kel/Table.h"

namespace Bridging::IgmpSnooping::Proxy {

/// The keys that a machine is deciding about.
///
/// What a decision writes is heard by others, who may change what it was made from. The machine is
/// then told of the key in the middle of deciding it. It does not decide inside of itself: the key
/// is marked, and decided again once its decision is over. What had to go in between goes, even if
/// it is to be there again by then.
template <class Key>
class Decisions {
 public:
  class Hold;
  class Rounds;

  /// Whether a key that is being decided had to go since its decision began.
  bool lapsed(Key const& key) const noexcept {
    auto const* const mark = marks_.find(key);
    return mark && mark->lapsed;
  }

 private:
  struct Mark {
    bool inHand = true;
    bool again = false;
    bool lapsed = false;
  };

  Kel::Table<Key, Mark> marks_;
};

/// Has a key in hand while it lives, unless somebody else has it already.
template <class Key>
class Decisions<Key>::Hold {
 public:
  Hold(Decisions& decisions, Key const& key) : marks_(decisions.marks_), key_(key) {
    Mark* const mark = marks_.find(key);
    holds_ = !mark || !mark->inHand;
    if (!mark)
      marks_.add(key, Mark{});
    else if (holds_)
      mark->inHand = true;
  }
  Hold(Hold const&) = delete;
  Hold& operator=(Hold const&) = delete;
  ~Hold() { release(); }

  /// Lets go of the key. Returns whether it is to be decided again; its marks then stay for whoever
  /// does that.
  bool release() noexcept {
    if (!std::exchange(holds_, false)) return false;
    Mark& mark = this->mark();
    mark.inHand = false;
    bool const again = mark.again;
    if (!again) marks_.takeAt(marks_.position(key_));
    return again;
  }

 private:
  friend class Rounds;

  Mark& mark() const noexcept { return *marks_.find(key_); }

  Kel::Table<Key, Mark>& marks_;
  Key const key_;
  bool holds_;
};

/// The rounds in which a key is decided, usually one:
///
///     for (Decisions<VlanId>::Rounds rounds(decisions_, vlan, isWanted); rounds.next();)
///       if (isWanted() && !rounds.lapsed()) make(vlan); else remove(vlan);
template <class Key>
class Decisions<Key>::Rounds {
 public:
  /// @param isWanted asked in the middle of the key's decision, where there are no rounds.
  template <class IsWanted>
  Rounds(Decisions& decisions, Key const& key, IsWanted isWanted) : hold_(decisions, key) {
    hold_.mark().again = true;
    if (!hold_.holds_ && !isWanted()) hold_.mark().lapsed = true;
  }

  bool next() noexcept {
    if (!hold_.holds_) return false;
    repeated_ = std::exchange(begun_, true);
    Mark& mark = hold_.mark();
    lapsed_ = std::exchange(mark.lapsed, false);
    return std::exchange(mark.again, lapsed_);
  }

  /// Whether this round is for what had to go. Another one follows, for what is there now.
  bool lapsed() const noexcept { return lapsed_; }
  bool repeated() const noexcept { return repeated_; }

 private:
  Hold hold_;
  bool begun_ = false;
  bool repeated_ = false;
  bool lapsed_ = false;
};

}  // namespace Bridging::IgmpSnooping::Proxy
