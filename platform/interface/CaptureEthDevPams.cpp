#include "platform/interface/CaptureEthDevPams.h"

#include <algorithm>

#include "platform/interface/FilterInterpreter.h"
#include "platform/wirex/PktManager.h"

namespace Interface {

class CaptureEthDevPams::CaptureEthDevPam final : public EthDevPam {
 public:
  CaptureEthDevPam(Wirex::IntfId const& intfId, IntfStatusAndDeviceName const& device,
                   EthDevSettings const& settings)
      : EthDevPam(intfId, device, settings), filter_(settings.filter) {}

  void receive(Wirex::Bytes frame) {
    if (settings().protocol == 0 || !filter_.accepts(frame)) return;
    if (frame.size() >
        std::min(settings().bufferSize, Wirex::PktManager::instance().bufferSize())) {
      ++counters_.receiveTruncated;
      return;
    }
    ++counters_.received;
    inputPktIs(Wirex::Pkt::PktIs(frame));
  }

  void outputPktIs(Wirex::Pkt::Ptr pkt) override {
    auto const* const devices = static_cast<CaptureEthDevPams const*>(openedBy());
    if (!devices) return;
    ++counters_.sent;
    if (devices->sent_) devices->sent_(intfId(), std::as_const(*pkt).bytes());
  }

  Counters counters() const override { return counters_; }

 private:
  FilterInterpreter filter_;
  Counters counters_;
};

void CaptureEthDevPams::receive(Wirex::IntfId const& intfId, Wirex::Bytes frame) {
  std::vector<Kel::Ptr<EthDevPam>> hearing;
  for (EthDevPam* const pam : open())
    if (pam->intfId() == intfId) hearing.emplace_back(pam);
  for (auto const& pam : hearing) static_cast<CaptureEthDevPam&>(*pam).receive(frame);
}

Kel::Ptr<EthDevPam> CaptureEthDevPams::newPam(Wirex::IntfId const& intfId,
                                              IntfStatusAndDeviceName const& device,
                                              EthDevSettings const& settings) {
  return Kel::make<CaptureEthDevPam>(intfId, device, settings);
}

}  // namespace Interface
