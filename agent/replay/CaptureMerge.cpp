#include "agent/replay/CaptureMerge.h"

#include <algorithm>

namespace Agent {

CaptureMerge::CaptureMerge(std::vector<std::string> const& fileNames) {
  inputs_.reserve(fileNames.size());
  for (std::string const& fileName : fileNames) inputs_.push_back({CaptureFile(fileName), {}});
  for (Input& input : inputs_) input.head = input.file.next();
  if (Input const* const first = earliest()) start_ = first->head->time;
}

std::optional<MergedPacket> CaptureMerge::next() {
  if (given_) given_->head = given_->file.next();
  given_ = earliest();
  if (!given_) return std::nullopt;
  ++count_;
  return MergedPacket{given_->head->time - start_,
                      static_cast<std::size_t>(given_ - inputs_.data()), given_->head->frame,
                      given_->head->number, given_->head->outgoing};
}

std::optional<double> CaptureMerge::shareRead() const {
  double read = 0;
  double whole = 0;
  for (Input const& input : inputs_) {
    auto const size = input.file.size();
    if (!size) return std::nullopt;
    whole += static_cast<double>(*size);
    read += input.head ? static_cast<double>(input.file.offset()) : static_cast<double>(*size);
  }
  return whole > 0 ? std::clamp(read / whole, 0.0, 1.0) : 1.0;
}

/// The input whose next packet is the earliest, of several the first; null at the end of all.
CaptureMerge::Input* CaptureMerge::earliest() {
  auto const first =
      std::min_element(inputs_.begin(), inputs_.end(), [](Input const& a, Input const& b) {
        return a.head && (!b.head || a.head->time < b.head->time);
      });
  return first != inputs_.end() && first->head ? &*first : nullptr;
}

}  // namespace Agent
