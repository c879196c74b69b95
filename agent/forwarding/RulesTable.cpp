#include "agent/forwarding/RulesTable.h"

#include <arpa/inet.h>
#include <array>
#include <cstdio>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>
#include <nftables/libnftables.h>
#include <stdexcept>
#include <string_view>

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

template <class Value>
void putValue(nlmsghdr& header, std::uint16_t type, Value const& value) {
  nlattr* const nest = mnl_attr_nest_start(&header, type);
  mnl_attr_put(&header, NFTA_DATA_VALUE, sizeof value, &value);
  mnl_attr_nest_end(&header, nest);
}

/// @param put puts key and data of the element.
template <class Put>
void addElement(NetlinkBatch& batch, char const* set, bool present, Put put) {
  auto const flags = static_cast<std::uint16_t>(present ? NLM_F_CREATE : 0);
  nlmsghdr& header =
      batch.add(typeOf(present ? NFT_MSG_NEWSETELEM : NFT_MSG_DELSETELEM), flags, bridgeFamily());
  mnl_attr_put_strz(&header, NFTA_SET_ELEM_LIST_TABLE, rulesTable);
  mnl_attr_put_strz(&header, NFTA_SET_ELEM_LIST_SET, set);
  nlattr* const elements = mnl_attr_nest_start(&header, NFTA_SET_ELEM_LIST_ELEMENTS);
  nlattr* const element = mnl_attr_nest_start(&header, NFTA_LIST_ELEM);
  put(header);
  mnl_attr_nest_end(&header, element);
  mnl_attr_nest_end(&header, elements);
  batch.end(header);
}

std::set<Wirex::IpAddr> groupsIn(std::string const& listing) {
  std::set<Wirex::IpAddr> groups;
  auto const json = nlohmann::json::parse(listing);
  for (auto const& object : json.at("nftables")) {
    if (!object.contains("set") || !object["set"].contains("elem")) continue;
    for (auto const& element : object["set"]["elem"])
      if (element.is_string())
        if (auto const group = Wirex::IpAddr::fromText(element.get<std::string>()))
          groups.insert(*group);
  }
  return groups;
}

/// Whether it tells that something of the agent's table has gone.
bool isLoss(nlmsghdr const& header) {
  switch (header.nlmsg_type) {
    case typeOf(NFT_MSG_DELTABLE):
    case typeOf(NFT_MSG_DELCHAIN):
    case typeOf(NFT_MSG_DELRULE):
    case typeOf(NFT_MSG_DELSET):
    case typeOf(NFT_MSG_DELSETELEM):
      break;
    default:
      return false;
  }
  if (mnl_nlmsg_get_payload_len(&header) < sizeof(nfgenmsg) ||
      static_cast<nfgenmsg const*>(mnl_nlmsg_get_payload(&header))->nfgen_family != NFPROTO_BRIDGE)
    return false;
  bool ours = false;
  // The attribute that names the table is the first of each of them.
  eachAttributeBehind(header, sizeof(nfgenmsg), [&](nlattr const& attribute) {
    if (mnl_attr_get_type(&attribute) == NFTA_TABLE_NAME)
      ours = std::string_view(mnl_attr_get_str(&attribute)) == rulesTable;
  });
  return ours;
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

RulesTable::RulesTable()
    : nft_(nft_ctx_new(NFT_CTX_DEFAULT)),
      socket_(NETLINK_NETFILTER),
      events_(NETLINK_NETFILTER, 1U << (NFNLGRP_NFTABLES - 1)) {
  if (!nft_ || nft_ctx_buffer_output(nft_.get()) != 0 || nft_ctx_buffer_error(nft_.get()) != 0)
    throw std::runtime_error("nftables gives no context");
}

bool RulesTable::exists() {
  return existsBy(socket_);
}

bool RulesTable::isThere() {
  RequestSocket socket(NETLINK_NETFILTER);
  return existsBy(socket);
}

bool RulesTable::existsBy(RequestSocket& socket) {
  NetlinkBatch batch;
  nlmsghdr& header = batch.add(typeOf(NFT_MSG_GETTABLE), NLM_F_ACK, bridgeFamily());
  mnl_attr_put_strz(&header, NFTA_TABLE_NAME, rulesTable);
  batch.end(header);
  return socket.ask(batch, [](nlmsghdr const&) {}).empty();
}

std::string RulesTable::listing(std::string const& what) {
  nft_ctx_output_set_flags(nft_.get(), NFT_CTX_OUTPUT_JSON | NFT_CTX_OUTPUT_NUMERIC_ALL);
  auto const refusal = run("list " + what);
  nft_ctx_output_set_flags(nft_.get(), 0);
  return refusal ? "{\"nftables\":[]}" : nft_ctx_get_output_buffer(nft_.get());
}

std::optional<FormerSettings> RulesTable::former() {
  if (!exists()) return std::nullopt;
  try {
    return formerIn(listing(message("map bridge ", rulesTable, " former")));
  } catch (nlohmann::json::exception const&) {
    return FormerSettings();  // another program's table of the name
  }
}

std::set<Wirex::IpAddr> RulesTable::groups() {
  try {
    return groupsIn(listing(message("table bridge ", rulesTable)));
  } catch (nlohmann::json::exception const&) {
    return {};
  }
}

std::optional<std::string> RulesTable::run(std::string const& commands) {
  hearOthers();
  int const result = nft_run_cmd_from_buffer(nft_.get(), commands.c_str());
  ignoreOwn();
  if (result == 0) return std::nullopt;
  std::string const text = nft_ctx_get_error_buffer(nft_.get());
  return onOneLine(text.substr(0, text.find('\n')));
}

std::optional<std::string> RulesTable::change(std::vector<Member> const& members) {
  if (members.empty()) return std::nullopt;
  NetlinkBatch batch;
  addFrame(batch, NFNL_MSG_BATCH_BEGIN);
  for (Member const& member : members)
    addElement(batch, member.set.c_str(), member.present, [&](nlmsghdr& header) {
      putValue(header, NFTA_SET_ELEM_KEY, htonl(member.group.value()));
    });
  return commit(batch);
}

std::optional<std::string> RulesTable::keep(FormerSettings const& former) {
  NetlinkBatch batch;
  addFrame(batch, NFNL_MSG_BATCH_BEGIN);
  for (auto const& [key, value] : former)
    addElement(batch, "former", true,
               [&, &index = key.first, &setting = key.second, &kept = value](nlmsghdr& header) {
                 putValue(header, NFTA_SET_ELEM_KEY,
                          std::array{index, static_cast<std::uint32_t>(setting)});
                 putValue(header, NFTA_SET_ELEM_DATA, kept);
               });
  return commit(batch);
}

std::optional<std::string> RulesTable::commit(NetlinkBatch& batch) {
  addFrame(batch, NFNL_MSG_BATCH_END);
  hearOthers();
  auto const failures = socket_.send(batch, 1);
  ignoreOwn();
  return failures.empty() ? std::nullopt : std::optional(failures.front().text);
}

bool RulesTable::isDisturbed() {
  hearOthers();
  return disturbed_ || unsure_;
}

bool RulesTable::takeDisturbance() {
  hearOthers();
  unsure_ = false;
  return std::exchange(disturbed_, false);
}

/// What the kernel tells before the agent changes something, others have done.
void RulesTable::hearOthers() {
  if (!events_.hear([this](nlmsghdr const& header) { disturbed_ = disturbed_ || isLoss(header); }))
    unsure_ = true;
}

/// The kernel tells of a change before it has ended.
void RulesTable::ignoreOwn() {
  events_.hear([](nlmsghdr const&) {});
}

void RulesTable::remove() {
  run(message("delete table bridge ", rulesTable));
}

}  // namespace Agent
