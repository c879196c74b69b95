#include "agent/control/Metrics.h"

#include <array>
#include <chrono>
#include <map>
#include <utility>
#include <vector>

#include "agent/Log.h"
#include "agent/control/GroupWalk.h"
#include "agent/output/Counters.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Bridging::VlanId;
using Bridging::IgmpSnooping::Proxy::PortKey;
using Wirex::IntfId;

constexpr std::size_t stepsAtOnce = 1000;
constexpr std::size_t bytesAtOnce = 65536;
constexpr std::size_t countsAtOnce = 4096;

/// The value of a label: printable ASCII stays, other bytes become \xNN.
std::string escaped(std::string_view text) {
  std::string result;
  for (char const c : text) {
    if (c == '\\' || c == '"')
      result += {'\\', c};
    else if (static_cast<unsigned char>(c) < 0x80)
      result += onOneLine({&c, 1});
    else
      result += message("\\\\x", std::hex, static_cast<unsigned>(static_cast<unsigned char>(c)));
  }
  return result;
}

using Label = std::pair<char const*, std::string>;

/// The text of one family: its samples all carry its name. A counter is called so without the
/// suffix of its samples in OpenMetrics, and with it in the older text.
class Family {
 public:
  enum class Type { gauge, counter };

  Family(std::string& out, Type type, std::string name)
      : out_(out), type_(type), name_(std::move(name)) {
    if (type == Type::counter) suffix_ = "_total";
  }

  void describe(char const* help, MetricsFormat format) {
    std::string const name = format == MetricsFormat::text ? name_ + suffix_ : name_;
    char const* const type = type_ == Type::counter ? "counter" : "gauge";
    out_ += message("# TYPE ", name, ' ', type, "\n# HELP ", name, ' ', help, '\n');
  }

  template <class Value>
  void sample(std::initializer_list<Label> labels, Value value) {
    out_ += name_;
    out_ += suffix_;
    char separator = '{';
    for (auto const& [label, text] : labels) {
      out_ += message(separator, label, "=\"", escaped(text), '"');
      separator = ',';
    }
    out_ += message(labels.size() == 0 ? "" : "}", ' ', value, '\n');
  }

 private:
  std::string& out_;
  Type type_;
  std::string name_;
  char const* suffix_ = "";
};

class Metrics final : public Answer {
 public:
  Metrics(Switch const& snoopingSwitch, SocketServer const& clients, MetricsFormat format,
          std::string heading, Forwarding const* forwarding,
          ConfigurationState const* configuration)
      : switch_(snoopingSwitch),
        clients_(clients),
        forwarding_(forwarding),
        configuration_(configuration),
        format_(format),
        heading_(std::move(heading)),
        walk_(snoopingSwitch) {}

  Progress advance(std::string& out) override {
    walk_.advance(countsAtOnce,
                  [this](VlanId vlan, Bridging::IgmpSnooping::IgmpGroup const& group) {
                    for (auto const& [intf, status] : group.intf())
                      memberships_[{vlan, intf}] += status->membership().size();
                  });
    if (!walk_.atEnd()) return Progress::more;
    out += std::exchange(heading_, {});
    for (std::size_t steps = 0; family_ < families().size();) {
      if (steps >= stepsAtOnce || out.size() >= bytesAtOnce) return Progress::more;
      steps += advanceFamily(out);
    }
    if (format_ == MetricsFormat::openMetrics) out += "# EOF\n";
    return Progress::done;
  }

 private:
  struct Description {
    Family::Type type;
    char const* name;
    char const* help;
    /// The samples of one VLAN, and those that belong to none; null where there are none.
    void (Metrics::*ofVlan)(Family&, VlanConfig const&) const;
    void (Metrics::*ofAll)(Family&) const;
  };

  static std::vector<Description> const& families();
  static std::vector<Description> fixedFamilies();

  /// One for each counter of devices.
  template <std::size_t... places>
  static void addDeviceFamilies(std::vector<Description>& to, std::index_sequence<places...>) {
    (to.push_back({Family::Type::counter, deviceFrames[places].metric, deviceFrames[places].help,
                   nullptr, &Metrics::device<places>}),
     ...);
  }

  /// The samples of one VLAN, or a whole family. Returns how many ports were looked at.
  std::size_t advanceFamily(std::string& out) {
    Description const& description = families()[family_];
    Family family(out, description.type, message("igmpsnoop_", description.name));
    if (!std::exchange(begun_, true)) {
      family.describe(description.help, format_);
      nextVlan_ = VlanId::min;
    }
    // The configuration may have changed since the last piece.
    auto const& configuration = switch_.configuration();
    if (auto const* const vlan = description.ofVlan ? configuration.vlanFrom(nextVlan_) : nullptr) {
      (this->*description.ofVlan)(family, *vlan);
      nextVlan_ = vlan->vlanId.value() + 1u;
      return vlan->members.size();
    }
    if (description.ofAll) (this->*description.ofAll)(family);
    begun_ = false;
    ++family_;
    return switch_.ports().size();
  }

  static std::string text(VlanId vlan) { return message(vlan); }
  static std::string text(IntfId const& intf) { return std::string(intf.stringValue().view()); }

  // ---- Of VLANs

  void groups(Family& family, VlanConfig const& vlan) const {
    if (auto const status = switch_.entities().snoopingStatus->contextStatus(vlan.vlanId))
      family.sample({{"vlan", text(vlan.vlanId)}}, status->group().size());
  }

  /// Of a primary VLAN also those heard on its secondary VLANs' ports.
  void memberships(Family& family, VlanConfig const& vlan) const {
    auto const sample = [&](IntfId const& intf, std::uint64_t count) {
      family.sample({{"vlan", text(vlan.vlanId)}, {"interface", text(intf)}}, count);
    };
    for (auto of = memberships_.lower_bound({vlan.vlanId, IntfId()});
         of != memberships_.end() && of->first.first == vlan.vlanId; ++of)
      sample(of->first.second, of->second);
    for (VlanMember const& member : vlan.members)
      if (!memberships_.contains({vlan.vlanId, member.intfId})) sample(member.intfId, 0);
  }

  void routerPorts(Family& family, VlanConfig const& vlan) const {
    if (auto const* const ports = switch_.routerPorts(vlan.vlanId))
      family.sample({{"vlan", text(vlan.vlanId)}}, ports->routerPort().size());
  }

  void hosts(Family& family, VlanConfig const& vlan) const {
    auto const proxied = switch_.proxy().vlanSm(vlan.vlanId);
    family.sample({{"vlan", text(vlan.vlanId)}}, proxied ? proxied->portSm().size() : 0);
  }

  void records(Family& family, VlanConfig const& vlan) const {
    for (VlanMember const& member : vlan.members)
      if (auto const host =
              switch_.entities().hosts->igmpHost(PortKey(vlan.vlanId, member.intfId).hostName()))
        family.sample({{"vlan", text(vlan.vlanId)}, {"interface", text(member.intfId)}},
                      host->v3group().size());
  }

  void querier(Family& family, VlanConfig const& vlan) const {
    if (auto const* const querier = switch_.querier(vlan.vlanId))
      family.sample({{"vlan", text(vlan.vlanId)}}, querier->isQuerier() ? 1 : 0);
  }

  void queriesSent(Family& family, VlanConfig const& vlan) const {
    auto const* const querier = switch_.querier(vlan.vlanId);
    if (!querier || vlan.isSecondary()) return;
    for (auto const& counter : Agent::queriesSent)
      family.sample({{"vlan", text(vlan.vlanId)}, {"type", counter.metric}},
                    counter.value(querier->sent()));
  }

  void sent(Family& family, VlanConfig const& vlan) const {
    for (VlanMember const& member : vlan.members) {
      auto const status = switch_.proxy().igmpHostStatusDir()->igmpHostStatus(
          PortKey(vlan.vlanId, member.intfId).hostName());
      if (!status) continue;
      sampleMessages(family, {vlan.vlanId, member.intfId}, messagesSent, status->counters());
    }
  }

  void received(Family& family, VlanConfig const& vlan) const {
    for (VlanMember const& member : vlan.members)
      if (ReceiveCounters const* const counters = countersOf(vlan.vlanId, member.intfId))
        sampleMessages(family, {vlan.vlanId, member.intfId}, messagesReceived, *counters);
  }

  template <class Counters, std::size_t size>
  static void sampleMessages(Family& family, PortKey const& port,
                             std::array<Counter<Counters>, size> const& counters,
                             Counters const& values) {
    for (auto const& counter : counters)
      if (counter.metric)
        family.sample({{"vlan", text(port.vlanId())},
                       {"interface", text(port.intfId())},
                       {"type", counter.metric}},
                      counter.value(values));
  }

  void ignored(Family& family, VlanConfig const& vlan) const {
    for (VlanMember const& member : vlan.members)
      if (ReceiveCounters const* const counters = countersOf(vlan.vlanId, member.intfId))
        sampleIgnored(family, text(vlan.vlanId), member.intfId, *counters);
  }

  ReceiveCounters const* countersOf(VlanId vlan, IntfId const& intf) const {
    auto const port = switch_.ports().find(intf);
    return port == switch_.ports().end() ? nullptr : port->second.counters(vlan);
  }

  // ---- Of ports, and of the agent

  void ignoredInNoVlan(Family& family) const {
    for (auto const& [intf, port] : switch_.ports())
      sampleIgnored(family, "none", intf, port.countersInNoVlan());
  }

  static void sampleIgnored(Family& family, std::string const& vlan, IntfId const& intf,
                            ReceiveCounters const& counters) {
    for (std::size_t i = 0; i < Igmp::ignoreReasons; ++i)
      if (counters.ignored[i] != 0)
        family.sample({{"vlan", vlan},
                       {"interface", text(intf)},
                       {"cause", message(static_cast<Igmp::IgnoreReason>(i))}},
                      counters.ignored[i]);
  }

  template <std::size_t place>
  void device(Family& family) const {
    for (auto const& [intf, pam] : switch_.snooping().ethDevPamCol()->intfPam())
      family.sample({{"interface", text(intf)}}, deviceFrames[place].value(pam->counters()));
  }

  void deaf(Family& family) const {
    for (auto const& [intf, pam] : switch_.snooping().ethDevPamCol()->intfPam())
      family.sample({{"interface", text(intf)}}, pam->deafness().empty() ? 0 : 1);
  }

  void clients(Family& family) const { family.sample({}, clients_.clients()); }

  void connections(Family& family) const {
    auto const& counters = clients_.counters();
    family.sample({{"outcome", "accepted"}}, counters.accepted);
    family.sample({{"outcome", "refused"}}, counters.refused);
    family.sample({{"outcome", "timed-out"}}, counters.timedOut);
    family.sample({{"outcome", "cut-off"}}, counters.cutOff);
  }

  void turns(Family& family) const { family.sample({}, switch_.turns().count); }

  void longestTurn(Family& family) const {
    family.sample({}, std::chrono::duration<double>(switch_.turns().longest).count());
  }

  void configurationRefused(Family& family) const {
    if (configuration_) family.sample({}, configuration_->refused ? 1 : 0);
  }
  void configurationRefusals(Family& family) const {
    if (configuration_) family.sample({}, configuration_->refusals);
  }

  void logLinesLost(Family& family) const { family.sample({}, lostLogLines()); }

  // ---- Of forwarding

  bool forwards() const { return forwarding_ && forwarding_->configuration(); }
  EntryWriter const* entries() const { return forwards() ? forwarding_->entries() : nullptr; }

  void forwardingActive(Family& family) const {
    if (forwards()) family.sample({}, forwarding_->isActive() ? 1 : 0);
  }
  void forwardingEntries(Family& family) const {
    if (entries()) family.sample({}, entries()->entryCount());
  }
  void forwardingFlooded(Family& family) const {
    if (entries()) family.sample({}, entries()->failedGroups());
  }
  void forwardingWrites(Family& family) const {
    if (entries()) family.sample({}, entries()->counters().writes);
  }
  void forwardingFailures(Family& family) const {
    if (entries()) family.sample({}, entries()->counters().failures);
  }
  void forwardingDisturbances(Family& family) const {
    if (forwards()) family.sample({}, forwarding_->disturbances());
  }

  Switch const& switch_;
  SocketServer const& clients_;
  Forwarding const* forwarding_;
  ConfigurationState const* configuration_;
  MetricsFormat format_;
  std::string heading_;
  GroupWalk walk_;
  std::map<std::pair<VlanId, IntfId>, std::uint64_t> memberships_;
  std::size_t family_ = 0;
  bool begun_ = false;
  unsigned nextVlan_ = VlanId::min;
};

std::vector<Metrics::Description> const& Metrics::families() {
  static std::vector<Description> const all = [] {
    std::vector<Description> made = fixedFamilies();
    addDeviceFamilies(made, std::make_index_sequence<deviceFrames.size()>());
    return made;
  }();
  return all;
}

std::vector<Metrics::Description> Metrics::fixedFamilies() {
  return {
      {Family::Type::gauge, "groups", "Groups with listeners.", &Metrics::groups, nullptr},
      {Family::Type::gauge, "memberships", "Memberships, one for each reporter of each group.",
       &Metrics::memberships, nullptr},
      {Family::Type::gauge, "mrouter_ports", "Multicast router ports.", &Metrics::routerPorts,
       nullptr},
      {Family::Type::gauge, "hosts", "Ports on which the proxy reports.", &Metrics::hosts, nullptr},
      {Family::Type::gauge, "records", "Group records that a port's host reports.",
       &Metrics::records, nullptr},
      {Family::Type::gauge, "querier", "Whether the agent is the querier of the VLAN.",
       &Metrics::querier, nullptr},
      {Family::Type::counter, "queries_sent", "IGMP queries sent, each counted on each port.",
       &Metrics::queriesSent, nullptr},
      {Family::Type::counter, "messages_sent", "IGMP reports and leaves sent by the proxy's hosts.",
       &Metrics::sent, nullptr},
      {Family::Type::counter, "messages_received", "Messages heard and used.", &Metrics::received,
       nullptr},
      {Family::Type::counter, "ignored", "Frames and group records heard and not used.",
       &Metrics::ignored, &Metrics::ignoredInNoVlan},
      {Family::Type::gauge, "device_deaf", "Whether the interface's device could not be opened.",
       nullptr, &Metrics::deaf},
      {Family::Type::gauge, "clients", "Clients that the control socket serves.", nullptr,
       &Metrics::clients},
      {Family::Type::counter, "connections", "Clients of the control socket so far.", nullptr,
       &Metrics::connections},
      {Family::Type::counter, "turns", "Turns of the event loop.", nullptr, &Metrics::turns},
      {Family::Type::gauge, "longest_turn_seconds",
       "How long one turn has held everything else up.", nullptr, &Metrics::longestTurn},
      {Family::Type::counter, "log_lines_lost", "Lines of the log that could not be written.",
       nullptr, &Metrics::logLinesLost},
      {Family::Type::gauge, "configuration_refused",
       "Whether the configuration was refused when last read.", nullptr,
       &Metrics::configurationRefused},
      {Family::Type::counter, "configuration_refusals",
       "Configurations that had errors when read again.", nullptr, &Metrics::configurationRefusals},
      {Family::Type::gauge, "forwarding_active", "Whether a bridge forwards what was learned.",
       nullptr, &Metrics::forwardingActive},
      {Family::Type::gauge, "forwarding_entries",
       "Ports of groups that the bridge has entries for.", nullptr, &Metrics::forwardingEntries},
      {Family::Type::gauge, "forwarding_flooded_groups",
       "Groups flooded because an entry was refused.", nullptr, &Metrics::forwardingFlooded},
      {Family::Type::counter, "forwarding_writes", "Entries written and deleted.", nullptr,
       &Metrics::forwardingWrites},
      {Family::Type::counter, "forwarding_failures", "Entries that the kernel refused.", nullptr,
       &Metrics::forwardingFailures},
      {Family::Type::counter, "forwarding_disturbances",
       "How often somebody had changed what forwarding needs.", nullptr,
       &Metrics::forwardingDisturbances},
  };
}

}  // namespace

std::unique_ptr<Answer> metricsAnswer(Switch const& snoopingSwitch, SocketServer const& clients,
                                      MetricsFormat format, std::string heading,
                                      Forwarding const* forwarding,
                                      ConfigurationState const* configuration) {
  return std::make_unique<Metrics>(snoopingSwitch, clients, format, std::move(heading), forwarding,
                                   configuration);
}

}  // namespace Agent
