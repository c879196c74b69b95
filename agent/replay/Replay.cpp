#include "agent/replay/Replay.h"

#include <chrono>
#include <cstdint>
#include <ratio>
#include <stdexcept>
#include <utility>

#include "agent/text/TimeText.h"
#include "agent/text/Wording.h"
#include "platform/igmp/wire/FrameReader.h"

namespace Agent {

namespace {

constexpr std::uint64_t packetsBetweenLooks = 64;

/// What is read, whichever of its interfaces.
std::vector<std::string> fileNamesOf(std::vector<PortCapture> const& captures) {
  std::vector<std::string> fileNames;
  fileNames.reserve(captures.size());
  for (PortCapture const& capture : captures)
    fileNames.push_back(captureName(capture.fileName).fileName);
  return fileNames;
}

std::vector<std::string> namesOf(std::vector<PortCapture> const& captures) {
  std::vector<std::string> names;
  names.reserve(captures.size());
  for (PortCapture const& capture : captures) names.push_back(capture.fileName);
  return names;
}

/// Of a port by its number: locally administered, and the same in each replay.
Wirex::MacAddress macAddress(std::size_t port) {
  Wirex::MacAddress address{0x02};
  for (std::size_t byte = address.size(); --byte > 1; port >>= 8)
    address[byte] = static_cast<std::uint8_t>(port);
  return address;
}

InterfaceState portState(std::size_t port) {
  InterfaceState state;
  state.present = state.carrier = state.forwarding = true;
  state.macAddress = macAddress(port);
  state.mtu = 1500;
  return state;
}

}  // namespace

Replay::Replay(Configuration const& configuration, std::vector<PortCapture> const& captures)
    : loop_(Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>())),
      switch_(configuration, loop_),
      fileNames_(fileNamesOf(captures)),
      packets_(namesOf(captures)),
      ownFrames_(configuration),
      ahead_(packets_, [this](MergedPacket const& packet) {
        ownFrames_.foresee(ports_[packet.capture], packet.time, packet.frame, packet.outgoing);
      }) {
  std::size_t port = 0;
  for (InterfaceConfig const& interface : configuration.interfaces)
    switch_.interfaceStateIs(interface.intfId, portState(++port));
  for (PortCapture const& capture : captures) {
    if (!switch_.ports().contains(capture.port))
      throw std::invalid_argument("capture for a port that is not configured");
    ports_.push_back(capture.port);
  }
  devices_.sentIs([this](Wirex::IntfId const& from, Wirex::Bytes frame) {
    ownFrames_.sent(from, switch_.now(), frame);
    if (groupSendings_) groupSendings_->sent(from, switch_.now(), frame);
    if (sent_) sent_->write(from, packets_.start() + switch_.now(), frame);
  });
}

// Hosts that go leave their groups, which is no part of what is replayed.
Replay::~Replay() {
  devices_.sentIs(nullptr);
}

void Replay::writeSent(std::string const& directory) {
  std::vector<Wirex::IntfId> ports;
  for (InterfaceConfig const& interface : switch_.configuration().interfaces)
    ports.push_back(interface.intfId);
  sent_ = std::make_unique<SentCaptures>(directory, ports, fileNames_);
}

void Replay::onEventsAre(std::function<void(std::vector<ReplayEvent>)> action) {
  onEvents_ = std::move(action);
  records_ = std::make_unique<RecordWatch>(switch_.entities().hosts);
  memberships_ = std::make_unique<MembershipWatch>(switch_.entities().snoopingStatus);
  switch_.afterPublishIs(this, [this] { tellEvents(); });
}

/// Whatever it holds: what is no IPv4 is no reporter's.
void Replay::noteFrame(Wirex::IntfId const& port, MergedPacket const& packet) {
  constexpr std::size_t sourceOffset = 12;  // in the IPv4 header
  auto const frame = Igmp::parseEthernet(packet.frame);
  if (!frame || frame->payload.size() < Igmp::ipv4HeaderSize) return;
  Igmp::ByteReader header(frame->payload);
  header.skip(sourceOffset);
  frames_[{port, header.ipAddr()}] = packet.number;
}

/// A record of a secondary VLAN changes for what is learned in its primary.
void Replay::tellEvents() {
  std::map<std::pair<Bridging::VlanId, Wirex::IpAddr>, std::vector<EventCause>> causes;
  for (MembershipChange const& change : memberships_->takeChanges()) {
    EventCause cause{change.interface, change.reporter, std::nullopt};
    auto const frame = frames_.find({change.interface, change.reporter});
    if (frame != frames_.end()) cause.frame = frame->second;
    causes[{change.vlan, change.group}].push_back(cause);
  }
  frames_.clear();
  std::vector<ReplayEvent> events;
  for (RecordChange& change : records_->takeChanges()) {
    Horix::Time const now = switch_.now();
    ReplayEvent event{{now, std::move(change)}, packets_.start() + now, {}};
    VlanConfig const* const vlan =
        switch_.configuration().vlanFrom(event.record.change.host.vlanId().value());
    if (vlan) event.causes = causes[{vlan->learningVlan(), event.record.change.group}];
    events.push_back(std::move(event));
  }
  if (!events.empty()) onEvents_(std::move(events));
}

void Replay::run(std::optional<Horix::Time> until) {
  Horix::Time const end = until.value_or(Horix::Time::max());
  std::uint64_t given = 0;
  for (auto packet = ahead_.next(); packet && packet->time <= end; packet = ahead_.next()) {
    if (onProgress_ && ++given % packetsBetweenLooks == 0) onProgress_(packets_);
    if (packet->time > switch_.now()) {
      loop_.endBatch();
      letTimePass(packet->time);
    }
    Wirex::IntfId const& port = ports_[packet->capture];
    if (ownFrames_.recognise(port, packet->time, packet->frame, packet->outgoing)) continue;
    if (onEvents_) noteFrame(port, *packet);
    devices_.receive(port, packet->frame);
  }
  loop_.endBatch();
  if (until) letTimePass(*until);
  if (sent_) sent_->finish();
}

void Replay::letTimePass(Horix::Time to) {
  using Days = std::chrono::duration<std::int64_t, std::ratio<86400>>;
  constexpr Days longest(31);
  if (Horix::Time const pause = to - switch_.now(); pause > longest) {
    throw CaptureError(
        message("nothing is heard for ", std::chrono::floor<Days>(pause).count(), " days from ",
                timeText(switch_.now()), " s on, and a replay lets no more than ", longest.count(),
                " days pass; correct the capture's clock (editcap -t), or end before "
                "with --until"));
  }
  loop_.advanceTo(to);
}

}  // namespace Agent
