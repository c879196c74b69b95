#pragma once

#include <functional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/interface/EthDevPams.h"
#include "tests/platform/wirex/Wiring.h"

namespace InterfaceTest {

inline std::string textOf(Wirex::IntfId const& intf) {
  return std::string(intf.stringValue().view());
}

/// Devices without filter or wire, which write down how they were opened and what they sent.
class RecordedPams final : public Interface::EthDevPams {
 public:
  using Frame = WirexTest::Frame;

  struct Opening {
    std::string intf;
    Interface::IntfStatusAndDeviceName device;
    Interface::EthDevSettings settings;
  };
  struct Sent {
    std::string intf;
    Frame frame;

    friend bool operator==(Sent const&, Sent const&) = default;
  };

  /// A frame comes in wherever the interface is open.
  void hears(char const* intf, Frame const& frame) {
    std::vector<Kel::Ptr<Interface::EthDevPam>> hearing;
    for (auto* const pam : open())
      if (pam->intfId() == Wirex::IntfId(intf)) hearing.emplace_back(pam);
    for (auto const& pam : hearing) pam->inputPktIs(Wirex::Pkt::PktIs(frame));
  }

  /// The interfaces that are open now, in order of their opening.
  std::vector<std::string> openIntfs() const {
    std::vector<std::string> intfs;
    for (auto const* const pam : open()) intfs.push_back(textOf(pam->intfId()));
    return intfs;
  }
  /// The interfaces that were opened, in that order, since the last call.
  std::vector<std::string> takeOpened() {
    std::vector<std::string> intfs;
    for (Opening const& opening : openings) intfs.push_back(opening.intf);
    openings.clear();
    return intfs;
  }

  std::vector<Opening> openings;
  std::function<void()> atOpening;
  std::set<std::string> refused;  // interfaces that cannot be opened
  std::vector<Sent> sent;

 private:
  class RecordedPam final : public Interface::EthDevPam {
   public:
    using EthDevPam::EthDevPam;

    void outputPktIs(Wirex::Pkt::Ptr pkt) override {
      auto* const devices = static_cast<RecordedPams*>(openedBy());
      if (!devices) return;
      devices->sent.push_back({textOf(intfId()), WirexTest::frameOf(std::as_const(*pkt).bytes())});
    }
    Counters counters() const override { return {}; }
  };

  Kel::Ptr<Interface::EthDevPam> newPam(Wirex::IntfId const& intf,
                                        Interface::IntfStatusAndDeviceName const& device,
                                        Interface::EthDevSettings const& settings) override {
    openings.push_back({textOf(intf), device, settings});
    if (atOpening) atOpening();
    if (refused.contains(textOf(intf))) return nullptr;
    return Kel::make<RecordedPam>(intf, device, settings);
  }
};

}  // namespace InterfaceTest
