#include "platform/wirex/Multiplexer.h"

#include <algorithm>

#include "framework/kel/Exception.h"
#include "platform/wirex/PortVlanPamManager.h"

namespace Wirex {

using Bridging::VlanId;

class Multiplexer::KelDevicePam final : public Pam::NotifieeConst {
 public:
  KelDevicePam(Kel::Ptr<Pam> device, Multiplexer* multiplexer)
      : device_(std::move(device)), multiplexer_(multiplexer) {
    watch(device_);
  }

  Kel::Ptr<Pam> const& device() const { return device_; }

  void onInputPkt() override {
    if (notificationActive()) multiplexer_->handleInputPkt(device_->inputPkt());
  }

 private:
  Kel::Ptr<Pam> device_;
  Multiplexer* multiplexer_;
};

namespace {

void insertTag(Pkt& pkt, VlanId vlan, Multiplexer::Priority priority) {
  pkt.prepend(vlanTagSize);
  std::uint8_t* const frame = pkt.bytes().data();
  std::copy_n(frame + vlanTagSize, etherTypeOffset, frame);
  putBigEndian16(frame + etherTypeOffset, etherTypeVlan);
  putBigEndian16(frame + etherTypeOffset + 2,
                 static_cast<std::uint16_t>(priority << priorityShift | vlan.value()));
}

}  // namespace

Multiplexer::Multiplexer(IntfId intfId, PortVlanPamManager* parent)
    : intfId_(std::move(intfId)), manager_(parent) {}

Multiplexer::~Multiplexer() {
  if (devicePam_) devicePam_->kelDoZombieReactors(true);
  if (manager_) manager_->multiplexerIsGone(*this);
}

void Multiplexer::requireConstructedWith(PortVlanPamManager* parent) const {
  Kel::requireEqual("parent", parent, manager_);
}

void Multiplexer::vlanIs(VlanId vlan, Priority priority) {
  if (priority > highestPriority)
    throw Kel::RangeException("Multiplexer::vlan priority > 7 not allowed");
  vlan_.is(*this, vlan, priority);
}

Kel::Ptr<Pam> Multiplexer::devicePam() const {
  return devicePam_ ? devicePam_->device() : nullptr;
}

void Multiplexer::devicePamIs(Kel::Ptr<Pam> const& device) {
  if (device == devicePam()) return;
  if (devicePam_) devicePam_->kelDoZombieReactors(true);
  devicePam_ = device ? Kel::make<KelDevicePam>(device, this) : nullptr;
}

void Multiplexer::kelDoZombieReactors(bool zombie) {
  if (devicePam_) devicePam_->kelDoZombieReactors(zombie);
}

void Multiplexer::outputPktIs(VlanId vlan, Pkt::Ptr pkt) {
  if (!devicePam_ || !manager_) {
    ++counters_.outNoDevice;
    return;
  }
  if (!vlan_.contains(vlan)) {
    ++counters_.outNoVlan;
    return;
  }
  if (manager_->tagOnEgress(vlan, intfId_)) insertTag(*pkt, vlan, vlan_.get(vlan));
  devicePam_->device()->outputPktIs(std::move(pkt));
}

// The manager may take this multiplexer out: nothing of it is touched after that.
void Multiplexer::handleInputPkt(Pkt::PtrConst pkt) {
  if (!manager_) return;
  auto const vlan = vlanOf(pkt->bytes());
  if (vlan && vlan_.contains(*vlan)) {
    manager_->doRxPkt(*vlan, intfId_, pkt);
  } else {
    ++counters_.inNoVlan;
    manager_->doRxPktInNoVlan(intfId_, pkt);
  }
}

std::optional<VlanId> Multiplexer::vlanOf(Bytes frame) const {
  constexpr std::uint16_t priorityOnly = 0;
  bool const tagged = frame.size() >= ethernetHeaderSize + vlanTagSize &&
                      bigEndian16(frame.data() + etherTypeOffset) == etherTypeVlan;
  if (!tagged) return defaultVlan_;
  std::uint16_t const number = bigEndian16(frame.data() + etherTypeOffset + 2) & vlanIdMask;
  if (number == priorityOnly) return defaultVlan_;
  if (number > VlanId::max) return std::nullopt;
  return VlanId(number);
}

}  // namespace Wirex
