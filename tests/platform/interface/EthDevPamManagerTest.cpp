#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "framework/kel/Exception.h"
#include "framework/kel/Trace.h"
#include "platform/interface/EthDevPamManager.h"
#include "tests/platform/interface/RecordedPams.h"
#include "tests/platform/wirex/Wiring.h"

namespace {

using namespace Interface;
using InterfaceTest::RecordedPams;
using InterfaceTest::textOf;
using testing::ElementsAre;
using testing::IsEmpty;
using Wirex::IntfId;
using WirexTest::refusalOf;

/// Hears of devices that are opened and closed.
class DeviceListener final : public EthDevPamCollection::NotifieeConst {
 public:
  explicit DeviceListener(Kel::Ptr<EthDevPamCollection const> opened) { watch(std::move(opened)); }

  void onIntfPam(IntfId intf) override {
    heard.push_back(textOf(intf) + (notifier()->intfPam(intf) ? " opened" : " closed"));
    if (reaction) reaction();
  }
  void onIntfPamkelImmediate() override { heard.emplace_back("all"); }

  std::vector<std::string> heard;
  std::function<void()> reaction;
};

class EthDevPamManagerTest : public testing::Test {
 protected:
  EthDevPamManagerTest() { manager->enabledIs(true); }

  void desiredIs(char const* intf, bool isDesired = true) {
    desired->intfDesiredIs(IntfId(intf), isDesired);
  }
  void kernelHas(char const* intf, char const* device, std::uint32_t index = 1) {
    kernel->intfStatusAndDeviceNameIs(IntfId(intf), {device, index});
  }
  void kernelHas(char const* intf) { kernelHas(intf, intf); }
  void kernelLoses(char const* intf) { kernel->intfStatusAndDeviceNameDel(IntfId(intf)); }
  bool isOpen(char const* intf) const { return opened->intfPam(IntfId(intf)) != nullptr; }

  RecordedPams devices;
  Kel::Ptr<PamDesiredIntfDir> desired = Kel::make<PamDesiredIntfDir>("desired");
  Kel::Ptr<EthDevPamCollection> opened = Kel::make<EthDevPamCollection>("opened");
  Kel::Ptr<DeviceIntfStatusDir> kernel = Kel::make<DeviceIntfStatusDir>();
  Kel::Ptr<EthDevPamManager> manager = Kel::make<EthDevPamManager>(desired, opened, kernel);
};

// ---- Which interfaces are opened

TEST_F(EthDevPamManagerTest, OpensAnInterfaceThatIsDesiredAndThere) {
  desiredIs("swp1");
  kernelHas("swp1", "eth7", 7);
  ASSERT_TRUE(isOpen("swp1"));
  auto const pam = opened->intfPam(IntfId("swp1"));
  EXPECT_EQ(pam->intfId(), IntfId("swp1"));
  EXPECT_EQ(pam->device(), (IntfStatusAndDeviceName{"eth7", 7}));
  EXPECT_THAT(devices.takeOpened(), ElementsAre("swp1"));
}

TEST_F(EthDevPamManagerTest, OpensAnInterfaceThatIsThereBeforeItIsDesired) {
  kernelHas("swp1");
  EXPECT_FALSE(isOpen("swp1"));
  desiredIs("swp1");
  EXPECT_TRUE(isOpen("swp1"));
}

TEST_F(EthDevPamManagerTest, OpensNothingThatNobodyDesires) {
  kernelHas("swp1");
  desiredIs("swp2");
  kernelHas("swp3");
  desiredIs("swp3", false);
  EXPECT_THAT(devices.takeOpened(), IsEmpty());
}

TEST_F(EthDevPamManagerTest, ClosesAnInterfaceThatIsDesiredNoMore) {
  kernelHas("swp1");
  desiredIs("swp1");
  desired->intfDesiredDel(IntfId("swp1"));
  EXPECT_FALSE(isOpen("swp1"));
  EXPECT_THAT(devices.openIntfs(), IsEmpty());
}

TEST_F(EthDevPamManagerTest, ClosesAnInterfaceThatBecomesUndesired) {
  kernelHas("swp1");
  desiredIs("swp1");
  desiredIs("swp1", false);
  EXPECT_FALSE(isOpen("swp1"));
}

TEST_F(EthDevPamManagerTest, ClosesAnInterfaceThatTheKernelLoses) {
  kernelHas("swp1");
  desiredIs("swp1");
  kernelLoses("swp1");
  EXPECT_FALSE(isOpen("swp1"));
  kernelHas("swp1");
  EXPECT_TRUE(isOpen("swp1"));
}

TEST_F(EthDevPamManagerTest, EmptyRecordMeansThatTheKernelHasNoSuchInterface) {
  kernelHas("swp1");
  desiredIs("swp1");
  kernel->intfStatusAndDeviceNameIs(IntfId("swp1"), {});
  EXPECT_FALSE(isOpen("swp1"));
}

TEST_F(EthDevPamManagerTest, OtherInterfacesStayOpen) {
  for (char const* const intf : {"swp1", "swp2"}) {
    kernelHas(intf);
    desiredIs(intf);
  }
  devices.takeOpened();
  kernelLoses("swp1");
  EXPECT_TRUE(isOpen("swp2"));
  EXPECT_THAT(devices.takeOpened(), IsEmpty());
}

TEST_F(EthDevPamManagerTest, OpensAnInterfaceThatWasRenamedAnew) {
  kernelHas("swp1", "eth7", 7);
  desiredIs("swp1");
  kernelHas("swp1", "eth8", 7);
  EXPECT_EQ(opened->intfPam(IntfId("swp1"))->device().deviceName, "eth8");
  EXPECT_THAT(devices.openIntfs(), ElementsAre("swp1"));
}

TEST_F(EthDevPamManagerTest, OpensAnInterfaceThatWasMadeAgainAnew) {
  kernelHas("swp1", "eth7", 7);
  desiredIs("swp1");
  kernelHas("swp1", "eth7", 8);
  EXPECT_EQ(opened->intfPam(IntfId("swp1"))->device().deviceIndex, 8u);
  EXPECT_THAT(devices.openIntfs(), ElementsAre("swp1"));
}

TEST_F(EthDevPamManagerTest, KeepsAnOpenDeviceWhenItHearsOfItAgain) {
  kernelHas("swp1");
  desiredIs("swp1");
  auto const pam = opened->intfPam(IntfId("swp1"));
  desired->intfDesiredNotify(IntfId("swp1"));
  kernel->intfStatusAndDeviceNameNotify(IntfId("swp1"));
  EXPECT_EQ(opened->intfPam(IntfId("swp1")), pam);
  EXPECT_EQ(devices.openings.size(), 1u);
}

TEST_F(EthDevPamManagerTest, TellsOfWhatItOpensAndCloses) {
  auto const listener = Kel::make<DeviceListener>(opened);
  kernelHas("swp1");
  desiredIs("swp1");
  kernelLoses("swp1");
  EXPECT_THAT(listener->heard, ElementsAre("swp1 opened", "swp1 closed"));
}

// ---- On and off

TEST_F(EthDevPamManagerTest, IsOffAtFirst) {
  auto const other = Kel::make<EthDevPamManager>(desired, opened, kernel);
  EXPECT_FALSE(other->enabled());
  EXPECT_TRUE(manager->enabled());
}

TEST_F(EthDevPamManagerTest, OpensNothingWhileItIsOff) {
  manager->enabledIs(false);
  kernelHas("swp1");
  desiredIs("swp1");
  EXPECT_FALSE(isOpen("swp1"));
}

TEST_F(EthDevPamManagerTest, OpensWhatIsDesiredWhenItIsSwitchedOn) {
  manager->enabledIs(false);
  for (char const* const intf : {"swp1", "swp2", "swp3"}) {
    kernelHas(intf);
    desiredIs(intf);
  }
  desiredIs("swp2", false);
  manager->enabledIs(true);
  EXPECT_THAT(devices.takeOpened(), ElementsAre("swp1", "swp3"));
}

TEST_F(EthDevPamManagerTest, ClosesEverythingWhenItIsSwitchedOff) {
  for (char const* const intf : {"swp1", "swp2"}) {
    kernelHas(intf);
    desiredIs(intf);
  }
  manager->enabledIs(false);
  EXPECT_TRUE(opened->intfPam().empty());
  EXPECT_THAT(devices.openIntfs(), IsEmpty());
}

// ---- Settings

TEST_F(EthDevPamManagerTest, SettingsReceiveNothingAtFirst) {
  EXPECT_EQ(manager->settings(), EthDevSettings());
  EXPECT_EQ(manager->settings().bufferSize, 2048u);
  EXPECT_EQ(manager->settings().protocol, 0u);
  EXPECT_THAT(manager->settings().filter, IsEmpty());
}

TEST_F(EthDevPamManagerTest, OpensDevicesWithItsSettings) {
  BpfInstruction const accept{6, 0, 0, 0xffff};
  manager->bufferSizeIs(10004);
  manager->protocolIs(3);
  manager->filterIs(1, &accept);
  kernelHas("swp1");
  desiredIs("swp1");
  ASSERT_EQ(devices.openings.size(), 1u);
  EXPECT_EQ(devices.openings[0].settings, (EthDevSettings{10004, 3, {accept}}));
}

TEST_F(EthDevPamManagerTest, CopiesTheFilter) {
  std::vector<BpfInstruction> program{{0x30, 0, 0, 1}, {6, 0, 0, 7}, {6, 0, 0, 0}};
  manager->filterIs(2, program.data());
  program.assign(3, {});
  EXPECT_THAT(manager->settings().filter,
              ElementsAre(BpfInstruction{0x30, 0, 0, 1}, BpfInstruction{6, 0, 0, 7}));
}

/// The settings that change one after the other, each over an open device.
class EthDevPamManagerSettingsTest
    : public EthDevPamManagerTest,
      public testing::WithParamInterface<std::function<void(EthDevPamManager&)>> {};

TEST_P(EthDevPamManagerSettingsTest, ChangeOpensDevicesAnewAndEqualOnesDoNot) {
  kernelHas("swp1");
  desiredIs("swp1");
  devices.takeOpened();
  GetParam()(*manager);
  ASSERT_EQ(devices.openings.size(), 1u);
  EXPECT_EQ(devices.openings[0].settings, manager->settings());
  EXPECT_THAT(devices.openIntfs(), ElementsAre("swp1")) << "the former one is closed";
  GetParam()(*manager);
  EXPECT_EQ(devices.openings.size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Settings, EthDevPamManagerSettingsTest,
    testing::Values([](EthDevPamManager& manager) { manager.bufferSizeIs(100); },
                    [](EthDevPamManager& manager) { manager.protocolIs(3); },
                    [](EthDevPamManager& manager) {
                      BpfInstruction const drop{6, 0, 0, 0};
                      manager.filterIs(1, &drop);
                    }));

TEST_F(EthDevPamManagerTest, SettingsMayChangeWhileItIsOff) {
  manager->enabledIs(false);
  kernelHas("swp1");
  desiredIs("swp1");
  manager->protocolIs(3);
  EXPECT_THAT(devices.openings, IsEmpty());
}

// ---- Devices that cannot be opened

TEST_F(EthDevPamManagerTest, DeviceThatCannotBeOpenedIsNotThere) {
  devices.refused = {"swp1"};
  kernelHas("swp1");
  desiredIs("swp1");
  EXPECT_TRUE(opened->intfPam().empty());
}

TEST_F(EthDevPamManagerTest, DeviceThatCannotBeOpenedAnewIsGone) {
  kernelHas("swp1", "eth7");
  desiredIs("swp1");
  devices.refused = {"swp1"};
  kernelHas("swp1", "eth8");
  EXPECT_FALSE(isOpen("swp1"));
  EXPECT_THAT(devices.openIntfs(), IsEmpty());
}

TEST_F(EthDevPamManagerTest, DeviceThatCouldNotBeOpenedIsTriedAgainWhenItChanges) {
  devices.refused = {"swp1"};
  kernelHas("swp1");
  desiredIs("swp1");
  devices.refused.clear();
  kernel->intfStatusAndDeviceNameNotify(IntfId("swp1"));
  EXPECT_TRUE(isOpen("swp1"));
}

TEST_F(EthDevPamManagerTest, EveryDeviceIsLookedAtOnAKeylessNotification) {
  devices.refused = {"swp1", "swp2"};
  for (char const* const intf : {"swp1", "swp2"}) {
    kernelHas(intf);
    desiredIs(intf);
  }
  devices.refused = {"swp2"};
  desired->intfDesiredNotify();
  EXPECT_TRUE(isOpen("swp1"));
  EXPECT_FALSE(isOpen("swp2"));
  devices.refused.clear();
  kernel->intfStatusAndDeviceNameNotify();
  EXPECT_TRUE(isOpen("swp2"));
}

// ---- Missing and passive parts

TEST_F(EthDevPamManagerTest, RefusesToDoWithoutItsInputs) {
  auto const refusal = [](auto const& theDesired, auto const& theOpened, auto const& theKernel) {
    return refusalOf<Kel::RangeException>(
        [&] { Kel::make<EthDevPamManager>(theDesired, theOpened, theKernel); });
  };
  auto const text = [](std::string const& attribute) {
    return "null _" + attribute +
           " parameter to mutator for Interface::EthDevPamManager::" + attribute + " not allowed\"";
  };
  EXPECT_EQ(refusal(Kel::Ptr<PamDesiredIntfDir>(), opened, kernel), text("desired"));
  EXPECT_EQ(refusal(desired, Kel::Ptr<EthDevPamCollection>(), kernel), text("opened"));
  EXPECT_EQ(refusal(desired, opened, Kel::Ptr<DeviceIntfStatusDir>()), text("kernelIntfStatusDir"));
}

TEST_F(EthDevPamManagerTest, ZombieFollowsNothing) {
  manager->kelDoZombieReactors(true);
  kernelHas("swp1");
  desiredIs("swp1");
  desired->intfDesiredNotify();
  kernel->intfStatusAndDeviceNameNotify();
  EXPECT_THAT(devices.openings, IsEmpty());
  manager->kelDoZombieReactors(false);
  desired->intfDesiredNotify();
  EXPECT_TRUE(isOpen("swp1"));
}

TEST_F(EthDevPamManagerTest, InactiveFollowsNothingAndCatchesUpWhenItIsActiveAgain) {
  kernelHas("swp2");
  desiredIs("swp2");
  ASSERT_TRUE(isOpen("swp2"));
  devices.openings.clear();
  manager->hasNotificationActiveIs(false);
  kernelHas("swp1");
  desiredIs("swp1");
  desired->intfDesiredDel(IntfId("swp2"));
  desired->intfDesiredNotify();
  kernel->intfStatusAndDeviceNameNotify();
  EXPECT_THAT(devices.openings, IsEmpty());
  EXPECT_TRUE(isOpen("swp2"));
  manager->hasNotificationActiveIs(true);
  EXPECT_TRUE(isOpen("swp1"));
  EXPECT_FALSE(isOpen("swp2"));
}

TEST_F(EthDevPamManagerTest, ZombieDoesNotCatchUp) {
  manager->hasNotificationActiveIs(false);
  kernelHas("swp1");
  desiredIs("swp1");
  manager->kelDoZombieReactors(true);
  manager->hasNotificationActiveIs(true);
  EXPECT_THAT(devices.openings, IsEmpty());
}

TEST_F(EthDevPamManagerTest, FollowsNothingOnceItIsGone) {
  manager = nullptr;
  kernelHas("swp1");
  desiredIs("swp1");
  EXPECT_THAT(devices.openings, IsEmpty());
}

TEST(EthDevPamManagerDeathTest, NeedsSomethingToOpenDevicesWith) {
  auto const desired = Kel::make<PamDesiredIntfDir>("desired");
  auto const kernel = Kel::make<DeviceIntfStatusDir>();
  auto const manager =
      Kel::make<EthDevPamManager>(desired, Kel::make<EthDevPamCollection>("opened"), kernel);
  manager->enabledIs(true);
  kernel->intfStatusAndDeviceNameIs(IntfId("swp1"), {"swp1", 1});
  EXPECT_DEATH(desired->intfDesiredIs(IntfId("swp1"), true),
               "EthDevPamManager:[0-9]+: handleIntf: assertion failed: EthDevPams::ofThread\\(\\)");
}

// ---- What callbacks may do

TEST_F(EthDevPamManagerTest, DeviceMayBecomeUndesiredWhileItIsOpened) {
  auto const listener = Kel::make<DeviceListener>(opened);
  listener->reaction = [&] { desired->intfDesiredDel(IntfId("swp1")); };
  kernelHas("swp1");
  desiredIs("swp1");
  EXPECT_FALSE(isOpen("swp1"));
  EXPECT_THAT(listener->heard, ElementsAre("swp1 opened", "swp1 closed"));
}

TEST_F(EthDevPamManagerTest, MayLoseItsLastReferenceWhileADeviceIsOpened) {
  auto const listener = Kel::make<DeviceListener>(opened);
  listener->reaction = [&] { manager = nullptr; };
  kernelHas("swp1");
  desiredIs("swp1");
  EXPECT_EQ(manager, nullptr);
  EXPECT_TRUE(isOpen("swp1"));
}

TEST_F(EthDevPamManagerTest, MayLoseItsLastReferenceWhileSeveralDevicesAreOpened) {
  manager->enabledIs(false);
  for (char const* const intf : {"swp1", "swp2"}) {
    kernelHas(intf);
    desiredIs(intf);
  }
  auto const listener = Kel::make<DeviceListener>(opened);
  listener->reaction = [&] { manager = nullptr; };
  manager->enabledIs(true);
  EXPECT_EQ(manager, nullptr);
  EXPECT_THAT(devices.takeOpened(), ElementsAre("swp1", "swp2"));
}

TEST_F(EthDevPamManagerTest, MayLoseItsLastReferenceWhileSeveralDevicesAreClosed) {
  for (char const* const intf : {"swp1", "swp2"}) {
    kernelHas(intf);
    desiredIs(intf);
  }
  auto const listener = Kel::make<DeviceListener>(opened);
  listener->reaction = [&] { manager = nullptr; };
  manager->enabledIs(false);
  EXPECT_TRUE(opened->intfPam().empty());
}

// ---- What is traced

TEST_F(EthDevPamManagerTest, TracesWhatItOpensAndCloses) {
  std::vector<std::string> lines;
  Kel::TraceHandle& handle = Kel::traceHandle("Interface::EthDevPam");
  handle.enabledIs(true);
  handle.levelEnabledIs(8, true);
  Kel::traceSinkIs([&](Kel::TraceMessage const& message) {
    lines.push_back(std::string(message.sourceFile) + ' ' + message.function + ' ' +
                    std::string(message.text));
  });
  desiredIs("swp1");
  kernelHas("swp1", "eth7");
  Kel::traceSinkIs(nullptr);
  handle.levelEnabledIs(8, false);
  handle.enabledIs(false);
  EXPECT_THAT(lines, ElementsAre("EthDevPamManager handleIntf swp1 is closed",
                                 "EthDevPamManager handleIntf swp1 is opened on eth7"));
}

// ---- The thread's devices

class EthDevPamsTest : public testing::Test {
 protected:
  Kel::Ptr<EthDevPam> pam(char const* intf, EthDevSettings const& settings = {},
                          IntfStatusAndDeviceName const& device = {"eth7", 7}) {
    return devices->pam(IntfId(intf), device, settings);
  }

  std::optional<RecordedPams> devices{std::in_place};
};

TEST_F(EthDevPamsTest, ServeTheirThreadWhileTheyLive) {
  EXPECT_EQ(EthDevPams::ofThread(), &*devices);
  devices.reset();
  EXPECT_EQ(EthDevPams::ofThread(), nullptr);
}

TEST_F(EthDevPamsTest, DoNotServeOtherThreads) {
  EthDevPams* ofOther = &*devices;
  std::thread([&] { ofOther = EthDevPams::ofThread(); }).join();
  EXPECT_EQ(ofOther, nullptr);
}

TEST_F(EthDevPamsTest, OpenADeviceOnceForAllWhoWantTheSame) {
  auto const first = pam("swp1");
  EXPECT_EQ(pam("swp1"), first);
  EXPECT_EQ(devices->openings.size(), 1u);
}

TEST_F(EthDevPamsTest, OpenADeviceForEachKindOfUse) {
  auto const first = pam("swp1");
  auto const otherIntf = pam("swp2");
  auto const otherSettings = pam("swp1", {2048, 3, {}});
  auto const otherDevice = pam("swp1", {}, {"eth7", 8});
  EXPECT_NE(first, otherIntf);
  EXPECT_NE(first, otherSettings);
  EXPECT_NE(first, otherDevice);
  EXPECT_EQ(devices->openings.size(), 4u);
}

TEST_F(EthDevPamsTest, OpenADeviceAgainOnceItsLastUserIsGone) {
  pam("swp1");
  EXPECT_THAT(devices->openIntfs(), IsEmpty());
  auto const again = pam("swp1");
  EXPECT_TRUE(again);
  EXPECT_EQ(devices->openings.size(), 2u);
}

TEST_F(EthDevPamsTest, RememberNoDeviceThatCouldNotBeOpened) {
  devices->refused = {"swp1"};
  EXPECT_EQ(pam("swp1"), nullptr);
  EXPECT_THAT(devices->openIntfs(), IsEmpty());
}

TEST_F(EthDevPamsTest, MayGoBeforeTheirDevices) {
  auto user = pam("swp1");
  devices.reset();
  user->outputPktIs(Wirex::Pkt::PktIs(std::size_t{1}));
  EXPECT_EQ(user->references(), 1u);
  user = nullptr;
}

// ---- The collection of open devices

class EthDevPamCollectionTest : public EthDevPamsTest {
 protected:
  Kel::Ptr<EthDevPamCollection> collection = Kel::make<EthDevPamCollection>("whose");
  Kel::Ptr<DeviceListener> listener = Kel::make<DeviceListener>(collection);
};

TEST_F(EthDevPamCollectionTest, HasAName) {
  EXPECT_EQ(collection->name(), Kel::Name("whose"));
}

TEST_F(EthDevPamCollectionTest, KeepsADeviceUnderItsInterface) {
  auto const device = pam("swp1");
  collection->intfPamIs(device);
  collection->intfPamIs(device);
  EXPECT_EQ(collection->intfPam(IntfId("swp1")), device);
  EXPECT_THAT(listener->heard, ElementsAre("swp1 opened"));
}

TEST_F(EthDevPamCollectionTest, PutsADeviceInThePlaceOfAnother) {
  collection->intfPamIs(pam("swp1"));
  auto const other = pam("swp1", {2048, 3, {}});
  collection->intfPamIs(other);
  EXPECT_EQ(collection->intfPam(IntfId("swp1")), other);
  EXPECT_EQ(collection->intfPam().size(), 1u);
  EXPECT_THAT(listener->heard, ElementsAre("swp1 opened", "swp1 opened"));
}

TEST_F(EthDevPamCollectionTest, RefusesNull) {
  EXPECT_EQ(refusalOf<Kel::RangeException>([&] { collection->intfPamIs(nullptr); }),
            "null _intfPam parameter to mutator for Interface::EthDevPamCollection::intfPam not "
            "allowed\"");
  EXPECT_TRUE(collection->intfPam().empty());
}

TEST_F(EthDevPamCollectionTest, TellsOfDevicesThatGo) {
  for (char const* const intf : {"swp1", "swp2", "swp3"}) collection->intfPamIs(pam(intf));
  listener->heard.clear();
  collection->intfPamDel(IntfId("swp2"));
  collection->intfPamDel(IntfId("swp2"));
  collection->intfPamDelAll();
  EXPECT_THAT(listener->heard,
              testing::UnorderedElementsAre("swp2 closed", "swp1 closed", "swp3 closed"));
  EXPECT_THAT(devices->openIntfs(), IsEmpty());
}

TEST_F(EthDevPamCollectionTest, TellsOfDevicesOnDemand) {
  collection->intfPamNotify(IntfId("swp1"));
  collection->intfPamNotify();
  EXPECT_THAT(listener->heard, ElementsAre("swp1 closed", "all"));
}

}  // namespace
