#include "platform/snooping/SnoopedPort.h"

#include <variant>

namespace Bridging::IgmpSnooping {

namespace {

template <class... Visitors>
struct Overloaded : Visitors... {
  using Visitors::operator()...;
};
template <class... Visitors>
Overloaded(Visitors...) -> Overloaded<Visitors...>;

}  // namespace

void SnoopedPort::receive(VlanId vlan, Igmp::Bytes frame) {
  countIfIgnored(learnFrom(vlan, frame));
}

void SnoopedPort::receiveInNoVlan(Igmp::Bytes frame) {
  auto const causeOf = [&] {
    if (!receives_) return Igmp::Cause::portBlocked;
    auto const ethernet = Igmp::parseEthernet(frame);
    if (!ethernet) return ethernet.cause();
    auto const datagram = Igmp::parseDatagram(*ethernet);
    return datagram ? Igmp::Cause::notInVlan : datagram.cause();
  };
  counters_.countIgnored(causeOf());
}

std::optional<Igmp::Cause> SnoopedPort::learnFrom(VlanId vlan, Igmp::Bytes bytes) {
  if (!receives_) return Igmp::Cause::portBlocked;
  auto const frame = Igmp::parseEthernet(bytes);
  if (!frame) return frame.cause();
  VlanLearning& learning = *learning_.at(vlan);
  auto const packet = Igmp::parsePacket(*frame, learning.policy().receive);
  if (!packet) return packet.cause();
  counters_.countReceived(packet->message);
  learn(learning, *packet);
  return std::nullopt;
}

void SnoopedPort::learn(VlanLearning& learning, Igmp::Packet const& packet) {
  auto const report = [&](auto const& message) {
    countIfIgnored(learning.report(intfId_, packet.source, message.group));
  };
  std::visit(
      Overloaded{
          [](Igmp::Query const&) {},  // what routers ask changes no membership
          [&](Igmp::ReportV1 const& message) { report(message); },
          [&](Igmp::ReportV2 const& message) { report(message); },
          [&](Igmp::ReportV3 const& message) {
            for (Igmp::GroupRecord const& record : message.records) {
              auto const problem = record.problem();
              countIfIgnored(problem ? problem : learning.record(intfId_, packet.source, record));
            }
          },
          [&](Igmp::Leave const& message) {
            learning.leave(intfId_, packet.source, message.group);
          },
      },
      packet.message);
}

void SnoopedPort::countIfIgnored(std::optional<Igmp::Cause> cause) {
  if (cause) counters_.countIgnored(*cause);
}

}  // namespace Bridging::IgmpSnooping
