#pragma once

#include <functional>
#include <memory>

#include "agent/live/AddressBook.h"
#include "agent/live/NetlinkTable.h"
#include "platform/horix/EventLoop.h"

namespace Agent {

/// Follows the kernel's IPv4 addresses, and which interface stands on which.
class KernelAddresses final : private Horix::Timer {
 public:
  /// Some may be different. Many changes in a short time are told as one.
  using Changed = std::function<void(AddressBook const&)>;

  struct Sockets {
    std::unique_ptr<NetlinkSocket> ofLinks;
    std::unique_ptr<NetlinkSocket> ofAddresses;
  };

  /// Tells of the addresses that there are before it returns. Throws std::system_error.
  /// @param loop outlives it.
  KernelAddresses(Horix::EventLoop& loop, Changed changed, Sockets sockets = ofKernel());
  KernelAddresses(KernelAddresses const&) = delete;
  KernelAddresses& operator=(KernelAddresses const&) = delete;
  ~KernelAddresses() override;

 private:
  class Links;
  class Addresses;

  static Sockets ofKernel();

  void changedIs(bool changed) { changed_ |= changed; }
  void tellSoon();
  void onExpiry() override;

  Horix::EventLoop& loop_;
  Changed tell_;
  AddressBook book_;
  bool changed_ = false;
  std::unique_ptr<Links> links_;
  std::unique_ptr<Addresses> addresses_;
};

}  // namespace Agent
