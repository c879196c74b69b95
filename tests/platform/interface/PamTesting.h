#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "framework/kel/Trace.h"
#include "platform/interface/EthDevPam.h"
#include "platform/wirex/PktManager.h"

/// What the tests of device packet access receive, send and trace with.
namespace InterfaceTest {

using Frame = std::vector<std::uint8_t>;

/// A frame to a group address, told apart by its content.
inline Frame frameOf(std::size_t size, std::uint8_t content = 1) {
  Frame frame(size, content);
  Frame const header{0x01, 0, 0x5e, 1, 2, 3, 0x02, 0, 0, 0, 0, 1, 0x08, 0x00};
  std::copy(header.begin(), header.end(), frame.begin());
  return frame;
}

/// A frame as it is on the wire with an 802.1Q tag.
inline Frame tagged(Frame frame, std::uint16_t tag, std::uint16_t type = Wirex::etherTypeVlan) {
  Frame bytes(Wirex::vlanTagSize);
  Wirex::putBigEndian16(bytes.data(), type);
  Wirex::putBigEndian16(bytes.data() + 2, tag);
  frame.insert(frame.begin() + Wirex::etherTypeOffset, bytes.begin(), bytes.end());
  return frame;
}

/// Calls a function with every frame that a device receives.
class Receiver final : public Wirex::Pam::NotifieeConst {
 public:
  using Action = std::function<void(Frame const&)>;

  Receiver(Kel::Ptr<Wirex::Pam const> pam, Action action) : action_(std::move(action)) {
    watch(std::move(pam));
  }

  void onInputPkt() override {
    auto const bytes = notifier()->inputPkt()->bytes();
    action_(Frame(bytes.begin(), bytes.end()));
  }

 private:
  Action action_;
};

/// Makes packets as long as the receive buffers of these tests.
class LongPackets {
 public:
  static constexpr std::size_t bufferSize = 10004;

  LongPackets() { Wirex::PktManager::instance().bufferSizeIs(bufferSize); }
  LongPackets(LongPackets const&) = delete;
  LongPackets& operator=(LongPackets const&) = delete;
  ~LongPackets() { Wirex::PktManager::instance().bufferSizeIs(former_); }

 private:
  std::size_t former_ = Wirex::PktManager::instance().bufferSize();
};

/// The messages that device packet access traces at a level.
class TracedAt {
 public:
  explicit TracedAt(int level) : level_(level) {
    handle().enabledIs(true);
    handle().levelEnabledIs(level_, true);
    Kel::traceSinkIs(
        [this](Kel::TraceMessage const& message) { texts_.emplace_back(message.text); });
  }
  TracedAt(TracedAt const&) = delete;
  TracedAt& operator=(TracedAt const&) = delete;
  ~TracedAt() {
    Kel::traceSinkIs({});
    handle().enabledIs(false);
    handle().levelEnabledIs(level_, false);
  }

  std::vector<std::string> const& texts() const { return texts_; }

 private:
  static Kel::TraceHandle& handle() { return Kel::traceHandle("Interface::EthDevPam"); }

  int level_;
  std::vector<std::string> texts_;
};

}  // namespace InterfaceTest
