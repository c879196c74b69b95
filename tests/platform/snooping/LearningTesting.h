#pragma once

#include <gtest/gtest.h>

#include "framework/kel/Activity.h"
#include "platform/horix/TimerWheel.h"
#include "platform/snooping/VlanLearning.h"
#include "tests/platform/snooping/MembershipTesting.h"

namespace SnoopingTest {

/// What a VLAN learns into, under a virtual clock.
class LearningTesting : public testing::Test {
 protected:
  /// As the event loop ends a batch of input.
  void endBatch() {
    batch.publish();
    Kel::runActivities();
  }
  void advanceTo(Horix::Time time) {
    wheel->advanceTo(time);
    endBatch();
  }

  Kel::Ptr<Horix::TimerWheel> wheel =
      Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>());
  Kel::Ptr<IgmpContextStatus> status = Kel::make<IgmpContextStatus>(Bridging::VlanId(10));
  Bridging::IgmpSnooping::ReportBatch batch;
};

}  // namespace SnoopingTest
