#include <cerrno>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <stdexcept>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

#include "platform/horix/EventLoop.h"
#include "platform/interface/SocketEthDevPams.h"
#include "platform/snooping/SnoopingPamManager.h"
#include "proxy/ProxySm.h"

/// learner INTERFACE...: a switch's agent in small. Until its standard input ends it snoops on the
/// kernel's interfaces, which are untagged in one VLAN, and reports on each what the others'
/// listeners want. It needs root.
namespace {

using Bridging::VlanId;
using Wirex::IntfId;
namespace Snooping = Bridging::IgmpSnooping;

Wirex::MacAddress macAddressOf(IntfId const& intf) {
  ifreq request{};
  std::string const name(intf.stringValue().view());
  name.copy(request.ifr_name, IFNAMSIZ - 1);
  int const socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  int const result = ioctl(socket, SIOCGIFHWADDR, &request);
  close(socket);
  if (result != 0) throw std::system_error(errno, std::generic_category(), name);
  Wirex::MacAddress address;
  std::memcpy(address.data(), request.ifr_hwaddr.sa_data, address.size());
  return address;
}

/// What an agent holds: the entities that it writes, the proxy that follows them, and the learning
/// that is fed from the same devices.
class Learner {
 public:
  explicit Learner(Horix::EventLoop& loop) : loop_(loop) {
    topology_->topoVlanIs(vlan);
    bridging_->vlanConfigIs(vlan);
    queriers_->querierConfigIs("1", Kel::make<Gmp::Igmp::QuerierConfig>());
    protocolConfig_->contextConfigIs(vlan)->proxyEnabledIs(true);
    // Readers hear of a batch of reports once, when all of it has been learned.
    loop_.afterBatchIs([this] { batch_.publish(); });
  }
  Learner(Learner const&) = delete;
  Learner& operator=(Learner const&) = delete;
  ~Learner() { loop_.afterBatchIs(nullptr); }

  void portIs(IntfId const& intf) {
    auto const macAddress = macAddressOf(intf);
    bridging_->vlanConfig(vlan)->intfConfigIs(intf);
    learning_.portIs(intf);
    snooping_->portIs(intf);
    snooping_->vlanIs(intf, vlan, {&learning_, &routers_, &querier_});
    desired_->intfDesiredIs(intf, true);
    kernelIntfs_->intfStatusAndDeviceNameIs(intf, {intf.stringValue(), 0});
    topology_->topoVlan(vlan)->portIs(intf);  // now the port has its host

    Igmp::HostSettings settings;
    settings.macAddress = macAddress;
    settings.reportsUnasked = true;
    hosts_->igmpHost(Snooping::Proxy::PortKey(vlan, intf).hostName())->settingsIs(settings);
  }

  /// Has every host say that it leaves. What it takes to send that is still there.
  void leave() {
    for (Kel::Name const& name : hosts_->igmpHost().keys())
      hosts_->igmpHost(name)->enabledIs(false);
  }

 private:
  static inline VlanId const vlan{1};

  Horix::EventLoop& loop_;
  Kel::Ptr<Snooping::IgmpProtocolConfig> protocolConfig_ =
      Kel::make<Snooping::IgmpProtocolConfig>();
  Kel::Ptr<Snooping::IgmpProtocolStatus> status_ = Kel::make<Snooping::IgmpProtocolStatus>();
  Kel::Ptr<Topology::Library::Vlan::LibVlanState> topology_ =
      Kel::make<Topology::Library::Vlan::LibVlanState>();
  Kel::Ptr<PrivateVlanLib::LibState> privateVlans_ = Kel::make<PrivateVlanLib::LibState>();
  Kel::Ptr<Interface::PamDesiredIntfDir> desired_ =
      Kel::make<Interface::PamDesiredIntfDir>("learner");
  Kel::Ptr<Igmp::QuerierConfigDir> queriers_ = Kel::make<Igmp::QuerierConfigDir>();
  Kel::Ptr<Igmp::IgmpHostDir> hosts_ = Kel::make<Igmp::IgmpHostDir>();
  Kel::Ptr<Interface::DeviceIntfStatusDir> kernelIntfs_ =
      Kel::make<Interface::DeviceIntfStatusDir>();
  Kel::Ptr<Bridging::Config> bridging_ = Kel::make<Bridging::Config>();

  Snooping::ReportBatch batch_;
  Snooping::VlanLearning learning_{status_->contextStatusIs(vlan), Snooping::SnoopingPolicy(),
                                   loop_.timerWheel(), batch_};
  Snooping::VlanQuerier querier_{learning_, loop_.timerWheel()};
  Snooping::VlanRouters routers_{Kel::make<Snooping::RouterPorts>(vlan), loop_.timerWheel()};
  Kel::Ptr<Snooping::Proxy::ProxySm> proxy_ = Snooping::Proxy::proxySmFactory(
      protocolConfig_, topology_, privateVlans_, desired_, queriers_, hosts_, kernelIntfs_,
      bridging_, status_, loop_.timerWheel());
  // With the proxy's settings of devices, so that each is opened once for both.
  Kel::Ptr<Snooping::SnoopingPamManager> snooping_ = Kel::make<Snooping::SnoopingPamManager>(
      bridging_, kernelIntfs_, proxy_->pamManager()->ethDevPamMgr()->settings());
};

/// Stops the loop when the standard input ends.
class EndOfInput final : private Horix::EventLoop::Watch {
 public:
  explicit EndOfInput(Horix::EventLoop& loop) : Watch(loop, STDIN_FILENO), loop_(loop) {}

 private:
  void onReady() override {
    char ignored[64];
    if (read(STDIN_FILENO, ignored, sizeof ignored) <= 0) loop_.stop();
  }

  Horix::EventLoop& loop_;
};

void run(char const* const* interfaces) {
  Horix::EventLoop loop(Kel::make<Horix::TimerWheel>(Kel::make<Horix::MonotonicClock>()));
  Interface::SocketEthDevPams devices(loop);
  Learner learner(loop);
  for (; *interfaces; ++interfaces) learner.portIs(IntfId(*interfaces));
  EndOfInput const end(loop);
  std::puts("ready");
  std::fflush(stdout);
  loop.run();
  learner.leave();
}

}  // namespace

int main(int argc, char* argv[]) try {
  if (argc < 2) throw std::invalid_argument("learner INTERFACE...");
  run(argv + 1);
} catch (std::exception const& error) {
  std::fprintf(stderr, "%s\n", error.what());
  return 1;
}
