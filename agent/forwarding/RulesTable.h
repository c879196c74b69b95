#pragma once

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "agent/forwarding/Netlink.h"
#include "agent/forwarding/StreamRules.h"

struct nft_ctx;

namespace Agent {

/// The agent's table of nftables rules in the kernel. Errors are texts: why nftables refused.
class RulesTable {
 public:
  /// Whether a group is to be in a set.
  struct Member {
    std::string set;
    Wirex::IpAddr group;
    bool present;
  };

  /// Throws std::system_error, std::runtime_error.
  RulesTable();

  bool exists();
  /// The same without an open table.
  static bool isThere();

  /// What an earlier agent kept; nothing without a table.
  std::optional<FormerSettings> former();

  /// The groups in the sets.
  std::set<Wirex::IpAddr> groups();

  std::optional<std::string> run(std::string const& commands);

  /// Adds to what a later agent finds.
  std::optional<std::string> keep(FormerSettings const& former);

  /// All of them, or none.
  std::optional<std::string> change(std::vector<Member> const& members);

  void remove();

  /// Has input when somebody has changed the rules of the kernel.
  int descriptor() const { return events_.descriptor(); }
  /// Whether somebody else may have deleted something of the table, and nobody has taken note of it
  /// yet.
  bool isDisturbed();
  /// Whether somebody has, as far as could be told.
  bool takeDisturbance();

 private:
  struct Closer {
    void operator()(nft_ctx* context) const noexcept;
  };

  static bool existsBy(RequestSocket& socket);
  std::string listing(std::string const& what);
  std::optional<std::string> commit(NetlinkBatch& batch);
  void hearOthers();
  void ignoreOwn();

  std::unique_ptr<nft_ctx, Closer> nft_;
  RequestSocket socket_;
  RequestSocket events_;
  bool disturbed_ = false;
  bool unsure_ = false;  // more has changed than could be told
};

}  // namespace Agent
