#include "agent/forwarding/RulesTable.h"

#include <arpa/inet.h>
#include <cstdio>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <nftables/libnftables.h>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr std::uint16_t typeOf(unsigned message) {
  return static_cast<std::uint16_t>(NFNL_SUBSYS_NFTABLES << 8 | message);
}

nfgenmsg bridgeFamily() {
  nfgenmsg message{};
  message.nfgen_family = NFPROTO_BRIDGE;
  message.version = NFNETLINK_V0;
  return message;
}

void addFrame(NetlinkBatch& batch, std::uint16_t type) {
  nfgenmsg message{};
  message.version = NFNETLINK_V0;
  message.res_id = htons(NFNL_SUBSYS_NFTABLES);
  batch.end(batch.add(type, 0, message));
}

void addMember(NetlinkBatch& batch, RulesTable::Member const& member) {
  auto const flags = static_cast<std::uint16_t>(member.present ? NLM_F_CREATE : 0);
  nlmsghdr& header = batch.add(typeOf(member.present ? NFT_MSG_NEWSETELEM : NFT_MSG_DELSETELEM),
                               flags, bridgeFamily());
  mnl_attr_put_strz(&header, NFTA_SET_ELEM_LIST_TABLE, rulesTable);
  mnl_attr_put_strz(&header, NFTA_SET_ELEM_LIST_SET, member.set.c_str());
  nlattr* const elements = mnl_attr_nest_start(&header, NFTA_SET_ELEM_LIST_ELEMENTS);
  nlattr* const element = mnl_attr_nest_start(&header, NFTA_LIST_ELEM);
  nlattr* const key = mnl_attr_nest_start(&header, NFTA_SET_ELEM_KEY);
  mnl_attr_put_u32(&header, NFTA_DATA_VALUE, htonl(member.group.value()));
  mnl_attr_nest_end(&header, key);
  mnl_attr_nest_end(&header, element);
  mnl_attr_nest_end(&header, elements);
  batch.end(header);
}

FormerSettings formerIn(std::string const& listing) {
  FormerSettings former;
  auto const json = nlohmann::json::parse(listing);
  for (auto const& object : json.at("nftables")) {
    if (!object.contains("map") || !object["map"].contains("elem")) continue;
    for (auto const& element : object["map"]["elem"]) {
      auto const& key = element.at(0).at("concat");
      former[{key.at(0).get<std::uint32_t>(),
              static_cast<LinkSetting>(key.at(1).get<std::uint32_t>())}] =
          element.at(1).get<std::uint32_t>();
    }
  }
  return former;
}

}  // namespace

void RulesTable::Closer::operator()(nft_ctx* context) const noexcept {
  nft_ctx_free(context);
}

RulesTable::RulesTable() : nft_(nft_ctx_new(NFT_CTX_DEFAULT)), socket_(NETLINK_NETFILTER) {
  if (!nft_ || nft_ctx_buffer_output(nft_.get()) != 0 || nft_ctx_buffer_error(nft_.get()) != 0)
    throw std::runtime_error("nftables gives no context");
}

bool RulesTable::exists() {
  NetlinkBatch batch;
  nlmsghdr& header = batch.add(typeOf(NFT_MSG_GETTABLE), NLM_F_ACK, bridgeFamily());
  mnl_attr_put_strz(&header, NFTA_TABLE_NAME, rulesTable);
  batch.end(header);
  return socket_.ask(batch, [](nlmsghdr const&) {}).empty();
}

std::optional<FormerSettings> RulesTable::former() {
  if (!exists()) return std::nullopt;
  nft_ctx_output_set_flags(nft_.get(), NFT_CTX_OUTPUT_JSON | NFT_CTX_OUTPUT_NUMERIC_ALL);
  auto const refusal = run(message("list map bridge ", rulesTable, " former"));
  nft_ctx_output_set_flags(nft_.get(), 0);
  if (refusal) return FormerSettings();
  try {
    return formerIn(nft_ctx_get_output_buffer(nft_.get()));
  } catch (nlohmann::json::exception const&) {
    return FormerSettings();
  }
}

std::optional<std::string> RulesTable::run(std::string const& commands) {
  if (nft_run_cmd_from_buffer(nft_.get(), commands.c_str()) == 0) return std::nullopt;
  std::string const text = nft_ctx_get_error_buffer(nft_.get());
  return onOneLine(text.substr(0, text.find('\n')));
}

std::optional<std::string> RulesTable::change(std::vector<Member> const& members) {
  if (members.empty()) return std::nullopt;
  NetlinkBatch batch;
  addFrame(batch, NFNL_MSG_BATCH_BEGIN);
  for (Member const& member : members) addMember(batch, member);
  addFrame(batch, NFNL_MSG_BATCH_END);
  auto const failures = socket_.send(batch, 1);
  return failures.empty() ? std::nullopt : std::optional(failures.front().text);
}

void RulesTable::remove() {
  run(message("delete table bridge ", rulesTable));
}

}  // namespace Agent
