#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "agent/forwarding/BridgeLink.h"
#include "agent/forwarding/EntryRemoval.h"
#include "agent/forwarding/MdbEvents.h"
#include "agent/forwarding/RulesTable.h"

namespace Agent {

/// Takes a kernel's bridge over from its own snooping, and gives it back: what was set is
/// remembered beside the rules, so that a later agent finds it should this one be killed. Entries,
/// rules and settings of others are left alone.
class BridgeControl {
 public:
  /// Throws std::system_error, std::runtime_error.
  BridgeControl() : socket_(NETLINK_ROUTE) {}

  std::optional<LinkInfo> link(std::string const& name) { return linkNamed(socket_, name); }

  std::vector<LinkInfo> portsOf(std::uint32_t bridge) { return Agent::portsOf(socket_, bridge); }

  /// Whether the kernel can flood frames with a VLAN tag.
  static bool floodsTagged();

  /// Begins to give back what an earlier agent left behind. Returns whether it had left anything.
  bool recover();

  /// Puts up the rules, with everything flooded, and then has the bridge go by permanent entries.
  /// Returns why it could not, having undone what it had begun.
  std::optional<std::string> take(LinkInfo const& bridge, StreamRules const& rules);

  /// Puts the rules anew, with everything flooded. Returns why not.
  std::optional<std::string> rulesAre(StreamRules const& rules);

  /// Sets what is otherwise, and remembers what it was. Returns why it could not.
  std::optional<std::string> settingIs(LinkInfo const& link, LinkSetting setting,
                                       std::uint32_t value);

  struct Setting {
    LinkInfo const& link;  ///< as it is
    LinkSetting setting;
    std::uint32_t value;
  };
  /// The same for many, in their order. Returns why some could not be set.
  std::vector<std::string> settingsAre(std::span<Setting const> settings);

  /// Whether somebody has changed a setting that is needed; returns its name.
  static char const* disturbedIn(LinkInfo const& bridge);

  /// Sets again what is needed. Returns why it could not.
  std::optional<std::string> restoreNeeded(LinkInfo const& bridge);

  /// Has everything flooded at once. The entries then go piece by piece, and at last the settings
  /// are put back and the rules taken away.
  /// @param groups that the entries are for: some kernels do not remember who made an entry.
  void beginToGiveBack(std::set<Wirex::IpAddr> groups);
  bool isGivingBack() const { return removal_ != nullptr; }
  /// A piece. Returns whether there is more. Throws std::system_error, and has ended then.
  bool giveSomeBack();

  std::vector<NetlinkFailure> write(NetlinkBatch& batch) { return socket_.send(batch); }
  MdbEvents& events() { return events_; }
  RulesTable& rules() { return rules_; }
  EntryKind entryKind() const { return entryKind_; }

 private:
  void putSettingsBack();
  void trustOwnQuerierSoon(LinkInfo const& bridge);

  RequestSocket socket_;
  MdbEvents events_;
  RulesTable rules_;
  EntryKind entryKind_ = entryKindOfKernel();
  FormerSettings former_;
  std::unique_ptr<EntryRemoval> removal_;  // while it is given back

  static EntryKind entryKindOfKernel();
};

}  // namespace Agent
