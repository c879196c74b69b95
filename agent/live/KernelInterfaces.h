#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "agent/InterfaceState.h"
#include "agent/live/LinkMessage.h"
#include "agent/live/NetlinkTable.h"
#include "framework/types/IntfId.h"
#include "platform/horix/EventLoop.h"

namespace Agent {

/// Follows the kernel's interfaces: those that come, go and are renamed, their carrier, and whether
/// a bridge lets its port forward. An interface is found by its name.
///
/// What happened between two turns of the loop is told as one change, many changes are told a few
/// in each turn. But an interface that was down or gone meanwhile is told so, because whoever
/// listened there knows nothing any more.
class KernelInterfaces final : private NetlinkTable::Reader {
 public:
  /// An interface, and what it is like now.
  using Changed = std::function<void(Wirex::IntfId const&, InterfaceState const&)>;

  /// Tells of the interfaces that there are before it returns. Throws std::system_error.
  /// @param loop outlives it.
  KernelInterfaces(Horix::EventLoop& loop, Changed changed,
                   std::unique_ptr<NetlinkSocket> socket = ofLinks());
  ~KernelInterfaces();

 private:
  struct Link {
    std::string name;
    InterfaceState state;
    std::uint32_t generation = 0;
  };
  /// The worst that an interface was since it was last told.
  enum class Meanwhile { changed, down, gone };
  class Rest;

  static std::unique_ptr<NetlinkSocket> ofLinks();

  void onEntry(nlmsghdr const& entry) override;
  void onComplete() override;
  void onPause() override;

  void handleLink(LinkMessage link);
  void linkIs(std::uint32_t index, Link link);
  void linkDel(std::uint32_t index);
  void giveUpName(std::string const& name, std::uint32_t index);
  void changedIs(std::string const& name, Meanwhile meanwhile);

  InterfaceState stateOf(std::string const& name) const;
  void tell(std::size_t most);
  void tell(std::string const& name, Meanwhile meanwhile);

  Horix::EventLoop& loop_;
  Changed changed_;
  std::map<std::uint32_t, Link> links_;
  std::map<std::string, std::uint32_t> named_;  // of several that had a name, the last one
  std::map<std::string, InterfaceState> told_;
  std::map<std::string, Meanwhile> untold_;
  std::unique_ptr<Rest> rest_;
  NetlinkTable table_;
};

}  // namespace Agent
