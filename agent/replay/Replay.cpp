#include "agent/replay/Replay.h"

#include <chrono>
#include <cstdint>
#include <ratio>
#include <stdexcept>
#include <utility>

#include "agent/text/TimeText.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

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
      ownFrames_(configuration) {
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

void Replay::watchRecords() {
  watch_ = std::make_unique<RecordWatch>(switch_.entities().hosts);
  switch_.afterPublishIs(this, [this] {
    for (RecordChange& change : watch_->takeChanges())
      events_.push_back({switch_.now(), std::move(change)});
  });
}

void Replay::run(std::optional<Horix::Time> until) {
  Horix::Time const end = until.value_or(Horix::Time::max());
  for (auto packet = packets_.next(); packet && packet->time <= end; packet = packets_.next()) {
    if (packet->time > switch_.now()) {
      loop_.endBatch();
      letTimePass(packet->time);
    }
    Wirex::IntfId const& port = ports_[packet->capture];
    if (!ownFrames_.recognise(port, packet->time, packet->frame, packet->outgoing))
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
