#include "tests/agent/soak/Network.h"

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <sstream>

namespace Agent::Soak {

using Bridging::AllowedTrafficDirection;

namespace {

constexpr auto flight = std::chrono::microseconds(20);

// More than what a query or an answer takes to be repeated.
constexpr auto betweenLosses = std::chrono::seconds(600);

}  // namespace

void Tally::count(Message const& message) {
  switch (message.kind) {
    case Message::Kind::query:
      ++queries;
      break;
    case Message::Kind::leave:
      ++leaves;
      break;
    case Message::Kind::report:
      ++reports[static_cast<std::size_t>(message.version)];
      records += message.records.size();
      break;
  }
}

std::ostream& operator<<(std::ostream& out, Tally const& tally) {
  return out << tally.reports[1] << '/' << tally.reports[2] << '/' << tally.reports[3]
             << " v1/v2/v3 reports, " << tally.records << " records, " << tally.leaves
             << " leaves, " << tally.queries << " queries";
}

// ---- Box

Box::Box(Time now, Configuration const& configuration)
    : loop_(Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>(now))),
      switch_(configuration, loop_) {
  lookUp(configuration);
}

/// Every interface is there from now on.
void Box::powerUp(std::uint8_t box) {
  std::uint8_t number = 0;
  for (InterfaceConfig const& interface : configuration().interfaces) {
    InterfaceState state;
    state.present = state.carrier = state.forwarding = true;
    state.macAddress = {0x02, 0x50, 0, 0, box, ++number};
    state.mtu = 1500;
    state.kernelIndex = number;
    stateIs(nameOf(interface.intfId), state);
  }
}

void Box::configurationIs(Configuration const& configuration) {
  // What is sent meanwhile belongs to the former or to the new configuration.
  formerly_ = tagged_;
  lookUp(configuration);
  formerly_.merge(std::map<Place, bool>(tagged_));
  switch_.configurationIs(configuration);
  formerly_.clear();
  heard_ = true;
}

void Box::lookUp(Configuration const& configuration) {
  tagged_.clear();
  for (VlanConfig const& vlan : configuration.vlans)
    for (VlanMember const& member : vlan.members)
      tagged_[{nameOf(member.intfId), vlan.vlanId.value()}] = member.tagged;
}

InterfaceState Box::state(std::string const& port) const {
  return states_.at(port);
}

void Box::stateIs(std::string const& port, InterfaceState const& state) {
  states_[port] = state;
  switch_.interfaceStateIs(Wirex::IntfId(port.c_str()), state);
  heard_ = true;
}

bool Box::isUp(std::string const& port) const {
  InterfaceState const& state = states_.at(port);
  return state.present && state.carrier;
}

InterfaceConfig const* Box::interface(std::string const& port) const {
  Wirex::IntfId const intf(port.c_str());
  for (InterfaceConfig const& interface : configuration().interfaces)
    if (interface.intfId == intf) return &interface;
  return nullptr;
}

bool Box::takes(std::string const& port) const {
  InterfaceConfig const* const config = interface(port);
  return config && !config->blocked && states_.at(port).operational() &&
         (config->direction == AllowedTrafficDirection::both ||
          config->direction == AllowedTrafficDirection::ingress);
}

bool Box::lets(std::string const& port) const {
  InterfaceConfig const* const config = interface(port);
  return config && !config->blocked && states_.at(port).operational() &&
         (config->direction == AllowedTrafficDirection::both ||
          config->direction == AllowedTrafficDirection::egress);
}

bool Box::isTagged(Place const& place) const {
  auto const found = tagged_.find(place);
  return found == tagged_.end() || found->second;
}

unsigned Box::untaggedVlan(std::string const& port) const {
  for (auto const& [place, tagged] : tagged_)
    if (place.port == port && !tagged) return place.vlan;
  return 0;
}

unsigned Box::primaryOf(unsigned vlan) const {
  for (VlanConfig const& config : configuration().vlans)
    if (config.vlanId.value() == vlan && config.privateRole != Bridging::VlanTypeAndPrimaryVlan())
      return config.privateRole.primaryVlan().value();
  return vlan;
}

std::vector<Place> Box::floods(Place const& from) const {
  std::vector<Place> to;
  if (!isMember(from) || !takes(from.port)) return to;
  unsigned const primary = primaryOf(from.vlan);
  for (auto const& [place, tagged] : tagged_) {
    if (place.port == from.port || primaryOf(place.vlan) != primary || !lets(place.port)) continue;
    bool const isolated = std::any_of(
        configuration().vlans.begin(), configuration().vlans.end(), [&](VlanConfig const& vlan) {
          return vlan.vlanId.value() == from.vlan &&
                 vlan.privateRole.type() == Bridging::VlanType::isolated;
        });
    bool const allowed =
        from.vlan == primary || place.vlan == primary || (place.vlan == from.vlan && !isolated);
    if (allowed) to.push_back(place);
  }
  return to;
}

// ---- Network

Network::Network(std::uint64_t seed) : chance_(seed) {
  devices_.sentIs(
      [this](Wirex::IntfId const& port, Wirex::Bytes frame) { sentBySwitch(nameOf(port), frame); });
}

Network::~Network() = default;

Box& Network::boxIs(Configuration const& configuration) {
  boxes_.push_back(std::make_unique<Box>(now(), configuration));
  for (InterfaceConfig const& interface : configuration.interfaces)
    boxOf_[nameOf(interface.intfId)] = boxes_.back().get();
  boxes_.back()->powerUp(static_cast<std::uint8_t>(boxes_.size()));
  return *boxes_.back();
}

void Network::linkIs(std::string const& port, std::string const& otherPort) {
  segmentIs({port, otherPort});
}

void Network::segmentIs(std::vector<std::string> const& ports) {
  for (std::string const& port : ports) {
    others_[port] = ports;
    std::erase(others_[port], port);
  }
}

Listener& Network::listenerIs(Place const& place, Address address, int version) {
  auto const index = listeners_.size();
  listeners_.emplace_back(place, std::make_unique<Listener>(address, version, agenda_, chance_,
                                                            [this, index](Message const& message) {
                                                              sentByStation(listeners_[index].first,
                                                                            message);
                                                            }));
  Listener& listener = *listeners_.back().second;
  listenersAt_[place].push_back(&listener);
  return listener;
}

Router& Network::routerIs(Place const& place, Address address) {
  auto const index = routers_.size();
  routers_.emplace_back(
      place, std::make_unique<Router>(address, agenda_, [this, index](Message const& message) {
        sentByStation(routers_[index].first, message);
      }));
  Router& router = *routers_.back().second;
  routersAt_[place].push_back(&router);
  return router;
}

void Network::routerMoves(Router& router, Place const& place) {
  for (auto& [at, mine] : routers_) {
    if (mine.get() != &router) continue;
    std::erase(routersAt_[at], &router);
    at = place;
    routersAt_[at].push_back(&router);
  }
}

Box& Network::boxOf(std::string const& port) const {
  return *boxOf_.at(port);
}

void Network::advanceTo(Time time) {
  endBatches();
  for (;;) {
    Time next = time;
    if (auto const entry = agenda_.next()) next = std::min(next, *entry);
    for (auto const& box : boxes_)
      if (auto const expiry = box->loop_.timerWheel()->nextExpiry())
        next = std::min(next, std::max(*expiry, now()));
    agenda_.timeIs(next);
    for (auto const& box : boxes_) box->loop_.advanceTo(next);
    agenda_.runDue();
    endBatches();
    if (next == time && (!agenda_.next() || *agenda_.next() > time)) return;
  }
}

void Network::endBatches() {
  for (auto const& box : boxes_)
    if (std::exchange(box->heard_, false)) box->loop_.endBatch();
}

bool Network::reaches(Place const& from, Place const& to) const {
  if (!boxOf(from.port).isUp(from.port) || !boxOf(to.port).isUp(to.port)) return false;
  if (from == to) return true;
  std::vector<Place> const places = boxOf(from.port).floods(from);
  return std::find(places.begin(), places.end(), to) != places.end();
}

void Network::sentByStation(Place const& from, Message const& message) {
  if (!boxOf(from.port).isUp(from.port)) return;
  void const* sender = nullptr;
  for (auto const& [place, router] : routers_)
    if (place == from && router->address() == message.source) sender = router.get();
  hears(from, message, sender);
  agenda_.in(flight, [this, from, message] { arrives(from, message); });
}

void Network::arrives(Place const& at, Message const& message) {
  Box& box = boxOf(at.port);
  if (!box.isUp(at.port) || getsLost(at)) return;
  ++given_[at.port];
  box.heard_ = true;
  devices_.receive(Wirex::IntfId(at.port.c_str()),
                   frameOf(message, box.isTagged(at) ? at.vlan : 0));
  if (!message.isQuery()) return;
  for (Place const& place : box.floods(at)) leaves(place, message);
}

void Network::sentBySwitch(std::string const& port, Wirex::Bytes frame) {
  std::ostringstream complaint;
  try {
    Heard const heard = messageIn(frame);
    Box const& box = boxOf(port);
    Place const at{port, heard.vlan != 0 ? heard.vlan : box.untaggedVlan(port)};
    if (!box.formerly_.contains(at) && (!box.isMember(at) || box.isTagged(at) != (heard.vlan != 0)))
      complaint << "sent in VLAN " << heard.vlan;
    else if (!box.lets(port))
      complaint << "sent though nothing may leave";
    if (!complaint.str().empty()) complaint << ": " << heard.message;
    sent_[at].count(heard.message);
    leaves(at, heard.message);
  } catch (BadFrame const& bad) {
    complaint << "bad frame: " << bad.what();
  }
  if (!complaint.str().empty() && complaints_.size() < 2000) {
    std::ostringstream line;
    line << std::fixed << std::setprecision(3) << std::chrono::duration<double>(now()).count()
         << " s: " << port << ": " << complaint.str() << '\n';
    complaints_ += line.str();
  }
}

/// A message goes out of a port.
void Network::leaves(Place const& at, Message const& message) {
  if (!boxOf(at.port).isUp(at.port)) return;
  if (auto const others = others_.find(at.port); others != others_.end())
    for (std::string const& other : others->second)
      agenda_.in(flight,
                 [this, there = Place{other, at.vlan}, message] { arrives(there, message); });
  if (!listenersAt_.contains(at) && !routersAt_.contains(at)) return;
  if (getsLost(at)) return;
  agenda_.in(flight, [this, at, message] { hears(at, message, nullptr); });
}

void Network::hears(Place const& at, Message const& message, void const* sender) {
  if (message.isQuery())
    if (auto const found = listenersAt_.find(at); found != listenersAt_.end())
      for (Listener* const listener : found->second) listener->hear(message);
  if (auto const found = routersAt_.find(at); found != routersAt_.end())
    for (Router* const router : found->second)
      if (router != sender) router->hear(message);
}

bool Network::getsLost(Place const& at) {
  if (!losesFrames_) return false;
  Time& next = nextLoss_[boxOf(at.port).primaryOf(at.vlan)];
  if (now() < next || !chance_.oneIn(20)) return false;
  next = now() + betweenLosses;
  ++lost_;
  return true;
}

}  // namespace Agent::Soak
