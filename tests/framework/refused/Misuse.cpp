#include "framework/entities/LibVlanState.h"
#include "framework/entities/QuerierConfig.h"

namespace {

class Other : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Other const> {
   public:
    virtual void onLit() {}
    virtual void onPort(Wirex::IntfId /*intf*/) {}
  };
};

class Lamp : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Lamp const> {
   public:
    virtual void onLit() {}
    virtual void onPort(Wirex::IntfId /*intf*/) {}
  };

  explicit Lamp(int number) : number_(number) {}
  int number() const { return number_; }

  void litIs(bool lit) { lit_.is(*this, lit); }
  void portIs(Wirex::IntfId const& intf, bool there) { port_.is(*this, intf, there); }
  void darkIs(Wirex::IntfId const& intf) { dark_.is(*this, intf); }

 private:
  int number_;

#ifdef CALLBACK_OF_ANOTHER_ENTITY
  Kel::Value<bool, &Other::NotifieeConst::onLit> lit_;
#elif defined VALUE_CALLBACK_WITH_KEY
  Kel::Value<bool, &NotifieeConst::onPort> lit_;
#else
  Kel::Value<bool, &NotifieeConst::onLit> lit_;
#endif

#ifdef COLLECTION_CALLBACK_OF_ANOTHER_ENTITY
  Kel::Values<Wirex::IntfId, bool, &Other::NotifieeConst::onPort> port_;
#elif defined COLLECTION_CALLBACK_WITHOUT_KEY
  Kel::Values<Wirex::IntfId, bool, &NotifieeConst::onLit> port_;
#else
  Kel::Values<Wirex::IntfId, bool, &NotifieeConst::onPort> port_;
#endif

#ifdef COUNTING_CALLBACK_OF_ANOTHER_ENTITY
  Kel::Set<Wirex::IntfId, &NotifieeConst::onPort, &Other::NotifieeConst::onPort> dark_;
#else
  Kel::Set<Wirex::IntfId, &NotifieeConst::onPort, &NotifieeConst::onPort> dark_;
#endif
};

class Ports : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<Ports const> {
   public:
    virtual void onLamp(Wirex::IntfId /*intf*/) {}
  };

  class PortLamp : public Lamp {
   public:
    PortLamp(Wirex::IntfId const& /*intf*/, int number) : Lamp(number) {}
#ifdef MEMBER_WITH_OTHER_PARAMETERS
    void requireConstructedWith() const {}
#else
    void requireConstructedWith(int number) const {
      Kel::requireEqual("number", number, this->number());
    }
#endif
  };

  Kel::Ptr<PortLamp> lampIs(Wirex::IntfId const& intf, int number) {
    return lamp_.is(*this, intf, number);
  }

 private:
  Kel::Members<Wirex::IntfId, PortLamp, &NotifieeConst::onLamp> lamp_;
};

}  // namespace

int main() {
#ifdef NEW_WITHOUT_MAKE
  Kel::Ptr<Lamp> const lamp(new Lamp(1));
#elif defined TOO_MANY_ARGUMENTS
  auto const lamp = Kel::make<Lamp>(1, 2);
#else
  auto const lamp = Kel::make<Lamp>(1);
#endif
  lamp->litIs(true);
  lamp->portIs(Wirex::IntfId("swp1"), true);
  lamp->darkIs(Wirex::IntfId("swp1"));
  Kel::make<Ports>()->lampIs(Wirex::IntfId("swp1"), 1);

  auto const topology = Kel::make<Topology::Library::Vlan::LibVlanState>();
  topology->topoVlanIs(Bridging::VlanId(10))->portIs(Wirex::IntfId("swp1"));
  Kel::Ptr<Topology::Library::Vlan::LibVlanState const> const read = topology;
#ifdef WRITING_WHAT_IS_READ
  read->topoVlan(Bridging::VlanId(10))->port(Wirex::IntfId("swp1"))->blockedIs(true);
#else
  topology->topoVlan(Bridging::VlanId(10))->port(Wirex::IntfId("swp1"))->blockedIs(true);
#endif
}
