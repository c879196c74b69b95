#pragma once

#include <cstdint>
#include <utility>

#include "framework/kel/Ptr.h"

namespace Bridging::IgmpSnooping::Proxy {

/// The groups of an adapter whose counts changed since the hosts' records were last written, so
/// that an update need not look at the others. Groups and adapter share it, because either may
/// outlive the other.
template <class Adapter, class Group>
class ChangedGroups : public Kel::PtrInterface {
 public:
  /// What a group keeps of the list.
  class Link {
   public:
    bool isListed() const noexcept { return place_ != nullptr; }

   private:
    friend class ChangedGroups;

    Link** place_ = nullptr;  // what points to this one
    Link* next_ = nullptr;
    Group* group_ = nullptr;
  };

  explicit ChangedGroups(Adapter* adapter) : adapter_(adapter) {}

  /// Whose groups they are; null once it has gone.
  Adapter* adapter() const noexcept { return adapter_; }
  void adapterHasGone() noexcept { adapter_ = nullptr; }

  /// Adds a group that is not in the list.
  void add(Link& link, Group& group) noexcept {
    ++additions_;
    link.group_ = &group;
    link.place_ = &first_;
    link.next_ = std::exchange(first_, &link);
    if (link.next_) link.next_->place_ = &link.next_;
  }

  /// Takes out a group that is in the list.
  void remove(Link& link) noexcept {
    *link.place_ = link.next_;
    if (link.next_) link.next_->place_ = link.place_;
    link.place_ = nullptr;
  }

  /// How often a group was added so far.
  std::uint64_t additions() const noexcept { return additions_; }

  template <class Visit>
  void forEach(Visit visit) const {
    for (Link const* link = first_; link; link = link->next_) visit(*link->group_);
  }

 private:
  Adapter* adapter_;
  Link* first_ = nullptr;
  std::uint64_t additions_ = 0;
};

}  // namespace Bridging::IgmpSnooping::Proxy
