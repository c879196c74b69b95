#include "agent/config/MemoryBound.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "agent/text/Wording.h"
#include "platform/igmp/SentRecords.h"

namespace Agent {

namespace {

// Bytes of heap, with what the allocator and growing tables take besides. The most that
// bench_memory and the worst of agent_memory_tests show, rounded up.
constexpr double ofGroup = 700;        // in a VLAN
constexpr double ofGroupOnPort = 450;  // one more port of a group, and what it is asked for
constexpr double ofMembership = 200;
constexpr double ofSource = 140;  // of a membership; and what the port is asked for
constexpr double ofRecord = 170;  // a host's, of a group
constexpr double ofRecordSource = 30;
constexpr double ofMember = 8192;  // a port in a VLAN, with nothing learned

// In the file that is kept for the next start, which may lie in memory too. While it is written, it
// takes three times as much on the heap.
constexpr double ofKeptMembership = 31;
constexpr double ofKeptSource = 9;
constexpr double timesWhileWritten = 3;

// Memory that was used for something of another size fits less of this.
constexpr double fragmentation = 1.4;

constexpr double mebibyte = 1 << 20;
constexpr double ofProgram = 12 * mebibyte;
constexpr double ofInterface = 3 * mebibyte;  // its ring, and frames that wait for a full cable
constexpr double ofClients = 18 * mebibyte;   // sixteen monitors that read nothing
constexpr double ofStrangers = 2 * mebibyte;  // sixteen who ask for metrics over TCP

constexpr double unlimited = std::numeric_limits<double>::infinity();

double limit(std::uint32_t configured) {
  return configured == 0 ? unlimited : configured;
}

/// The ports whose reports a VLAN learns from: its own, and those of its secondary VLANs.
double portsLearnedFrom(Configuration const& configuration, VlanConfig const& primary) {
  std::size_t ports = 0;
  for (VlanConfig const& vlan : configuration.vlans)
    if (vlan.learningVlan() == primary.vlanId) ports += vlan.members.size();
  return static_cast<double>(ports);
}

/// What a VLAN takes that learns from so many ports, on the heap and in the file.
struct Learned {
  double heap;
  double file;
};

Learned learnedFrom(SnoopingSettings const& settings, double ports, bool forwards) {
  double const portGroups = std::min(limit(settings.maxInterfaceGroups), limit(settings.maxGroups));
  double const groups = std::min(limit(settings.maxGroups), ports * portGroups);
  // Further reporters of a group are merged into one more membership.
  double const memberships = ports * (limit(settings.maxInterfaceMemberships) + portGroups);
  double const sources = std::min(ports * limit(settings.maxInterfaceSources),
                                  memberships * limit(settings.maxGroupSources));
  // Each host reports what all other ports want. So does what the bridge is told of each port.
  double const readers = ports * (forwards ? 2 : 1);
  double const file = memberships * ofKeptMembership + sources * ofKeptSource;
  return {fragmentation * (groups * ofGroup + ports * portGroups * ofGroupOnPort +
                           memberships * ofMembership + sources * ofSource +
                           readers * groups * ofRecord + readers * sources * ofRecordSource) +
              timesWhileWritten * file,
          file};
}

/// The limits of a VLAN for want of which there is no bound.
std::vector<std::string> missingLimits(SnoopingSettings const& settings) {
  std::vector<std::string> missing;
  if (settings.maxGroups == 0 && settings.maxInterfaceGroups == 0)
    missing.insert(missing.end(), {"max-groups", "max-interface-groups"});
  if (settings.maxInterfaceMemberships == 0) missing.emplace_back("max-interface-memberships");
  if (settings.maxInterfaceSources == 0 &&
      (settings.maxGroupSources == 0 || settings.maxInterfaceMemberships == 0))
    missing.emplace_back("max-interface-sources");
  return missing;
}

std::uint64_t bytes(double exact) {
  constexpr double most = 1e18;
  return static_cast<std::uint64_t>(std::min(std::ceil(exact), most));
}

}  // namespace

MemoryBound memoryBound(Configuration const& configuration) {
  MemoryBound bound;
  double learned = 0;
  double files = 0;
  for (VlanConfig const& vlan : configuration.vlans) {
    learned += static_cast<double>(vlan.members.size()) * ofMember;
    if (vlan.members.empty() || vlan.isSecondary()) continue;
    for (std::string const& missing : missingLimits(vlan.settings))
      bound.unlimited.push_back(message(missing, " of VLAN ", vlan.vlanId));
    if (!bound.unlimited.empty()) continue;
    Learned const vlans = learnedFrom(vlan.settings, portsLearnedFrom(configuration, vlan),
                                      configuration.forwarding.has_value());
    learned += vlans.heap;
    files += vlans.file;
  }
  bound.learned = bytes(learned);
  bound.total =
      bytes(learned + files + static_cast<double>(Igmp::SentRecords::mostBytes()) + ofProgram +
            ofClients + (configuration.metricsAddress.empty() ? 0 : ofStrangers) +
            static_cast<double>(configuration.interfaces.size()) * ofInterface);
  return bound;
}

std::string words(MemoryBound const& bound) {
  if (bound.unlimited.empty()) return message("at most ", (bound.total >> 20) + 1, " MB of memory");
  constexpr std::size_t mostNamed = 4;
  std::vector<std::string> named = bound.unlimited;
  if (named.size() > mostNamed) {
    named.resize(mostNamed);
    named.emplace_back("more");
  }
  return message("no bound on memory, for want of ", enumerated(named, "and"));
}

}  // namespace Agent
