#include <cstdint>
#include <optional>

#include <gtest/gtest.h>

#include "platform/snooping/VlanLearning.h"
#include "tests/agent/SwitchTesting.h"
#include "tests/agent/soak/Allocations.h"

/// What ends when there is no memory left, ends nevertheless.
namespace Agent {
namespace {

using namespace IgmpTest;
using Bridging::VlanId;
using namespace Bridging::IgmpSnooping;
using Wirex::IntfId;

TEST(OutOfMemoryTest, LearningMayEnd) {
  auto const wheel = Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>());
  auto const status = Kel::make<IgmpContextStatus>(VlanId(10));
  ReportBatch batch;
  std::optional<VlanLearning> learning(std::in_place, status, SnoopingPolicy(), wheel, batch);
  for (std::uint32_t i = 0; i < 100; ++i)
    learning->report(IntfId("swp1"), IpAddr(10, 0, 0, 1), IpAddr(IpAddr(239, 1, 0, 0).value() + i));
  {
    Soak::NoMemory const noMemory;
    learning.reset();
  }
  EXPECT_TRUE(status->group().empty());
}

}  // namespace
}  // namespace Agent
