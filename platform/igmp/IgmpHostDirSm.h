#pragma once

#include "framework/kel/Activity.h"
#include "platform/horix/TimerWheel.h"
#include "platform/igmp/IgmpHost.h"

namespace Igmp {

/// The host library's machine for the hosts of a directory. So far it only stands for them: hosts
/// neither send nor answer queries yet.
class KEL_EXPORT IgmpHostDirSm : public Kel::PtrInterface {
 public:
  /// @param activity on which the machine works; empty for one of its own.
  IgmpHostDirSm(Kel::Ptr<Kel::ActivityConfig> activity, Kel::Ptr<IgmpHostDir> igmpHostDir,
                Kel::Ptr<IgmpHostStatusDir> igmpHostStatusDir,
                Kel::Ptr<Horix::TimerWheel const> timerWheel)
      : activity_(activity ? std::move(activity) : Kel::make<Kel::ActivityConfig>()),
        igmpHostDir_(std::move(igmpHostDir)),
        igmpHostStatusDir_(std::move(igmpHostStatusDir)),
        timerWheel_(std::move(timerWheel)) {}

  Kel::Ptr<Kel::ActivityConfig> const& activity() const { return activity_; }
  Kel::Ptr<IgmpHostDir> const& igmpHostDir() const { return igmpHostDir_; }
  Kel::Ptr<IgmpHostStatusDir> const& igmpHostStatusDir() const { return igmpHostStatusDir_; }
  Kel::Ptr<Horix::TimerWheel const> const& timerWheel() const { return timerWheel_; }

 private:
  Kel::Ptr<Kel::ActivityConfig> activity_;
  Kel::Ptr<IgmpHostDir> igmpHostDir_;
  Kel::Ptr<IgmpHostStatusDir> igmpHostStatusDir_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
};

}  // namespace Igmp
