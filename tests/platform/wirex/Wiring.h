#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/wirex/PktManager.h"
#include "platform/wirex/PortVlanPamManager.h"

/// The ends of the packets' way, played by tests.
namespace WirexTest {

using Bridging::VlanId;
using Frame = std::vector<std::uint8_t>;
using Wirex::IntfId;

inline Frame frameOf(Wirex::Bytes bytes) {
  return {bytes.begin(), bytes.end()};
}

inline Frame const destinationAndSource{0x01, 0, 0x5e, 0, 0, 0x01, 0x02, 0, 0, 0, 0, 0x09};

/// A frame with these bytes behind its MAC addresses.
inline Frame frame(Frame const& rest) {
  Frame whole = destinationAndSource;
  whole.insert(whole.end(), rest.begin(), rest.end());
  return whole;
}
inline Frame untaggedFrame() {
  return frame({0x08, 0x00, 0xaa, 0xbb});
}
/// @param tag the priority, the drop eligible bit and the VLAN.
inline Frame taggedFrame(std::uint16_t tag) {
  return frame({0x81, 0x00, static_cast<std::uint8_t>(tag >> 8), static_cast<std::uint8_t>(tag),
                0x08, 0x00, 0xaa, 0xbb});
}

/// A device that keeps what is sent through it.
class Device final : public Wirex::Pam {
 public:
  void hears(Frame const& frame) { inputPktIs(Wirex::Pkt::PktIs(frame)); }

  void outputPktIs(Wirex::Pkt::Ptr pkt) override {
    sent.push_back(frameOf(std::as_const(*pkt).bytes()));
    sentPackets.push_back(std::move(pkt));
  }

  std::vector<Frame> sent;
  std::vector<Wirex::Pkt::Ptr> sentPackets;
};

/// A manager that keeps what it receives, and tags what it is told to.
class Manager final : public Wirex::PortVlanPamManager {
 public:
  struct Receipt {
    std::optional<std::uint16_t> vlan;  // none: in no VLAN that is registered
    std::string intf;
    Frame frame;

    friend bool operator==(Receipt const&, Receipt const&) = default;
  };

  Manager() : PortVlanPamManager("Manager") {}
  ~Manager() override {
    if (atDestruction) atDestruction();
  }

  void doRxPkt(VlanId vlan, IntfId intf, Wirex::Pkt::PtrConst const& pkt) override {
    receive(vlan.value(), intf, pkt);
  }
  void doRxPktInNoVlan(IntfId intf, Wirex::Pkt::PtrConst const& pkt) override {
    receive(std::nullopt, intf, pkt);
  }
  bool tagOnEgress(VlanId vlan, IntfId intf) const override {
    return tagged.contains({vlan.value(), std::string(intf.stringValue().view())});
  }

  /// The VLANs of what was received, 0 for none, since the last call.
  std::vector<unsigned> takeVlans() {
    std::vector<unsigned> vlans;
    for (Receipt const& receipt : std::exchange(received, {}))
      vlans.push_back(receipt.vlan.value_or(std::uint16_t{0}));
    return vlans;
  }

  std::vector<Receipt> received;
  std::vector<Wirex::Pkt::PtrConst> receivedPackets;
  std::set<std::pair<unsigned, std::string>> tagged;
  std::function<void()> reaction;  // to each packet
  std::function<void()> atDestruction;

 private:
  void receive(std::optional<std::uint16_t> vlan, IntfId const& intf,
               Wirex::Pkt::PtrConst const& pkt) {
    received.push_back({vlan, std::string(intf.stringValue().view()), frameOf(pkt->bytes())});
    receivedPackets.push_back(pkt);
    if (reaction) reaction();
  }
};

/// Hears of a manager's multiplexers.
class MultiplexerListener final : public Wirex::PortVlanPamManager::NotifieeConst {
 public:
  explicit MultiplexerListener(Kel::Ptr<Wirex::PortVlanPamManager const> manager) {
    watch(std::move(manager));
  }

  void onMultiplexer(IntfId intf) override {
    bool const there = notifier()->multiplexer(intf) != nullptr;
    heard.push_back(std::string(intf.stringValue().view()) + (there ? " came" : " went"));
    if (reaction) reaction(intf);
  }
  void onMultiplexerkelImmediate() override { heard.emplace_back("all"); }

  std::vector<std::string> heard;
  std::function<void(IntfId const&)> reaction;
};

/// Hears of packets that come in.
class InputListener final : public Wirex::Pam::NotifieeConst {
 public:
  explicit InputListener(Kel::Ptr<Wirex::Pam const> pam) { watch(std::move(pam)); }

  void onInputPkt() override {
    heard.push_back(frameOf(notifier()->inputPkt()->bytes()));
    if (reaction) reaction();
  }

  std::vector<Frame> heard;
  std::function<void()> reaction;
};

/// Has the packet buffers that size while it lives.
class PacketBuffers {
 public:
  explicit PacketBuffers(std::size_t size) { Wirex::PktManager::instance().bufferSizeIs(size); }
  PacketBuffers(PacketBuffers const&) = delete;
  PacketBuffers& operator=(PacketBuffers const&) = delete;
  ~PacketBuffers() { Wirex::PktManager::instance().bufferSizeIs(former_); }

 private:
  std::size_t former_ = Wirex::PktManager::instance().bufferSize();
};

/// The text of the exception that an action throws.
template <class Exception, class Action>
std::string refusalOf(Action action) {
  try {
    action();
  } catch (Exception const& refusal) {
    return refusal.what();
  }
  return "nothing was thrown";
}

}  // namespace WirexTest
