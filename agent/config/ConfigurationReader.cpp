#include "agent/config/ConfigurationReader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <toml++/toml.h>

#include "agent/config/ErrorLog.h"
#include "agent/config/NamePattern.h"
#include "agent/config/NumberRanges.h"
#include "agent/config/TableReader.h"
#include "agent/config/TcpAddress.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Bridging::AllowedTrafficDirection;
using Bridging::VlanId;
using Bridging::VlanType;
using Bridging::VlanTypeAndPrimaryVlan;
using Wirex::IntfId;

constexpr Range vlanNumbers{VlanId::min, VlanId::max};
constexpr Range counts{0, std::numeric_limits<std::uint32_t>::max()};

/// Turns one parsed file into a configuration. Tables are read in the order in which they refer to
/// each other: defaults, interfaces, VLANs; the primaries of private VLANs are looked up last.
class ConfigurationReader {
 public:
  explicit ConfigurationReader(std::string const& fileName) : errors_(fileName) {}

  ConfigurationOrErrors read(toml::table const& file);

 private:
  /// An interface in a list of a [[vlan]], and where the list names it.
  struct ListedInterface {
    IntfId intfId;
    toml::source_position where;
  };

  /// What a [[vlan]] with a private role takes from its primary.
  struct PrimaryReference {
    VlanId primary;
    toml::node const* primaryNode;
    bool proxy;
    toml::node const* proxyNode;  // null: not given
  };

  struct UntaggedVlan {
    VlanId vlanId;
    toml::source_index line;
  };

  void readAgent(toml::table const& toml);
  void readDefaults(toml::table const& toml);
  void readSettings(TableReader& table, SnoopingSettings& settings);
  void readForwarding(toml::table const& toml);
  void readInterface(toml::table const& toml);
  void readVlan(toml::table const& toml);
  void readQuerier(TableReader& vlanTable, VlanConfig& vlan);
  void readPrivateRole(TableReader& vlanTable, toml::node const* proxyNode, VlanConfig& vlan);
  std::vector<ListedInterface> readInterfaceList(TableReader& table, std::string_view key);
  std::vector<IntfId> namesIn(toml::node const& node);
  std::vector<VlanId> vlanIdsIn(toml::node const& node);

  /// Notes where the keys are defined, and gives those that were not defined before.
  template <typename Key>
  std::vector<Key> define(std::string_view kind, std::vector<Key> const& keys,
                          toml::source_position where, std::map<Key, toml::source_index>& lines);

  void requireDefinition(std::vector<IntfId> const& names, toml::source_position where);
  void addMembers(std::vector<ListedInterface> const& listed, bool tagged, VlanConfig& vlan);
  void markStaticMrouters(std::vector<ListedInterface> const& listed, VlanConfig& vlan);
  void refuseSecondUntaggedVlan(ListedInterface const& untagged, std::vector<VlanId> const& vlans);
  void checkPrimary(PrimaryReference const& reference);
  void inheritProxyFromPrimaries();
  VlanConfig const* findVlan(VlanId vlanId) const;

  ErrorLog errors_;
  Configuration configuration_;
  SnoopingSettings defaults_;
  std::vector<PrimaryReference> primaryReferences_;

  std::map<IntfId, toml::source_index> interfaceLines_;
  std::map<VlanId, toml::source_index> vlanLines_;
  std::map<IntfId, UntaggedVlan> untaggedVlans_;

  // False once a definition was refused: what else is undefined cannot be told any more.
  bool allInterfacesKnown_ = true;
  bool allVlansKnown_ = true;
};

ConfigurationOrErrors ConfigurationReader::read(toml::table const& file) {
  TableReader table(file, "", errors_);
  if (auto const* const agent = table.table("agent", "[agent] in single brackets"))
    readAgent(*agent);
  auto const* const defaults = table.table("defaults", "[defaults] in single brackets");
  if (defaults) readDefaults(*defaults);
  auto const* const forwarding = table.table("forwarding", "[forwarding] in single brackets");
  if (forwarding) readForwarding(*forwarding);
  for (auto const* const interface : table.tables("interface")) readInterface(*interface);
  for (auto const* const vlan : table.tables("vlan")) readVlan(*vlan);
  table.refuseUnknownKeys();

  std::sort(configuration_.vlans.begin(), configuration_.vlans.end(),
            [](VlanConfig const& a, VlanConfig const& b) { return a.vlanId < b.vlanId; });
  for (PrimaryReference const& reference : primaryReferences_) checkPrimary(reference);
  if (errors_.size() > 0) return errors_.lines();
  inheritProxyFromPrimaries();
  return std::move(configuration_);
}

void ConfigurationReader::readAgent(toml::table const& toml) {
  TableReader table(toml, "[agent]", errors_);
  table.read("user", configuration_.user);
  std::string& address = configuration_.metricsAddress;
  if (auto const* const node = table.read("metrics-address", address);
      node && !tcpAddressIn(address))
    errors_.add(node->source().begin, "metrics-address ", quoted(address),
                " is no address with a port; give one in quotes, as in \"127.0.0.1:9643\" or "
                "\"[::1]:9643\"");
  table.refuseUnknownKeys();
}

void ConfigurationReader::readDefaults(toml::table const& toml) {
  TableReader table(toml, "[defaults]", errors_);
  readSettings(table, defaults_);
  table.refuseUnknownKeys();
}

void ConfigurationReader::readSettings(TableReader& table, SnoopingSettings& settings) {
  std::size_t const errorsBefore = errors_.size();
  table.read("robustness-variable", settings.robustnessVariable, {1, 7});
  auto const* const interval = table.read("query-interval", settings.queryInterval, {1, 31744});
  auto const* const responseTime =
      table.read("query-max-response-time", settings.queryMaxResponseTime, {1, 3174});
  table.read("last-member-query-interval", settings.lastMemberQueryInterval, {1, 1023});
  table.read("fast-leave", settings.fastLeave);
  table.read("require-router-alert", settings.requireRouterAlert);
  table.read("send-query", settings.sendQuery);
  table.read("querier-source", settings.querierSource);
  table.read("sender-source-address", settings.senderSourceAddress);
  table.read("report-on", settings.reportOn, {ReportOn::mrouters, ReportOn::all});
  table.read("ssm-range", settings.ssmRange);
  table.read("max-groups", settings.maxGroups, counts);
  table.read("max-interface-groups", settings.maxInterfaceGroups, counts);
  table.read("max-interface-memberships", settings.maxInterfaceMemberships, counts);
  table.read("max-group-sources", settings.maxGroupSources, counts);
  table.read("max-interface-sources", settings.maxInterfaceSources, counts);

  auto const* const given = responseTime ? responseTime : interval;
  bool const sound = errors_.size() == errorsBefore;
  if (sound && given && settings.queryMaxResponseTime >= settings.queryInterval) {
    errors_.add(given->source().begin, "query-max-response-time (",
                settings.queryMaxResponseTime.count(), ") is not below query-interval (",
                settings.queryInterval.count(), "); shorten the one or lengthen the other");
  }
}

void ConfigurationReader::readForwarding(toml::table const& toml) {
  TableReader table(toml, "[forwarding]", errors_);
  table.require("bridge", "add bridge = \"br0\", the bridge whose ports the interfaces are");
  ForwardingConfig forwarding;
  if (auto const* const bridge = table.find("bridge")) {
    auto const names = namesIn(*bridge);
    if (names.size() > 1)
      errors_.add(bridge->source().begin, "bridge stands for ", names.size(),
                  " interfaces; name one bridge");
    else if (!names.empty())
      forwarding.bridge = names.front().stringValue().view();
  }
  table.read("unregistered", forwarding.unregistered, {Unregistered::flood, Unregistered::routers});
  table.refuseUnknownKeys();
  configuration_.forwarding = std::move(forwarding);
}

void ConfigurationReader::readInterface(toml::table const& toml) {
  TableReader table(toml, "[[interface]]", errors_);
  table.require("name", "add name = \"swp1\", or a range, name = \"swp[1-5]\"");
  auto const* const name = table.find("name");
  InterfaceConfig interface;
  table.read("blocked", interface.blocked);
  table.read("direction", interface.direction,
             {AllowedTrafficDirection::both, AllowedTrafficDirection::ingress,
              AllowedTrafficDirection::egress, AllowedTrafficDirection::none});
  table.read("querier-allowed", interface.querierAllowed);
  table.read("router-allowed", interface.routerAllowed);
  table.refuseUnknownKeys();

  auto const names = name ? namesIn(*name) : std::vector<IntfId>{};
  if (!name || names.empty()) {
    allInterfacesKnown_ = false;
    return;
  }
  for (IntfId const& intfId : define("interface", names, name->source().begin, interfaceLines_)) {
    interface.intfId = intfId;
    configuration_.interfaces.push_back(interface);
  }
}

void ConfigurationReader::readVlan(toml::table const& toml) {
  TableReader table(toml, "[[vlan]]", errors_);
  table.require("id", "add id = 10, or a range, id = \"10-19\"");
  auto const* const id = table.find("id");
  VlanConfig vlan;
  auto const* const proxyNode = table.read("proxy", vlan.proxy);
  readQuerier(table, vlan);
  readPrivateRole(table, proxyNode, vlan);
  auto const untagged = readInterfaceList(table, "interfaces");
  auto const tagged = readInterfaceList(table, "tagged-interfaces");
  auto const mrouters = readInterfaceList(table, "static-bridge-mrouter-interface");
  vlan.settings = defaults_;
  readSettings(table, vlan.settings);
  table.refuseUnknownKeys();

  addMembers(untagged, false, vlan);
  addMembers(tagged, true, vlan);
  markStaticMrouters(mrouters, vlan);

  auto const numbers = id ? vlanIdsIn(*id) : std::vector<VlanId>{};
  if (!id || numbers.empty()) {
    allVlansKnown_ = false;
    return;
  }
  auto const vlans = define("VLAN", numbers, id->source().begin, vlanLines_);
  for (VlanId const vlanId : vlans) {
    vlan.vlanId = vlanId;
    configuration_.vlans.push_back(vlan);
  }
  for (ListedInterface const& listed : untagged) refuseSecondUntaggedVlan(listed, vlans);
}

void ConfigurationReader::readQuerier(TableReader& vlanTable, VlanConfig& vlan) {
  auto const* const querier = vlanTable.table("querier", "querier = { igmp-version = 3 }");
  if (!querier) return;
  TableReader table(*querier, "querier", errors_);
  auto version = Igmp::IgmpVersion::v3;
  table.read("igmp-version", version, {1, 3});
  table.refuseUnknownKeys();
  vlan.querierVersion = version;
}

void ConfigurationReader::readPrivateRole(TableReader& vlanTable, toml::node const* proxyNode,
                                          VlanConfig& vlan) {
  auto const* const role =
      vlanTable.table("private", "private = { type = \"isolated\", primary = 10 }");
  if (!role) return;
  TableReader table(*role, "private", errors_);
  table.require("type", "add type = \"isolated\" or type = \"community\"");
  table.require("primary", "add the number of the primary VLAN, primary = 10");
  auto type = VlanType::isolated;
  std::uint16_t primary = VlanId::min;
  table.read("type", type, {VlanType::isolated, VlanType::community});
  auto const* const primaryNode = table.read("primary", primary, vlanNumbers);
  table.refuseUnknownKeys();
  vlan.privateRole = VlanTypeAndPrimaryVlan(type, VlanId(primary));
  if (primaryNode) {
    primaryReferences_.push_back({VlanId(primary), primaryNode, vlan.proxy, proxyNode});
  }
}

std::vector<ConfigurationReader::ListedInterface> ConfigurationReader::readInterfaceList(
    TableReader& table, std::string_view key) {
  std::vector<ListedInterface> result;
  toml::node const* const list = table.find(key);
  if (!list) return result;
  if (!list->is_array()) {
    errors_.add(list->source().begin, key, " is ", typeName(*list),
                "; give a list, as in [\"swp1\", \"swp[3-4]\"]");
    return result;
  }
  for (toml::node const& entry : *list->as_array()) {
    toml::source_position const where = entry.source().begin;
    auto const names = namesIn(entry);
    requireDefinition(names, where);
    for (IntfId const& intfId : names) result.push_back({intfId, where});
  }
  return result;
}

std::vector<IntfId> ConfigurationReader::namesIn(toml::node const& node) {
  toml::source_position const where = node.source().begin;
  auto const* const pattern = node.as_string();
  if (!pattern) {
    errors_.add(where, "interface name is ", typeName(node),
                "; give a name in quotes, as in \"swp1\"");
    return {};
  }
  try {
    return expandNamePattern(pattern->get());
  } catch (std::invalid_argument const& refusal) {
    errors_.add(where, refusal.what());
    return {};
  }
}

std::vector<VlanId> ConfigurationReader::vlanIdsIn(toml::node const& node) {
  static constexpr char remedy[] =
      "; give a VLAN number from 1 to 4094, or a range in quotes, as in \"10-19\"";
  toml::source_position const where = node.source().begin;
  std::vector<std::int64_t> numbers;
  if (auto const* const number = node.as_integer()) {
    numbers.push_back(number->get());
  } else if (auto const* const ranges = node.as_string()) {
    try {
      auto const expanded = expandNumberRanges(ranges->get());
      numbers.assign(expanded.begin(), expanded.end());
    } catch (std::invalid_argument const& refusal) {
      errors_.add(where, "id: ", refusal.what());
    }
  } else {
    errors_.add(where, "id is ", typeName(node), remedy);
  }
  std::vector<VlanId> result;
  result.reserve(numbers.size());
  for (std::int64_t const number : numbers) {
    if (number < vlanNumbers.min || number > vlanNumbers.max) {
      errors_.add(where, "id ", number, " is out of range", remedy);
      return {};
    }
    result.push_back(VlanId::fromInteger(number));
  }
  return result;
}

template <typename Key>
std::vector<Key> ConfigurationReader::define(std::string_view kind, std::vector<Key> const& keys,
                                             toml::source_position where,
                                             std::map<Key, toml::source_index>& lines) {
  std::vector<Key> newKeys;
  bool reported = false;
  for (Key const& key : keys) {
    auto const [definition, isNew] = lines.try_emplace(key, where.line);
    if (isNew) {
      newKeys.push_back(key);
    } else if (!std::exchange(reported, true)) {
      errors_.add(where, kind, ' ', key, " is already defined in line ", definition->second,
                  "; define each ", kind, " once");
    }
  }
  return newKeys;
}

void ConfigurationReader::requireDefinition(std::vector<IntfId> const& names,
                                            toml::source_position where) {
  auto const undefined = std::find_if(names.begin(), names.end(), [&](IntfId const& intfId) {
    return interfaceLines_.find(intfId) == interfaceLines_.end();
  });
  if (undefined == names.end() || !allInterfacesKnown_) return;
  errors_.add(where, "interface ", *undefined, " is not defined; add an [[interface]] with name = ",
              quoted(undefined->stringValue().view()));
}

void ConfigurationReader::addMembers(std::vector<ListedInterface> const& listed, bool tagged,
                                     VlanConfig& vlan) {
  for (auto const& [intfId, where] : listed) {
    VlanMember* const member = vlan.member(intfId);
    if (!member) {
      vlan.members.push_back({intfId, tagged, false});
    } else if (member->tagged == tagged) {
      errors_.add(where, "interface ", intfId, " is listed twice; list it once");
    } else {
      errors_.add(where, "interface ", intfId,
                  " is both untagged and tagged in this VLAN; take it out of one of the lists");
    }
  }
}

void ConfigurationReader::markStaticMrouters(std::vector<ListedInterface> const& listed,
                                             VlanConfig& vlan) {
  for (auto const& [intfId, where] : listed) {
    VlanMember* const member = vlan.member(intfId);
    if (!member) {
      errors_.add(where, "interface ", intfId,
                  " is not a member of this VLAN; add it to interfaces or tagged-interfaces");
    } else {
      member->staticMrouter = true;
    }
  }
}

void ConfigurationReader::refuseSecondUntaggedVlan(ListedInterface const& untagged,
                                                   std::vector<VlanId> const& vlans) {
  for (VlanId const vlanId : vlans) {
    auto const [first, isNew] =
        untaggedVlans_.try_emplace(untagged.intfId, UntaggedVlan{vlanId, untagged.where.line});
    // An interface listed twice for one VLAN has been refused for that.
    if (isNew || first->second.vlanId == vlanId) continue;
    errors_.add(untagged.where, "interface ", untagged.intfId, " is untagged in VLAN ",
                first->second.vlanId, " (line ", first->second.line, ") and in VLAN ", vlanId,
                "; make it a tagged member of all but one");
    return;
  }
}

void ConfigurationReader::checkPrimary(PrimaryReference const& reference) {
  VlanConfig const* const primary = findVlan(reference.primary);
  if (!primary) {
    if (!allVlansKnown_) return;
    errors_.add(reference.primaryNode->source().begin, "primary VLAN ", reference.primary,
                " is not defined; add a [[vlan]] with id = ", reference.primary);
  } else if (primary->isSecondary()) {
    errors_.add(reference.primaryNode->source().begin, "primary VLAN ", reference.primary,
                " is itself a private VLAN; name a VLAN that is not private");
  } else if (reference.proxyNode && reference.proxy != primary->proxy) {
    errors_.add(reference.proxyNode->source().begin, "proxy = ", reference.proxy ? "true" : "false",
                " contradicts primary VLAN ", reference.primary,
                ", whose proxy setting holds here too; leave out proxy, or leave out querier to "
                "keep this VLAN from being proxied");
  }
}

void ConfigurationReader::inheritProxyFromPrimaries() {
  for (VlanConfig& vlan : configuration_.vlans) {
    if (!vlan.isSecondary()) continue;
    vlan.proxy = findVlan(vlan.privateRole.primaryVlan())->proxy;
  }
}

VlanConfig const* ConfigurationReader::findVlan(VlanId vlanId) const {
  auto const found =
      std::lower_bound(configuration_.vlans.begin(), configuration_.vlans.end(), vlanId,
                       [](VlanConfig const& vlan, VlanId wanted) { return vlan.vlanId < wanted; });
  return found != configuration_.vlans.end() && found->vlanId == vlanId ? &*found : nullptr;
}

/// @return 0, or why the file cannot be read (errno).
int readText(std::string const& fileName, std::string& text) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> const file(std::fopen(fileName.c_str(), "rb"),
                                                             std::fclose);
  if (!file) return errno;
  std::array<char, 4096> buffer;
  while (std::size_t const size = std::fread(buffer.data(), 1, buffer.size(), file.get())) {
    text.append(buffer.data(), size);
  }
  return std::ferror(file.get()) ? errno : 0;
}

}  // namespace

ConfigurationOrErrors readConfigurationFile(std::string const& fileName) {
  std::string text;
  if (int const error = readText(fileName, text)) {
    throw UnreadableConfiguration(message("cannot read configuration ", fileName, ": ",
                                          std::generic_category().message(error),
                                          "; give the name of a readable file"));
  }
  return readConfiguration(text, fileName);
}

ConfigurationOrErrors readConfiguration(std::string_view text, std::string const& fileName) {
  try {
    return ConfigurationReader(fileName).read(toml::parse(text, std::string_view(fileName)));
  } catch (toml::parse_error const& error) {
    ErrorLog errors(fileName);
    errors.add(error.source().begin, "not valid TOML: ", onOneLine(error.description()),
               "; correct the syntax");
    return errors.lines();
  }
}

}  // namespace Agent
