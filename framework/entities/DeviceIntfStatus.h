#pragma once

#include <cstdint>

#include "framework/kel/Attribute.h"
#include "framework/kel/Collection.h"
#include "framework/types/IntfId.h"

/// Interfaces as the kernel and the packet access see them.
namespace Interface {

/// What the kernel says of an interface. The default-constructed record means that the kernel has
/// no such interface.
struct IntfStatusAndDeviceName {
  Kel::String8 deviceName;
  /// The kernel's number of the interface, 0 where it is not known. An interface that was deleted
  /// and made again under its name has another one.
  std::uint32_t deviceIndex = 0;

  friend bool operator==(IntfStatusAndDeviceName const&,
                         IntfStatusAndDeviceName const&) noexcept = default;
};

class KEL_EXPORT DeviceIntfStatusDir : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<DeviceIntfStatusDir const> {
   public:
    virtual void onIntfStatusAndDeviceName(Wirex::IntfId /*intf*/) {}
    virtual void onIntfStatusAndDeviceNamekelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using Statuses = Kel::Values<Wirex::IntfId, IntfStatusAndDeviceName,
                               &NotifieeConst::onIntfStatusAndDeviceName>;

  Statuses const& intfStatusAndDeviceName() const { return intfStatusAndDeviceName_; }
  /// An absent entry reads as the default-constructed record.
  IntfStatusAndDeviceName intfStatusAndDeviceName(Wirex::IntfId const& intf) const {
    return intfStatusAndDeviceName_.get(intf);
  }
  void intfStatusAndDeviceNameIs(Wirex::IntfId const& intf, IntfStatusAndDeviceName status) {
    intfStatusAndDeviceName_.is(*this, intf, std::move(status));
  }
  void intfStatusAndDeviceNameDel(Wirex::IntfId const& intf) {
    intfStatusAndDeviceName_.del(*this, intf);
  }
  void intfStatusAndDeviceNameDelAll() { intfStatusAndDeviceName_.delAll(*this); }
  void intfStatusAndDeviceNameNotify(Wirex::IntfId const& intf) {
    intfStatusAndDeviceName_.notify(*this, intf);
  }
  void intfStatusAndDeviceNameNotify() {
    notify<&NotifieeConst::onIntfStatusAndDeviceNamekelImmediate>();
  }

 private:
  Statuses intfStatusAndDeviceName_;
};

/// On which interfaces somebody, whom the name tells, desires packet access.
class KEL_EXPORT PamDesiredIntfDir : public Kel::Entity {
 public:
  class NotifieeConst : public Kel::NotifieeOf<PamDesiredIntfDir const> {
   public:
    virtual void onIntfDesired(Wirex::IntfId /*intf*/) {}
    virtual void onIntfDesiredkelImmediate() {}

   protected:
    using NotifieeOf::NotifieeOf;
  };

  using DesiredIntfs = Kel::Values<Wirex::IntfId, bool, &NotifieeConst::onIntfDesired>;

  explicit PamDesiredIntfDir(Kel::Name name) : name_(std::move(name)) {}

  Kel::Name const& name() const { return name_; }

  DesiredIntfs const& intfDesired() const { return intfDesired_; }
  bool intfDesired(Wirex::IntfId const& intf) const { return intfDesired_.get(intf); }
  void intfDesiredIs(Wirex::IntfId const& intf, bool desired) {
    intfDesired_.is(*this, intf, desired);
  }
  void intfDesiredDel(Wirex::IntfId const& intf) { intfDesired_.del(*this, intf); }
  void intfDesiredDelAll() { intfDesired_.delAll(*this); }
  void intfDesiredNotify(Wirex::IntfId const& intf) { intfDesired_.notify(*this, intf); }
  void intfDesiredNotify() { notify<&NotifieeConst::onIntfDesiredkelImmediate>(); }

 private:
  Kel::Name name_;
  DesiredIntfs intfDesired_;
};

}  // namespace Interface
