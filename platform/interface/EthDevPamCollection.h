#pragma once

#include "framework/kel/Collection.h"
#include "framework/kel/Exception.h"
#include "platform/interface/EthDevPam.h"

namespace Interface {

/// The devices that are open, by interface. Its name tells whose they are.
class KEL_EXPORT EthDevPamCollection : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<EthDevPamCollection const> {
   public:
    virtual void onIntfPam(Wirex::IntfId /*intf*/) {}
    virtual void onIntfPamkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using IntfPams = Kel::Members<Wirex::IntfId, EthDevPam, &NotifieeConst::onIntfPam>;

  explicit EthDevPamCollection(Kel::Name name) : name_(std::move(name)) {}

  Kel::Name const& name() const { return name_; }

  /// The devices, by interface.
  IntfPams const& intfPam() const { return intfPam_; }
  Kel::Ptr<EthDevPam> intfPam(Wirex::IntfId const& intf) const {
    return Kel::Ptr<EthDevPam>(intfPam_.find(intf));
  }
  /// Puts a device in the place of what its interface has.
  void intfPamIs(Kel::Ptr<EthDevPam> const& pam) {
    auto const& added = Kel::nonNull(pam, "Interface::EthDevPamCollection", "intfPam");
    intfPam_.put(*this, added.intfId(), pam);
  }
  void intfPamDel(Wirex::IntfId const& intf) { intfPam_.del(*this, intf); }
  void intfPamDelAll() { intfPam_.delAll(*this); }
  void intfPamNotify(Wirex::IntfId const& intf) { intfPam_.notify(*this, intf); }
  void intfPamNotify() { notify<&NotifieeConst::onIntfPamkelImmediate>(); }

 private:
  Kel::Name name_;
  IntfPams intfPam_;
};

}  // namespace Interface
