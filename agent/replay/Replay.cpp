#include "agent/replay/Replay.h"

#include <stdexcept>
#include <utility>

namespace Agent {

namespace {

std::vector<std::string> fileNamesOf(std::vector<PortCapture> const& captures) {
  std::vector<std::string> fileNames;
  fileNames.reserve(captures.size());
  for (PortCapture const& capture : captures) fileNames.push_back(capture.fileName);
  return fileNames;
}

}  // namespace

Replay::Replay(Configuration const& configuration, std::vector<PortCapture> const& captures)
    : loop_(Kel::make<Horix::TimerWheel>(Kel::make<Horix::VirtualClock>())),
      switch_(configuration, loop_),
      packets_(fileNamesOf(captures)) {
  for (PortCapture const& capture : captures) {
    if (!switch_.ports().contains(capture.port))
      throw std::invalid_argument("capture for a port that is not configured");
    ports_.push_back(capture.port);
  }
}

void Replay::watchRecords() {
  watch_ = std::make_unique<RecordWatch>(switch_.entities().hosts);
  switch_.afterPublishIs([this] {
    for (RecordChange& change : watch_->takeChanges())
      events_.push_back({switch_.now(), std::move(change)});
  });
}

void Replay::run(std::optional<Horix::Time> until) {
  Horix::Time const end = until.value_or(Horix::Time::max());
  for (auto packet = packets_.next(); packet && packet->time <= end; packet = packets_.next()) {
    if (packet->time > switch_.now()) {
      loop_.endBatch();
      loop_.advanceTo(packet->time);
    }
    devices_.receive(ports_[packet->capture], packet->frame);
  }
  loop_.endBatch();
  if (until) loop_.advanceTo(*until);
}

}  // namespace Agent
