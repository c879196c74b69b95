#pragma once

#include <vector>

#include "framework/kel/Ptr.h"
#include "platform/interface/EthDevPam.h"

namespace Interface {

/// Where the thread's device packet access comes from: sockets, captures, or a test's own. There
/// is one at a time; it serves its thread from its construction to its destruction.
class KEL_EXPORT EthDevPams {
 public:
  EthDevPams(EthDevPams const&) = delete;
  EthDevPams& operator=(EthDevPams const&) = delete;
  virtual ~EthDevPams();

  /// The one that serves this thread; null if none does.
  static EthDevPams* ofThread() noexcept;

  /// The packet access of a device: one that is open with the same settings, or a new one. Null,
  /// and traced, if the device cannot be opened.
  Kel::Ptr<EthDevPam> pam(Wirex::IntfId const& intfId, IntfStatusAndDeviceName const& device,
                          EthDevSettings const& settings);

 protected:
  EthDevPams();

  /// Those that are open, in order of their opening.
  std::vector<EthDevPam*> const& open() const { return open_; }

 private:
  friend class EthDevPam;

  void isGone(EthDevPam const& pam) noexcept;

  virtual Kel::Ptr<EthDevPam> newPam(Wirex::IntfId const& intfId,
                                     IntfStatusAndDeviceName const& device,
                                     EthDevSettings const& settings) = 0;

  std::vector<EthDevPam*> open_;
};

}  // namespace Interface
