#pragma once

#include <cstdint>
#include <optional>

#include "framework/kel/Collection.h"
#include "framework/kel/Text.h"
#include "framework/types/IntfId.h"
#include "framework/types/VlanId.h"
#include "platform/wirex/Multiplexer.h"

namespace Wirex {

/// Keeps a multiplexer for each interface that has a device, and says, through what derives from
/// it, what becomes of received packets and which frames leave with a tag.
class KEL_EXPORT PortVlanPamManager : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<PortVlanPamManager const> {
   public:
    virtual void onMultiplexer(IntfId /*intf*/) {}
    virtual void onMultiplexerkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Multiplexers = Kel::Members<IntfId, Multiplexer, &NotifieeConst::onMultiplexer>;

  explicit PortVlanPamManager(Kel::Name name) : name_(std::move(name)) {}
  ~PortVlanPamManager() override;

  Kel::Name const& name() const { return name_; }

  Multiplexers const& multiplexer() const { return multiplexer_; }
  Kel::Ptr<Multiplexer const> multiplexer(IntfId const& intf) const {
    return multiplexer_.get(intf);
  }
  Kel::Ptr<Multiplexer> multiplexer(IntfId const& intf) { return multiplexer_.get(intf); }
  /// Find-or-create. A former multiplexer of the interface that is still in use is put back, so
  /// that who holds it can send and receive again.
  /// @param parent this manager.
  Kel::Ptr<Multiplexer> multiplexerIs(IntfId const& intf, PortVlanPamManager* parent);
  /// Takes a multiplexer's device away, and the multiplexer out.
  void multiplexerDel(IntfId intf);
  void multiplexerDelAll();
  void multiplexerNotify(IntfId const& intf) { multiplexer_.notify(*this, intf); }
  void multiplexerNotify() { notify<&NotifieeConst::onMultiplexerkelImmediate>(); }

  /// The VLAN of an interface's frames without a tag; none if it takes no such frames. It may be
  /// said before the interface has a multiplexer.
  std::optional<Bridging::VlanId> defaultVlan(IntfId const& intf) const;
  void defaultVlanIs(IntfId const& intf, std::optional<Bridging::VlanId> vlan);

  /// A packet came in on an interface, in a VLAN registered there.
  virtual void doRxPkt(Bridging::VlanId vlanId, IntfId intfId, Pkt::PtrConst const& pkt) = 0;

  /// A packet came in on an interface, in no VLAN registered there.
  virtual void doRxPktInNoVlan(IntfId /*intfId*/, Pkt::PtrConst const& /*pkt*/) {}

  /// Whether a VLAN's frames leave an interface with a tag.
  virtual bool tagOnEgress(Bridging::VlanId /*vlanId*/, IntfId /*intfId*/) const { return false; }

  /// The names of the attributes, by number; "unknown" beyond them.
  virtual char const* attributeString(std::uint32_t attributeId) const;

 protected:
  /// The numbers below this are the attributes of this class.
  static constexpr std::uint32_t attributes = 3;

 private:
  friend class Multiplexer;

  void multiplexerIsGone(Multiplexer const& multiplexer);

  Kel::Name name_;
  Multiplexers multiplexer_;
  Kel::Table<IntfId, Multiplexer*> living_;  // in `multiplexer_`, or only in use
  Kel::Table<IntfId, Bridging::VlanId> defaultVlan_;
};

}  // namespace Wirex
