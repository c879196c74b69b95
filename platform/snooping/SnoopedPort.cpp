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

void SnoopedPort::receive(Igmp::Bytes frame) {
  countIfIgnored(learnFrom(frame));
}

std::optional<Igmp::Cause> SnoopedPort::learnFrom(Igmp::Bytes bytes) {
  if (!receives_) return Igmp::Cause::portBlocked;
  auto const frame = Igmp::parseEthernet(bytes);
  if (!frame) return frame.cause();
  VlanLearning* const learning = learningOf(*frame);
  if (!learning) {
    auto const datagram = Igmp::parseDatagram(*frame);
    return datagram ? Igmp::Cause::notInVlan : datagram.cause();
  }
  auto const packet = Igmp::parsePacket(*frame, learning->policy().receive);
  if (!packet) return packet.cause();
  counters_.countReceived(packet->message);
  learn(*learning, *packet);
  return std::nullopt;
}

VlanLearning* SnoopedPort::learningOf(Igmp::EthernetFrame const& frame) const {
  if (!frame.vlan) return untagged_;
  auto const tagged = tagged_.find(frame.vlan->value());
  return tagged == tagged_.end() ? nullptr : tagged->second;
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
