#include "agent/report/HistoryWatch.h"

#include <algorithm>
#include <utility>

#include "agent/report/FilterWords.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Bridging::IgmpSnooping::RouterPort;
using Bridging::IgmpSnooping::RouterPorts;
using Wirex::IntfId;
using Wirex::IpAddr;

constexpr std::size_t mostOfFilter = 80;  // characters

std::string wordsFor(std::optional<SourceFilter> const& filter) {
  return filter ? wordsFor(*filter, mostOfFilter) : "";
}

std::string wordsFor(RouterPort const& port) {
  std::vector<std::string> reasons;
  if (port.configured) reasons.emplace_back("configured");
  if (port.querier != IpAddr()) reasons.push_back(message("querier ", port.querier));
  if (port.pimNeighbor != IpAddr()) reasons.push_back(message("PIM ", port.pimNeighbor));
  return enumerated(reasons, "and");
}

std::string wordsFor(Switch::VlanQuerier const& querier) {
  if (auto const& other = querier.otherQuerier())
    return message(other->address, " on ", other->intfId, ", IGMPv", other->version);
  return querier.isQuerier() ? "this switch" : "";
}

}  // namespace

class HistoryWatch::KelRouterPorts final
    : public Kel::ReactorFor<HistoryWatch, RouterPorts::NotifieeConst> {
 public:
  using ReactorFor::ReactorFor;

  void onRouterPort(IntfId /*intf*/) override {
    if (notificationActive()) owner().touchedRouters_.insert(notifier()->vlanId());
  }
};

HistoryWatch::HistoryWatch(Switch& snoopingSwitch)
    : switch_(snoopingSwitch),
      records_(snoopingSwitch.entities().hosts),
      memberships_(snoopingSwitch.entities().snoopingStatus) {
  for (VlanConfig const& vlan : switch_.configuration().vlans) {
    touchedQueriers_.insert(vlan.vlanId);
    touchedRouters_.insert(vlan.vlanId);
    Kel::Ptr<RouterPorts const> const ports(switch_.routerPorts(vlan.vlanId));
    routerPorts_.watch(vlan.vlanId, ports, [&] { return Kel::make<KelRouterPorts>(ports, this); });
  }
  switch_.onElectionIs(
      [this](Switch::VlanQuerier const& querier) { touchedQueriers_.insert(querier.vlanId()); });
  switch_.afterPublishIs(this, [this] { publish(); });
}

HistoryWatch::~HistoryWatch() {
  switch_.afterPublishIs(this, nullptr);
  switch_.onElectionIs([](Switch::VlanQuerier const&) {});
  routerPorts_.kelDoZombieReactors(true);
}

void HistoryWatch::publish() {
  for (VlanId const vlan : std::exchange(touchedQueriers_, {})) handleQuerier(vlan);
  for (VlanId const vlan : std::exchange(touchedRouters_, {})) handleRouters(vlan);
  for (MembershipChange const& change : memberships_.takeChanges())
    becomes({HistoryRow::Kind::membership, change.vlan, change.group, change.interface,
             change.reporter},
            wordsFor(change.after));
  for (RecordChange const& change : records_.takeChanges())
    becomes(
        {HistoryRow::Kind::record, change.host.vlanId(), change.group, change.host.intfId(), {}},
        wordsFor(change.after));
}

void HistoryWatch::handleQuerier(VlanId vlan) {
  auto const* const querier = switch_.querier(vlan);
  if (querier && querier->vlanId() == vlan)
    becomes({HistoryRow::Kind::querier, vlan, {}, {}, {}}, wordsFor(*querier));
}

void HistoryWatch::handleRouters(VlanId vlan) {
  auto const& ports = switch_.routerPorts(vlan)->routerPort();
  Key const first{HistoryRow::Kind::router, vlan, {}, {}, {}};
  std::vector<Key> gone;
  for (auto row = spans_.lower_bound(first); row != spans_.end(); ++row) {
    auto const& [kind, rowVlan, group, intf, reporter] = row->first;
    if (kind != HistoryRow::Kind::router || rowVlan != vlan) break;
    if (!ports.contains(intf)) gone.push_back(row->first);
  }
  for (Key const& key : gone) becomes(key, "");
  for (auto const& [intf, port] : ports)
    becomes({HistoryRow::Kind::router, vlan, {}, intf, {}}, wordsFor(port));
}

void HistoryWatch::becomes(Key const& key, std::string text) {
  auto const known = spans_.find(key);
  Span* const last = known == spans_.end() ? nullptr : &known->second.back();
  bool const holds = last && !last->to;
  if (holds ? last->text == text : text.empty()) return;
  if (holds) last->to = switch_.now();
  if (text.empty()) return;
  if (kept_ == most) {
    ++untold_;
    return;
  }
  ++kept_;
  spans_[key].push_back({switch_.now(), std::nullopt, std::move(text)});
}

History HistoryWatch::history() const {
  History history;
  history.end = switch_.now();
  history.untold = untold_;
  for (auto const& [key, spans] : spans_) {
    auto const& [kind, vlan, group, intf, reporter] = key;
    history.rows.push_back({kind, vlan.value(), group, message(intf), reporter, spans});
  }
  std::sort(history.rows.begin(), history.rows.end(),
            [](HistoryRow const& a, HistoryRow const& b) { return precedes(a, b); });
  return history;
}

}  // namespace Agent
