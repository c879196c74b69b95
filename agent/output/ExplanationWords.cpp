#include "agent/output/ExplanationWords.h"

#include <algorithm>
#include <utility>

#include "agent/text/TimeText.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Gmp::Igmp::IgmpFilterMode;
using Place = ExplainedSource::Place;

std::string addresses(std::vector<Wirex::IpAddr> const& list) {
  std::vector<std::string> words;
  words.reserve(list.size());
  for (Wirex::IpAddr const address : list) words.push_back(message(address));
  return enumerated(words, "and");
}

/// "swp1 includes it", "swp1 and swp2 include it".
std::string doIt(std::vector<std::string> const& ports, char const* verb) {
  return message(enumerated(ports, "and"), ' ', verb, ports.size() == 1 ? "s" : "", " it");
}

std::vector<std::string> portsWantingEverySource(Explanation const& explanation) {
  std::vector<std::string> ports;
  for (ExplainedPort const& port : explanation.ports)
    if (!port.own && port.wants == SourceFilter{IgmpFilterMode::exclude, {}})
      ports.push_back(port.interface);
  return ports;
}

bool ownPortAsks(Explanation const& explanation) {
  return std::any_of(explanation.ports.begin(), explanation.ports.end(),
                     [](ExplainedPort const& port) { return port.own; });
}

std::size_t otherPorts(Explanation const& explanation) {
  return explanation.ports.size() - (ownPortAsks(explanation) ? 1 : 0);
}

/// The other ports, as the subject of a sentence in the plural.
std::string theOthers(Explanation const& explanation) {
  std::size_t const others = otherPorts(explanation);
  char const* const other = ownPortAsks(explanation) ? "other " : "";
  return others == 1 ? message("the one ", other, "member port")
                     : message("all ", others, ' ', other, "member ports");
}

std::string whyNoHost(Explanation const& explanation) {
  Bridging::VlanId const vlan = explanation.vlan;
  std::string const& interface = explanation.interface;
  switch (explanation.standing) {
    case Standing::hasHost:
      break;
    case Standing::vlanUnknown:
      return message("VLAN ", vlan, " is not configured, so nothing is reported in it.");
    case Standing::notAMember:
      return message(interface, " is not a member of VLAN ", vlan,
                     ", so it has no host there: add it to the VLAN's interfaces or "
                     "tagged-interfaces.");
    case Standing::proxyOff:
      return message("VLAN ", vlan,
                     " is not proxied, because its configuration says proxy = false.");
    case Standing::noQuerier:
      return message("VLAN ", vlan,
                     " is not proxied, because it has no querier configuration: querier = "
                     "{ igmp-version = 3 } gives it one.");
    case Standing::primaryNotProxied:
      return message("VLAN ", vlan, " is not proxied, because its primary VLAN ",
                     explanation.learnedIn, " has proxy = false.");
    case Standing::noInterface:
      return message("There is no host on ", interface, ", because the kernel has no interface ",
                     interface, '.');
  }
  return {};
}

/// Each once.
std::string portsThatTurnedAway(Explanation const& explanation) {
  std::vector<std::string> ports;
  for (ExplainedRefusal const& refusal : explanation.ignored)
    if (ports.empty() || ports.back() != refusal.interface) ports.push_back(refusal.interface);
  return enumerated(ports, "and");
}

std::string whyNoRecord(Explanation const& explanation) {
  std::string const group = message(explanation.group);
  if (explanation.group.isLinkLocalMulticast())
    return "Groups of 224.0.0.0/24 are neither learned nor reported.";
  if (explanation.ports.empty() && !explanation.ignored.empty())
    return message("Whoever asked for ", group, " on ", portsThatTurnedAway(explanation),
                   " was turned away, as told below.");
  if (explanation.ports.empty())
    return message("No port of VLAN ", explanation.learnedIn, " has a listener of ", group,
                   ", so there is nothing to report.");
  if (otherPorts(explanation) == 0)
    return message("Only ", explanation.interface, " itself has listeners of ", group,
                   ", and a port's own listeners are not reported back to it.");
  return message("No other port asks for a source of ", group, '.');
}

std::string secondsText(Horix::Time time) {
  auto const seconds = std::chrono::round<std::chrono::seconds>(time).count();
  return counted(static_cast<std::size_t>(std::max<decltype(seconds)>(seconds, 0)), "second");
}

/// Why something that names a group was not learned as it was said.
std::string why(Igmp::IgnoreReason reason) {
  switch (reason) {
    case Igmp::IgnoreReason::tooManyGroups:
      return "the VLAN has as many groups as this port may take of max-groups";
    case Igmp::IgnoreReason::tooManyInterfaceGroups:
      return "the port has as many groups as max-interface-groups allows";
    case Igmp::IgnoreReason::tooManySources:
      return "it has as many sources as max-group-sources allows, and only these count";
    case Igmp::IgnoreReason::tooManyInterfaceSources:
      return "the port has as many sources as max-interface-sources allows, and only these count";
    case Igmp::IgnoreReason::tooManyMemberships:
      return "the port has as many reporters as max-interface-memberships allows, so it is merged "
             "with others into the reporter 0.0.0.0";
    case Igmp::IgnoreReason::ssmOlderReport:
      return "IGMPv1 and IGMPv2 name no sources, and in the ssm-range only single sources can be "
             "had";
    case Igmp::IgnoreReason::ssmExclude:
      return "it asks for every source but some, and in the ssm-range only single sources can be "
             "had";
    default:
      return message("it cannot be right (", reason, ")");
  }
}

std::string why(Obstacle obstacle, std::string const& interface) {
  switch (obstacle) {
    case Obstacle::disabled:
      return "the host is not enabled";
    case Obstacle::blocked:
      return message(interface,
                     " is blocked, by configuration, by its bridge, or for want of a carrier");
    case Obstacle::direction:
      return message("the direction configured for ", interface, " lets nothing out");
    case Obstacle::noPacketAccess:
      return message(interface, " is not open for packets");
    case Obstacle::noMacAddress:
      return message("the MAC address of ", interface, " is not known");
  }
  return {};
}

/// With what goes before it; nothing if the time of day is not known.
std::string withDate(char const* before, Horix::Time ago, Explanation const& explanation) {
  return explanation.dates.known() ? before + dateOf(ago, explanation) : std::string();
}

std::string whyUnasked(Explanation const& explanation) {
  std::string const& interface = explanation.interface;
  ExplainedSending const& sending = *explanation.sending;
  std::vector<std::string> reasons;
  if (sending.routerPort) {
    auto const& port = *sending.routerPort;
    if (port.configured) reasons.emplace_back("it is configured as one");
    if (port.querier != Wirex::IpAddr())
      reasons.push_back(message("the querier ", port.querier, " was heard on it, which counts for ",
                                secondsText(port.querierUntil), " more"));
    if (port.pimUntil == Horix::Time::max())
      reasons.push_back(
          message("the PIM router ", port.pimNeighbor, " was heard on it, which never times out"));
    else if (port.pimNeighbor != Wirex::IpAddr())
      reasons.push_back(message("the PIM router ", port.pimNeighbor,
                                " was heard on it, which counts for ", secondsText(port.pimUntil),
                                " more"));
    return message(interface, " is a multicast router port",
                   withDate(" since ", sending.routerPortFor, explanation), ", because ",
                   enumerated(reasons, "and"),
                   ". So the host reports changes there at once, unasked.");
  }
  if (sending.reportsUnasked)
    return message("report-on = \"all\" has the host report changes on ", interface,
                   " at once, although no multicast router is known there.");
  return message("No multicast router is known on ", interface,
                 ", so the host reports there only when a querier asks. static-bridge-mrouter-"
                 "interface makes it a router port, report-on = \"all\" lifts the rule.");
}

/// What routers cannot know.
char const* costOf(Igmp::IgmpVersion version) {
  return version == Igmp::IgmpVersion::v1
             ? "IGMPv1 names no sources, so routers send all of them, and knows no leave, so they "
               "go on for minutes."
             : "IGMPv2 names no sources, so routers send all of them.";
}

std::string versionText(ExplainedSending const& sending) {
  if (sending.spokenVersion == sending.configuredVersion)
    return message("It speaks IGMPv", sending.spokenVersion, ", as configured.");
  return message("It speaks IGMPv", sending.spokenVersion, ", not IGMPv", sending.configuredVersion,
                 " as configured, because the querier ", sending.olderQuerier,
                 " speaks that version. ", costOf(sending.spokenVersion));
}

std::string countersText(Explanation const& explanation) {
  ExplainedSending const& sending = *explanation.sending;
  Igmp::HostCounters const& counters = sending.counters;
  std::string const last = sending.sinceSent
                               ? message(", the last ", secondsText(*sending.sinceSent), " ago",
                                         withDate(", at ", *sending.sinceSent, explanation))
                               : "";
  return message("So far it has heard ", counters.queriesHeard,
                 counters.queriesHeard == 1 ? " query" : " queries", " and sent ",
                 counted(counters.reportsSentV3, "IGMPv3 report"), " with ",
                 counted(counters.groupRecordsSent, "group record"), ", ",
                 counted(counters.reportsSentV2, "IGMPv2 report"), ", ",
                 counted(counters.reportsSentV1, "IGMPv1 report"), " and ",
                 counted(counters.leavesSent, "leave"), " for all its groups together", last, '.');
}

std::string groupSendingsText(ExplainedGroupSendings const& sendings,
                              Explanation const& explanation) {
  if (sendings.latest.empty()) return message("Nothing of it was for ", explanation.group, '.');
  std::string const when = message(secondsText(sendings.sinceLatest), " ago",
                                   withDate(", at ", sendings.sinceLatest, explanation));
  auto const& counts = sendings.counts;
  if (!counts)
    return message("For ", explanation.group, " it last sent \"", sendings.latest, "\", ", when,
                   '.');
  return message(
      "For ", explanation.group, " it has sent ", counted(counts->recordsV3, "IGMPv3 group record"),
      ", ", counted(counts->reportsV2, "IGMPv2 report"), ", ",
      counted(counts->reportsV1, "IGMPv1 report"), " and ", counted(counts->leaves, "leave"),
      ", the last ", when, ": \"", sendings.latest, "\".");
}

/// What a port's wish does to a source, and what the proxy counts if that is something else.
std::string countRemark(ExplainedSource const& source) {
  std::string remark;
  if (source.including != static_cast<int>(source.includedBy.size()))
    remark += message(" (the proxy counts ", source.including, " that include it)");
  if (source.excluding != static_cast<int>(source.excludedBy.size()))
    remark += message(" (the proxy counts ", source.excluding, " that exclude it)");
  return remark;
}

std::string whyUnlisted(ExplainedSource const& source, Explanation const& explanation) {
  if (explanation.rule == MergeRule::everySource)
    return "a port that wants every source wants this one too";
  if (!source.includedBy.empty()) return message(doIt(source.includedBy, "include"));
  if (!source.excludedBy.empty())
    return message(doIt(source.excludedBy, "exclude"), ", but not ", theOthers(explanation));
  return message("only ", explanation.interface, ' ', source.ownIncludes ? "includes" : "excludes",
                 " it, which is left out");
}

}  // namespace

std::string filterText(SourceFilter const& filter) {
  return message(filter.mode, ' ', filter.sources.empty() ? "nothing" : addresses(filter.sources));
}

namespace {

std::string wishText(SourceFilter const& record) {
  if (record == SourceFilter{IgmpFilterMode::exclude, {}}) return "every source (exclude nothing)";
  if (record.mode == IgmpFilterMode::exclude)
    return message("every source but ", addresses(record.sources), " (exclude)");
  return message(addresses(record.sources), " (include)");
}

}  // namespace

std::string dateOf(Horix::Time ago, Explanation const& explanation) {
  return shortDate(explanation.dates.text(-ago), explanation.dates.text(Horix::Time::zero()));
}

std::string verdictOf(Explanation const& explanation) {
  if (explanation.standing != Standing::hasHost) return whyNoHost(explanation);
  std::string const host =
      message("The host on ", explanation.interface, " in VLAN ", explanation.vlan);
  if (!explanation.record)
    return message(host, " reports nothing for ", explanation.group, ". ",
                   whyNoRecord(explanation));
  bool const hasSent = explanation.sending && explanation.sending->sinceSent;
  char const* const silence = hasSent ? "" : ", but has sent nothing so far";
  std::string const wish = wishText(*explanation.record);
  if (explanation.heardBack)
    return message(host, " reports nothing for ", explanation.group, ". Its record is ", wish,
                   ", but only ", explanation.interface,
                   " itself has listeners, and is not told what was heard there.");
  if (explanation.sending &&
      explanation.sending->spokenVersion < explanation.sending->configuredVersion)
    return message(host, hasSent ? " says \"v" : " would say \"v",
                   explanation.sending->spokenVersion, " report ", explanation.group, '"', silence,
                   ". Its record is ", wish, ", but the querier ",
                   explanation.sending->olderQuerier, " speaks IGMPv",
                   explanation.sending->spokenVersion, '.');
  return message(host, hasSent ? " reports " : " would report ", explanation.group, ": ", wish,
                 silence, '.');
}

std::string mergeOf(Explanation const& explanation) {
  std::string text;
  std::string const noPort = ownPortAsks(explanation) ? "No other port" : "No port";
  switch (explanation.rule) {
    case MergeRule::everySource: {
      auto const ports = portsWantingEverySource(explanation);
      text = ports.empty() ? "The proxy counts another port that wants every source"
                           : message(enumerated(ports, "and"),
                                     ports.size() == 1 ? " wants" : " want", " every source");
      text += ", so the host asks for every source; what others name makes no difference.";
      break;
    }
    case MergeRule::noCommonExclusion:
      text =
          noPort +
          " wants every source, and ports exclude sources, but none is left that all exclude and "
          "nobody includes. The proxy then asks for every source, also where an exclude list "
          "would be the exact merge.";
      break;
    case MergeRule::commonExclusion:
      text = otherPorts(explanation) == 0
                 ? message("No other port has listeners. What ", explanation.interface,
                           " alone excludes counts as excluded by all ports, so the record "
                           "asks for every other source.")
                 : message(noPort, " wants every source. So the host excludes what ",
                           theOthers(explanation), " exclude",
                           otherPorts(explanation) == 1 ? "s" : "", " and nobody includes.");
      break;
    case MergeRule::inclusion:
      text = noPort +
             " wants every source or excludes any, so the host includes what any of them includes.";
      break;
    case MergeRule::nobody:
      text = "No other port wants anything of the group.";
      break;
  }
  if (explanation.merged != explanation.record)
    text += " The host's record says something else: it has not been written since ports changed.";
  return text;
}

std::string fateOf(ExplainedSource const& source, Explanation const& explanation) {
  std::string text;
  switch (source.place) {
    case Place::included:
      text = source.includedBy.empty() ? std::string("another port is counted for it")
                                       : doIt(source.includedBy, "include");
      break;
    case Place::excluded:
      text = otherPorts(explanation) == 0 ? doIt({explanation.interface}, "exclude")
                                          : message(theOthers(explanation), " exclude",
                                                    otherPorts(explanation) == 1 ? "s" : "", " it");
      break;
    case Place::unlisted:
      text = whyUnlisted(source, explanation);
      break;
  }
  return message(source.place == Place::unlisted ? "not in the list: " : "in the list: ", text,
                 countRemark(source));
}

std::vector<std::string> ignoredOf(Explanation const& explanation) {
  std::vector<std::string> sentences;
  if (explanation.group.isLinkLocalMulticast())
    sentences.emplace_back(
        "Groups of 224.0.0.0/24 are never learned: they are forwarded everywhere, and nobody has "
        "to report them.");
  for (auto const& [interface, times] : explanation.linkLocalIgnored)
    sentences.push_back(message(interface, ": ", times, times == 1 ? " report" : " reports",
                                " of such groups ignored so far."));
  for (ExplainedRefusal const& refusal : explanation.ignored)
    sentences.push_back(message(
        refusal.interface, ", reporter ", refusal.reporter, ": ", refusal.times,
        refusal.times == 1 ? " report, " : " reports, the latest ",
        std::chrono::round<std::chrono::seconds>(refusal.sinceLatest).count(), " s ago",
        withDate(" at ", refusal.sinceLatest, explanation), ": ", why(refusal.reason), '.'));
  return sentences;
}

std::string remarkOn(ExplainedPort const& port) {
  if (port.own) return "this port: its own listeners do not count in what its host reports";
  if (port.reportersWant)
    return message("its reporters together want to ", filterText(*port.reportersWant),
                   ", which the proxy has not counted since one of them came or went");
  return {};
}

std::vector<std::string> sendingOf(Explanation const& explanation) {
  std::vector<std::string> sentences;
  if (!explanation.sending) return sentences;
  ExplainedSending const& sending = *explanation.sending;
  if (!sending.obstacles.empty()) {
    std::vector<std::string> reasons;
    for (Obstacle const obstacle : sending.obstacles)
      reasons.push_back(why(obstacle, explanation.interface));
    sentences.push_back(
        message("The host sends nothing now, because ", enumerated(reasons, "and"), '.'));
  }
  sentences.push_back(whyUnasked(explanation));
  sentences.push_back(versionText(sending));
  if (sending.sourceAddress == Wirex::IpAddr())
    sentences.emplace_back(
        "It sends from 0.0.0.0, and several routers ignore such reports: give the VLAN's device an "
        "address, or set sender-source-address.");
  sentences.push_back(countersText(explanation));
  if (sending.ofGroup) sentences.push_back(groupSendingsText(*sending.ofGroup, explanation));
  return sentences;
}

char const* name(MergeRule rule) {
  switch (rule) {
    case MergeRule::everySource:
      return "every-source";
    case MergeRule::noCommonExclusion:
      return "no-common-exclusion";
    case MergeRule::commonExclusion:
      return "common-exclusion";
    case MergeRule::inclusion:
      return "inclusion";
    case MergeRule::nobody:
      return "nobody";
  }
  return "";
}

char const* name(Standing standing) {
  switch (standing) {
    case Standing::hasHost:
      return "has-host";
    case Standing::vlanUnknown:
      return "vlan-not-configured";
    case Standing::notAMember:
      return "interface-not-in-vlan";
    case Standing::proxyOff:
      return "proxy-off";
    case Standing::noQuerier:
      return "no-querier-configuration";
    case Standing::primaryNotProxied:
      return "primary-not-proxied";
    case Standing::noInterface:
      return "no-interface";
  }
  return "";
}

char const* name(Obstacle obstacle) {
  switch (obstacle) {
    case Obstacle::disabled:
      return "disabled";
    case Obstacle::blocked:
      return "blocked";
    case Obstacle::direction:
      return "direction";
    case Obstacle::noPacketAccess:
      return "no-packet-access";
    case Obstacle::noMacAddress:
      return "no-mac-address";
  }
  return "";
}

}  // namespace Agent
