#include "platform/interface/EthDevPams.h"

#include <algorithm>

namespace Interface {

namespace {

thread_local EthDevPams* servingThread = nullptr;

}  // namespace

EthDevPam::~EthDevPam() {
  if (openedBy_) openedBy_->isGone(*this);
}

EthDevPams::EthDevPams() {
  servingThread = this;
}

EthDevPams::~EthDevPams() {
  for (EthDevPam* const pam : open_) pam->openedBy_ = nullptr;
  if (servingThread == this) servingThread = nullptr;
}

EthDevPams* EthDevPams::ofThread() noexcept {
  return servingThread;
}

Kel::Ptr<EthDevPam> EthDevPams::pam(Wirex::IntfId const& intfId,
                                    IntfStatusAndDeviceName const& device,
                                    EthDevSettings const& settings) {
  auto const same = std::find_if(open_.begin(), open_.end(), [&](EthDevPam const* pam) {
    return pam->intfId() == intfId && pam->device() == device && pam->settings() == settings;
  });
  if (same != open_.end()) return Kel::Ptr<EthDevPam>(*same);
  auto pam = newPam(intfId, device, settings);
  if (pam) {
    pam->openedBy_ = this;
    open_.push_back(pam.get());
  }
  return pam;
}

void EthDevPams::isGone(EthDevPam const& pam) noexcept {
  open_.erase(std::find(open_.begin(), open_.end(), &pam));
}

}  // namespace Interface
