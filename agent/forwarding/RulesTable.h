#pragma once

#include <memory>
#include <optional>
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

  /// What an earlier agent kept; nothing without a table.
  std::optional<FormerSettings> former();

  std::optional<std::string> run(std::string const& commands);

  /// All of them, or none.
  std::optional<std::string> change(std::vector<Member> const& members);

  void remove();

 private:
  struct Closer {
    void operator()(nft_ctx* context) const noexcept;
  };

  std::unique_ptr<nft_ctx, Closer> nft_;
  RequestSocket socket_;
};

}  // namespace Agent
