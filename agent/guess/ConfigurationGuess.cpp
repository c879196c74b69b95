#include "agent/guess/ConfigurationGuess.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <optional>
#include <sstream>
#include <utility>
#include <variant>

#include "agent/config/ConfigurationReader.h"
#include "agent/guess/Evidence.h"
#include "agent/text/NaturalOrder.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Bridging::VlanId;
using Wirex::IntfId;

std::string nameOf(IntfId const& port) {
  return std::string(port.stringValue().view());
}

std::string wordsFor(Sighting const& sighting) {
  return message("frame ", sighting.frame, " of ", onOneLine(sighting.capture));
}

/// Members in natural order.
std::vector<std::pair<std::string, SightedMember const*>> membersOf(VlanEvidence const& vlan) {
  std::vector<std::pair<std::string, SightedMember const*>> members;
  for (auto const& [port, member] : vlan.members) members.emplace_back(nameOf(port), &member);
  std::sort(members.begin(), members.end(),
            [](auto const& a, auto const& b) { return precedesNaturally(a.first, b.first); });
  return members;
}

// ---- Untagged frames

bool haveCommonPort(VlanEvidence const& a, VlanEvidence const& b) {
  return std::any_of(a.members.begin(), a.members.end(),
                     [&](auto const& member) { return b.members.contains(member.first); });
}

struct GuessedVlan {
  VlanEvidence evidence;
  std::string remark;  ///< on its number, empty if the frames name it
};

/// Access ports of the only VLAN that tags name; else a VLAN of their own.
void addUntagged(std::map<VlanId, GuessedVlan>& vlans, VlanEvidence untagged) {
  constexpr char const* namesNone = "Untagged frames name no VLAN: ";
  if (vlans.size() == 1 && !haveCommonPort(vlans.begin()->second.evidence, untagged)) {
    auto& [evidence, remark] = vlans.begin()->second;
    remark = message(namesNone, "that they are of the only one that tags name is a guess.");
    evidence.members.merge(untagged.members);
    if (!evidence.ownQuery) evidence.ownQuery = std::move(untagged.ownQuery);
    evidence.newestReport = std::max(evidence.newestReport, untagged.newestReport);
    return;
  }
  std::uint16_t number = VlanId::min;
  while (number <= VlanId::max && vlans.contains(VlanId(number))) ++number;
  if (number > VlanId::max)
    refuse("tags name every VLAN that there can be, which leaves none for untagged frames");
  vlans[VlanId(number)] = {std::move(untagged),
                           message(namesNone, number, " is a guess. Put the ports into theirs.")};
}

std::map<VlanId, GuessedVlan> vlansIn(Evidence const& evidence) {
  std::map<VlanId, GuessedVlan> vlans;
  for (auto const& [number, vlan] : evidence.vlans())
    if (number) vlans[*number] = {vlan, {}};
  if (auto const untagged = evidence.vlans().find(std::nullopt); untagged != evidence.vlans().end())
    addUntagged(vlans, untagged->second);
  return vlans;
}

// ---- The querier

SightedQuery const* electedIn(VlanEvidence const& vlan) {
  SightedQuery const* elected = nullptr;
  for (auto const& [port, member] : vlan.members)
    if (member.query && (!elected || member.query->source < elected->source))
      elected = &*member.query;
  return elected;
}

/// A query that a capture marks as sent is the switch's own only if no port has heard its querier.
bool isOwn(SightedQuery const& query, VlanEvidence const& vlan) {
  return std::none_of(vlan.members.begin(), vlan.members.end(), [&](auto const& member) {
    return member.second.query && member.second.query->source == query.source;
  });
}

/// What a querier of IGMPv3 says of itself, where it can be configured.
void printTimes(std::ostream& out, SightedQuery const& query) {
  SnoopingSettings const defaults;
  using std::chrono::duration_cast;
  auto const response = duration_cast<std::chrono::seconds>(query.maxResponseTime);
  bool const tellsResponse = response.count() > 0 && response == query.maxResponseTime;
  auto const longest = tellsResponse ? response : defaults.queryMaxResponseTime;
  if (query.robustness != 0 && query.robustness != defaults.robustnessVariable)
    out << "robustness-variable = " << query.robustness << "  # as it says\n";
  auto const interval = query.interval.count() > 0 ? query.interval : defaults.queryInterval;
  if (interval <= longest) return;
  if (interval != defaults.queryInterval)
    out << "query-interval = " << interval.count() << "  # seconds, as it says\n";
  if (longest != defaults.queryMaxResponseTime)
    out << "query-max-response-time = " << longest.count() << "  # seconds, as it says\n";
}

void printHeardQuerier(std::ostream& out, SightedQuery const& query) {
  out << "# " << query.source << " asks in IGMPv" << query.version << ": " << wordsFor(query)
      << ".\nquerier = { igmp-version = " << query.version << " }\n";
  printTimes(out, query);
}

void printNoQuerier(std::ostream& out, VlanEvidence const& vlan) {
  if (!vlan.newestReport) {
    out << "# Nobody asked or reported: without a querier's version the VLAN is not proxied.\n"
           "# querier = { igmp-version = 3 }\n";
    return;
  }
  out << "# Nobody asked; listeners report in IGMPv" << *vlan.newestReport
      << " at most. If no router asks, the switch has to.\nquerier = { igmp-version = "
      << *vlan.newestReport << " }\n# send-query = true\n";
}

void printQuerier(std::ostream& out, VlanEvidence const& vlan) {
  SightedQuery const* const elected = electedIn(vlan);
  bool const asks = vlan.ownQuery && isOwn(*vlan.ownQuery, vlan);
  if (asks)
    out << "# The switch itself asks: " << wordsFor(*vlan.ownQuery)
        << ".\nsend-query = true\nquerier-source = \"" << vlan.ownQuery->source << "\"\n";
  if (elected)
    printHeardQuerier(out, *elected);
  else if (asks)
    printHeardQuerier(out, *vlan.ownQuery);
  else
    printNoQuerier(out, vlan);
}

// ---- Ports

void printMembers(std::ostream& out, VlanEvidence const& vlan, bool tagged) {
  auto members = membersOf(vlan);
  std::erase_if(members, [&](auto const& each) { return each.second->tagged != tagged; });
  if (members.empty()) return;
  out << (tagged ? "tagged-interfaces" : "interfaces") << " = [\n";
  for (auto const& [name, member] : members)
    out << "  " << Agent::quoted(name) << ",  # " << wordsFor(member->first) << '\n';
  out << "]\n";
}

void printRouterPorts(std::ostream& out, VlanEvidence const& vlan) {
  std::vector<std::string> names;
  for (auto const& [name, member] : membersOf(vlan)) {
    if (!member->query && !member->pimHello) continue;
    names.push_back(Agent::quoted(name));
    out << "# " << onOneLine(name) << " leads to a router:";
    if (member->query)
      out << " querier " << member->query->source << ", " << wordsFor(*member->query);
    if (member->pimHello)
      out << (member->query ? "; PIM neighbor " : " PIM neighbor ") << member->pimHello->source
          << ", " << wordsFor(*member->pimHello);
    out << ".\n";
  }
  if (names.empty()) return;
  out << "# That is learned by itself; for router ports from the start on:\n"
         "# static-bridge-mrouter-interface = ["
      << names.front();
  for (std::size_t i = 1; i < names.size(); ++i) out << ", " << names[i];
  out << "]\n";
}

void printInterfaces(std::ostream& out, std::vector<PortCapture> const& captures,
                     Evidence const& evidence) {
  std::map<IntfId, std::vector<std::string>> read;
  for (std::size_t i = 0; i < captures.size(); ++i)
    read[captures[i].port].push_back(
        message(counted(evidence.frames()[i], "frame"), " in ", onOneLine(captures[i].fileName)));
  for (auto const& [port, texts] : read)
    out << "\n[[interface]]\nname = " << Agent::quoted(nameOf(port)) << "  # "
        << enumerated(texts, "and") << '\n';
}

void printHeader(std::ostream& out, std::vector<PortCapture> const& captures,
                 Evidence const& evidence) {
  out << "# Guessed by igmpsnoopd guess from "
      << std::chrono::ceil<std::chrono::seconds>(evidence.duration()).count()
      << " s of captures. Look it through: what no frame tells is a\n"
         "# default, and VLANs and ports that were silent are missing. To try it:\n"
         "#   igmpsnoopd replay --config FILE";
  for (PortCapture const& capture : captures)
    out << ' ' << nameOf(capture.port) << '=' << onOneLine(capture.fileName);
  out << '\n';
}

void requireUsable(std::string const& configuration) {
  auto const result = readConfiguration(configuration, "the guess");
  if (auto const* const errors = std::get_if<ConfigurationErrors>(&result))
    refuse("no usable configuration follows from this: ", errors->front());
}

}  // namespace

std::string configurationGuessedFrom(std::vector<PortCapture> const& captures) {
  Evidence const evidence(captures);
  std::ostringstream out;
  printHeader(out, captures, evidence);
  printInterfaces(out, captures, evidence);
  for (auto const& [number, vlan] : vlansIn(evidence)) {
    out << "\n[[vlan]]\nid = " << number << '\n';
    if (!vlan.remark.empty()) out << "# " << vlan.remark << '\n';
    out << "proxy = true\n";
    printQuerier(out, vlan.evidence);
    printMembers(out, vlan.evidence, false);
    printMembers(out, vlan.evidence, true);
    printRouterPorts(out, vlan.evidence);
  }
  requireUsable(out.str());
  return out.str();
}

}  // namespace Agent
