#pragma once

#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/kel/Reactors.h"
#include "framework/types/IntfId.h"
#include "framework/types/IpAddr.h"
#include "framework/types/VlanId.h"

/// A switch and its ports: entities small enough to see through, with every kind of attribute that
/// there is, and reactors that write down what they hear.
namespace Toy {

/// What was heard, in order: "who what [key]".
using Journal = std::vector<std::string>;

template <class... Words>
std::string sentence(Words const&... words) {
  std::ostringstream text;
  char const* separator = "";
  ((text << separator << words, separator = " "), ...);
  return text.str();
}

class Port : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Port const> {
   public:
    virtual void onUp() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  explicit Port(Wirex::IntfId name, int speed = 100) : name_(std::move(name)), speed_(speed) {}
  ~Port() override {
    if (atDestruction) atDestruction();
  }

  Wirex::IntfId const& name() const { return name_; }
  int speed() const { return speed_; }

  bool up() const { return up_.get(); }
  void upIs(bool up) { up_.is(*this, up); }

  void requireConstructedWith(int speed) const { Kel::requireEqual("speed", speed, speed_); }

  /// A port owns no reactors; it only keeps what it was told.
  bool isZombie() const { return zombie_; }
  void kelDoZombieReactors(bool zombie) override {
    zombie_ = zombie;
    if (atZombie) atZombie();
  }

  std::function<void()> atZombie;
  std::function<void()> atDestruction;

 private:
  Wirex::IntfId name_;
  int speed_;
  bool zombie_ = false;
  Kel::Value<bool, &NotifieeConst::onUp> up_;
};

class Switch : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Switch const> {
   public:
    virtual void onTemperature() {}
    virtual void onUplink() {}
    virtual void onMirror() {}
    virtual void onPort(Wirex::IntfId const& /*port*/) {}
    virtual void onPortkelImmediate() {}
    virtual void onWeight(Bridging::VlanId /*vlan*/) {}
    virtual void onWeightkelImmediate() {}
    virtual void onFilter(Wirex::IpAddr /*address*/) {}
    virtual void onFilterkelImmediate() {}
    virtual void onTemperatureAtOnce() {}
    virtual void onFilterAtOnce(Wirex::IpAddr /*address*/) {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Ports = Kel::Members<Wirex::IntfId, Port, &NotifieeConst::onPort>;
  using Weights = Kel::Values<Bridging::VlanId, int, &NotifieeConst::onWeight>;
  using Filters = Kel::Set<Wirex::IpAddr, &NotifieeConst::onFilter, &NotifieeConst::onFilterAtOnce>;

  ~Switch() override {
    if (atDestruction) atDestruction();
  }

  int temperature() const { return temperature_.get(); }
  void temperatureIs(int temperature) { temperature_.is(*this, temperature); }
  void temperatureNotify() { temperature_.notify(*this); }

  /// Refuses null.
  Kel::Ptr<Port const> const& uplink() const { return uplink_.get(); }
  void uplinkIs(Kel::Ptr<Port const> const& port) {
    uplink_.is(*this, port, "Toy::Switch", "uplink");
  }
  void uplinkNotify() { uplink_.notify(*this); }

  /// May be null.
  Kel::Ptr<Port> const& mirror() const { return mirror_.get(); }
  void mirrorIs(Kel::Ptr<Port> const& port) { mirror_.is(*this, port); }

  Ports const& port() const { return port_; }
  Kel::Ptr<Port const> port(Wirex::IntfId const& name) const { return port_.get(name); }
  Kel::Ptr<Port> port(Wirex::IntfId const& name) { return port_.get(name); }
  Kel::Ptr<Port> portIs(Wirex::IntfId const& name, int speed = 100) {
    return port_.is(*this, name, speed);
  }
  void portPut(Wirex::IntfId const& name, Kel::Ptr<Port> const& port) {
    port_.put(*this, name, port);
  }
  void portDel(Wirex::IntfId const& name) { port_.del(*this, name); }
  void portDelAll() { port_.delAll(*this); }
  void portNotify(Wirex::IntfId const& name) { port_.notify(*this, name); }
  void portNotify() { notify<&NotifieeConst::onPortkelImmediate>(); }

  Weights const& weight() const { return weight_; }
  int weight(Bridging::VlanId vlan) const { return weight_.get(vlan); }
  void weightIs(Bridging::VlanId vlan, int weight) { weight_.is(*this, vlan, weight); }
  int weightInc(Bridging::VlanId vlan, int by) { return weight_.inc(*this, vlan, by); }
  int weightDec(Bridging::VlanId vlan, int by) { return weight_.dec(*this, vlan, by); }
  void weightDel(Bridging::VlanId vlan) { weight_.del(*this, vlan); }
  void weightDelAll() { weight_.delAll(*this); }
  void weightRefill(Weights const& other, int weight) { weight_.refill(*this, other, weight); }
  void weightNotify(Bridging::VlanId vlan) { weight_.notify(*this, vlan); }
  void weightNotify() { notify<&NotifieeConst::onWeightkelImmediate>(); }

  Filters const& filter() const { return filter_; }
  bool filter(Wirex::IpAddr address) const { return filter_.contains(address); }
  void filterIs(Wirex::IpAddr address) { filter_.is(*this, address); }
  void filterDel(Wirex::IpAddr address) { filter_.del(*this, address); }
  void filterDelAll() { filter_.delAll(*this); }
  void filterNotify(Wirex::IpAddr address) { filter_.notify(*this, address); }
  void filterNotify() { notify<&NotifieeConst::onFilterkelImmediate>(); }

  std::function<void()> atDestruction;

 private:
  Kel::Value<int, &NotifieeConst::onTemperature, &NotifieeConst::onTemperatureAtOnce> temperature_;
  Kel::Pointer<Port const, &NotifieeConst::onUplink> uplink_;
  Kel::NullablePointer<Port, &NotifieeConst::onMirror> mirror_;
  Ports port_;
  Weights weight_;
  Filters filter_;
};

/// Writes down every callback of a switch, and then does what a test has told it to do.
class Recorder : public Kel::ActivityReactor<Switch::NotifieeConst> {
 public:
  Recorder(Kel::Ptr<Switch const> watched, Journal& journal, std::string name)
      : journal_(journal), name_(std::move(name)) {
    watch(std::move(watched));
  }
  Recorder(Kel::Ptr<Kel::ActivityConfig> activity, Kel::Ptr<Switch const> watched, Journal& journal,
           std::string name)
      : ActivityReactor(std::move(activity)), journal_(journal), name_(std::move(name)) {
    watch(std::move(watched));
  }
  ~Recorder() override {
    if (atDestruction) atDestruction();
  }

  void onTemperature() override { hear("temperature"); }
  void onUplink() override { hear("uplink"); }
  void onMirror() override { hear("mirror"); }
  void onPort(Wirex::IntfId const& port) override { hear("port", port); }
  void onPortkelImmediate() override { hear("ports"); }
  void onWeight(Bridging::VlanId vlan) override { hear("weight", vlan); }
  void onWeightkelImmediate() override { hear("weights"); }
  void onFilter(Wirex::IpAddr address) override { hear("filter", address); }
  void onFilterkelImmediate() override { hear("filters"); }

  std::function<void()> reaction;
  std::function<void()> atDestruction;

 private:
  template <class... Words>
  void hear(Words const&... words) {
    if (!notificationActive()) return;
    // A copy, because a reaction may delete its reactor.
    auto const react = reaction;
    journal_.push_back(sentence(name_, words...));
    if (react) react();
  }

  Journal& journal_;
  std::string name_;
};

inline Wirex::IntfId intf(int number) {
  return Wirex::IntfId(Kel::format("eth%d", number));
}

inline Bridging::VlanId vlan(int number) {
  return Bridging::VlanId::fromInteger(number);
}

/// 10.0.0.0 and what follows it.
inline Wirex::IpAddr address(int number) {
  return Wirex::IpAddr(0x0a000000u + static_cast<std::uint32_t>(number));
}

}  // namespace Toy
