#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "agent/Switch.h"
#include "platform/horix/EventLoop.h"
#include "platform/interface/CaptureEthDevPams.h"
#include "tests/agent/soak/Listener.h"
#include "tests/agent/soak/RecordModel.h"
#include "tests/agent/soak/Router.h"

namespace Agent::Soak {

/// IGMP frames by what they are.
struct Tally {
  std::array<std::uint64_t, 4> reports{};  // by version
  std::uint64_t records = 0;
  std::uint64_t leaves = 0;
  std::uint64_t queries = 0;

  void count(Message const& message);
  std::uint64_t all() const { return reports[1] + reports[2] + reports[3] + leaves + queries; }

  friend bool operator==(Tally const&, Tally const&) = default;
};

std::ostream& operator<<(std::ostream& out, Tally const& tally);

/// A switch, and what its hardware does beside it: queries are flooded, reports are not.
class Box {
 public:
  Box(Time now, Configuration const& configuration);

  Switch& agent() { return switch_; }
  Switch const& agent() const { return switch_; }
  Horix::EventLoop& loop() { return loop_; }

  Configuration const& configuration() const { return switch_.configuration(); }
  void configurationIs(Configuration const& configuration);

  InterfaceState state(std::string const& port) const;
  void stateIs(std::string const& port, InterfaceState const& state);

  /// Whether there is a link.
  bool isUp(std::string const& port) const;
  /// Whether frames that come in are taken, and whether frames go out.
  bool takes(std::string const& port) const;
  bool lets(std::string const& port) const;

  bool isMember(Place const& place) const { return tagged_.contains(place); }
  bool isTagged(Place const& place) const;
  /// The VLAN of untagged frames; 0 if there is none.
  unsigned untaggedVlan(std::string const& port) const;

  /// The VLAN itself, or of a secondary one its primary.
  unsigned primaryOf(unsigned vlan) const;

  /// Where the hardware sends a query that comes in.
  std::vector<Place> floods(Place const& from) const;

 private:
  friend class Network;

  InterfaceConfig const* interface(std::string const& port) const;
  void powerUp(std::uint8_t box);
  void lookUp(Configuration const& configuration);

  std::map<std::string, InterfaceState> states_;
  std::map<Place, bool> tagged_;
  std::map<Place, bool> formerly_;  // while the configuration changes
  Horix::EventLoop loop_;
  Switch switch_;
  bool heard_ = false;  // something in this batch
};

/// Switches and who is attached to them, in virtual time. Frames that are under way arrive a
/// little later, one after the other.
class Network {
 public:
  explicit Network(std::uint64_t seed);
  ~Network();

  Agenda& agenda() { return agenda_; }
  Chance& chance() { return chance_; }
  Time now() const { return agenda_.now(); }

  /// Port names are unique in the network.
  Box& boxIs(Configuration const& configuration);
  void linkIs(std::string const& port, std::string const& otherPort);
  /// What leaves one of the ports arrives at all others.
  void segmentIs(std::vector<std::string> const& ports);

  Listener& listenerIs(Place const& place, Address address, int version);
  Router& routerIs(Place const& place, Address address);
  void routerMoves(Router& router, Place const& place);

  std::vector<std::pair<Place, std::unique_ptr<Listener>>> const& listeners() const {
    return listeners_;
  }
  std::vector<std::pair<Place, std::unique_ptr<Router>>> const& routers() const { return routers_; }

  Box& boxOf(std::string const& port) const;

  /// Has now and then a frame get lost, seldom enough for the robustness variable to make up for.
  void losesFramesIs(bool loses) { losesFrames_ = loses; }

  void advanceTo(Time time);
  void advance(Time by) { advanceTo(now() + by); }

  /// What switches have sent, and what they were given to hear.
  Tally const& sent(Place const& place) { return sent_[place]; }
  std::uint64_t given(std::string const& port) { return given_[port]; }
  std::uint64_t lost() const { return lost_; }

  /// What switches have done wrong; empty if nothing.
  std::string const& complaints() const { return complaints_; }

  bool reaches(Place const& from, Place const& to) const;

 private:
  void sentByStation(Place const& from, Message const& message);
  void sentBySwitch(std::string const& port, Wirex::Bytes frame);
  void arrives(Place const& at, Message const& message);
  void leaves(Place const& at, Message const& message);
  void hears(Place const& at, Message const& message, void const* sender);
  bool getsLost(Place const& at);
  void endBatches();

  Agenda agenda_;
  Chance chance_;
  Interface::CaptureEthDevPams devices_;
  std::map<std::string, Box*> boxOf_;
  std::map<std::string, std::vector<std::string>> others_;  // on a port's segment
  std::vector<std::pair<Place, std::unique_ptr<Listener>>> listeners_;
  std::vector<std::pair<Place, std::unique_ptr<Router>>> routers_;
  std::map<Place, std::vector<Listener*>> listenersAt_;
  std::map<Place, std::vector<Router*>> routersAt_;
  bool losesFrames_ = false;
  std::map<unsigned, Time> nextLoss_;  // by VLAN
  std::map<Place, Tally> sent_;
  std::map<std::string, std::uint64_t> given_;
  std::uint64_t lost_ = 0;
  std::string complaints_;
  std::vector<std::unique_ptr<Box>> boxes_;
};

}  // namespace Agent::Soak
