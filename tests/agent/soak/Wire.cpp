#include "tests/agent/soak/Wire.h"

#include <algorithm>
#include <ostream>

namespace Agent::Soak {

namespace {

constexpr Address allSystems(224, 0, 0, 1);
constexpr Address allRouters(224, 0, 0, 2);
constexpr Address allIgmpv3Routers(224, 0, 0, 22);

constexpr std::uint8_t queryType = 0x11;
constexpr std::uint8_t reportV1Type = 0x12;
constexpr std::uint8_t reportV2Type = 0x16;
constexpr std::uint8_t leaveType = 0x17;
constexpr std::uint8_t reportV3Type = 0x22;

constexpr std::size_t ipHeader = 24;  // with Router Alert
constexpr std::size_t macHeader = 14;
constexpr auto decisecond = std::chrono::milliseconds(100);

void put16(Frame& out, std::size_t value) {
  out.push_back(static_cast<std::uint8_t>(value >> 8));
  out.push_back(static_cast<std::uint8_t>(value));
}

void put(Frame& out, Address address) {
  put16(out, address.value() >> 16);
  put16(out, address.value() & 0xffff);
}

void put(Frame& out, Sources const& sources) {
  for (Address const source : sources) put(out, source);
}

/// RFC 1071.
std::uint16_t checksum(Wirex::Bytes bytes) {
  std::uint32_t sum = 0;
  for (std::size_t at = 0; at < bytes.size(); ++at)
    sum += at % 2 == 0 ? std::uint32_t{bytes[at]} << 8 : bytes[at];
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<std::uint16_t>(~sum);
}

void fillIn(Frame& bytes, std::size_t at, std::size_t from, std::size_t size) {
  std::uint16_t const sum = checksum(Wirex::Bytes(bytes).subspan(from, size));
  bytes[at] = static_cast<std::uint8_t>(sum >> 8);
  bytes[at + 1] = static_cast<std::uint8_t>(sum);
}

std::uint8_t typeOf(Message const& message) {
  if (message.isQuery()) return queryType;
  if (message.kind == Message::Kind::leave) return leaveType;
  return message.version == 1 ? reportV1Type : message.version == 2 ? reportV2Type : reportV3Type;
}

Frame payloadOf(Message const& message) {
  Frame out{typeOf(message), 0, 0, 0};
  if (message.isQuery() && message.version > 1)
    out[1] = static_cast<std::uint8_t>(message.maxResponseTime / decisecond);
  if (out[0] == reportV3Type) {
    put16(out, 0);
    put16(out, message.records.size());
    for (Record const& record : message.records) {
      out.push_back(static_cast<std::uint8_t>(record.type));
      out.push_back(0);
      put16(out, record.sources.size());
      put(out, record.group);
      put(out, record.sources);
    }
  } else {
    put(out, message.group);
    if (message.isQuery() && message.version == 3) {
      out.push_back(2);    // the robustness variable
      out.push_back(125);  // the query interval
      put16(out, message.sources.size());
      put(out, message.sources);
    }
  }
  fillIn(out, 2, 0, out.size());
  return out;
}

void require(bool condition, char const* otherwise) {
  if (!condition) throw BadFrame(otherwise);
}

class Reader {
 public:
  explicit Reader(Wirex::Bytes bytes) : rest_(bytes) {}

  Wirex::Bytes take(std::size_t size) {
    require(rest_.size() >= size, "the frame is cut short");
    Wirex::Bytes const taken = rest_.first(size);
    rest_ = rest_.subspan(size);
    return taken;
  }
  std::uint8_t byte() { return take(1)[0]; }
  std::uint16_t number() { return Wirex::bigEndian16(take(2).data()); }
  Address address() {
    std::uint32_t const high = number();
    return Address(high << 16 | number());
  }
  Sources sources(std::size_t count) {
    Sources sources;
    while (count-- > 0) require(sources.insert(address()).second, "a source stands there twice");
    return sources;
  }
  Wirex::Bytes rest() const { return rest_; }

 private:
  Wirex::Bytes rest_;
};

/// RFC 9776 section 4.1.1, in tenths of a second.
unsigned valueOf(std::uint8_t code) {
  return code < 128 ? code : ((code & 0x0fU) | 0x10U) << (((code >> 4) & 7U) + 3);
}

void readReport(Reader& in, Message& message) {
  in.number();
  for (unsigned left = in.number(); left > 0; --left) {
    Record record;
    record.type = static_cast<RecordType>(in.byte());
    require(record.type >= RecordType::isIn && record.type <= RecordType::block, "record type");
    require(in.byte() == 0, "there is auxiliary data");
    std::size_t const sources = in.number();
    record.group = in.address();
    record.sources = in.sources(sources);
    require(record.group.isMulticast(), "a record's group is not multicast");
    require(!record.sources.empty() ||
                (record.type != RecordType::allow && record.type != RecordType::block &&
                 record.type != RecordType::isIn),
            "a record says nothing");
    message.records.push_back(std::move(record));
  }
  require(!message.records.empty(), "a report without records");
}

void readQuery(Reader& in, Message& message, std::uint8_t code, std::size_t size) {
  require(size == 8 || size >= 12, "a query of a length between the versions'");
  message.version = size >= 12 ? 3 : code == 0 ? 1 : 2;
  message.maxResponseTime = decisecond * (message.version == 1   ? 100
                                          : message.version == 2 ? code
                                                                 : valueOf(code));
  message.group = in.address();
  if (message.version < 3) return;
  in.byte();
  in.byte();
  std::size_t const sources = in.number();
  message.sources = in.sources(sources);
}

Message messageOf(Wirex::Bytes payload) {
  require(checksum(payload) == 0, "IGMP checksum");
  Reader in(payload);
  std::uint8_t const type = in.byte();
  std::uint8_t const code = in.byte();
  in.number();
  Message message;
  switch (type) {
    case queryType:
      message.kind = Message::Kind::query;
      readQuery(in, message, code, payload.size());
      break;
    case reportV3Type:
      message.kind = Message::Kind::report;
      readReport(in, message);
      break;
    case reportV1Type:
    case reportV2Type:
    case leaveType:
      message.kind = type == leaveType ? Message::Kind::leave : Message::Kind::report;
      message.version = type == reportV1Type ? 1 : 2;
      message.group = in.address();
      require(message.group.isMulticast(), "the group is not multicast");
      break;
    default:
      throw BadFrame("message type");
  }
  require(in.rest().empty(), "something follows the message");
  return message;
}

Address destinationOf(Message const& message) {
  if (message.isQuery()) return message.group == Address() ? allSystems : message.group;
  if (message.kind == Message::Kind::leave) return allRouters;
  return message.version == 3 ? allIgmpv3Routers : message.group;
}

char const* nameOf(RecordType type) {
  constexpr char const* names[] = {"?", "IS_IN", "IS_EX", "TO_IN", "TO_EX", "ALLOW", "BLOCK"};
  return names[static_cast<std::size_t>(type)];
}

std::ostream& operator<<(std::ostream& out, Sources const& sources) {
  out << '{';
  char const* separator = "";
  for (Address const source : sources) {
    out << separator << source;
    separator = ", ";
  }
  return out << '}';
}

}  // namespace

std::ostream& operator<<(std::ostream& out, Filter const& filter) {
  return out << (filter.exclude ? "exclude " : "include ") << filter.sources;
}

std::ostream& operator<<(std::ostream& out, Message const& message) {
  constexpr char const* kinds[] = {"query", "report", "leave"};
  out << 'v' << message.version << ' ' << kinds[static_cast<std::size_t>(message.kind)] << " from "
      << message.source;
  if (message.group != Address()) out << " of " << message.group;
  if (!message.sources.empty()) out << ' ' << message.sources;
  for (Record const& record : message.records)
    out << ' ' << nameOf(record.type) << ' ' << record.group << ' ' << record.sources;
  return out;
}

Frame frameOf(Message const& message, unsigned vlan) {
  Address const destination = destinationOf(message);
  Frame out{0x01, 0x00, 0x5e};
  out.push_back(static_cast<std::uint8_t>(destination.value() >> 16 & 0x7f));
  put16(out, destination.value() & 0xffff);
  if (message.sourceMac) {
    out.insert(out.end(), message.sourceMac->begin(), message.sourceMac->end());
  } else {
    out.insert(out.end(), {0x02, 0x5e});
    put(out, message.source);
  }
  if (vlan != 0) {
    put16(out, Wirex::etherTypeVlan);
    put16(out, vlan);
  }
  put16(out, Wirex::etherTypeIpv4);

  Frame const payload = payloadOf(message);
  std::size_t const ip = out.size();
  out.insert(out.end(), {0x46, 0xc0});
  put16(out, ipHeader + payload.size());
  out.insert(out.end(), {0, 0, 0x40, 0, 1, 2, 0, 0});
  put(out, message.source);
  put(out, destination);
  out.insert(out.end(), {0x94, 4, 0, 0});
  fillIn(out, ip + 10, ip, ipHeader);
  out.insert(out.end(), payload.begin(), payload.end());
  return out;
}

Heard messageIn(Wirex::Bytes frame) {
  Reader in(frame);
  Wirex::Bytes const mac = in.take(macHeader - 2);
  std::uint16_t etherType = in.number();
  Heard heard;
  if (etherType == Wirex::etherTypeVlan) {
    heard.vlan = in.number() & Wirex::vlanIdMask;
    require(heard.vlan != 0, "a tag without a VLAN");
    etherType = in.number();
  }
  require(etherType == Wirex::etherTypeIpv4, "not IPv4");
  require(checksum(in.rest().first(std::min(ipHeader, in.rest().size()))) == 0, "IP checksum");
  require(in.byte() == 0x46, "IP version and header length");
  require(in.byte() == 0xc0, "type of service");
  std::size_t const length = in.number();
  in.number();
  require((in.number() & 0xbfff) == 0, "a fragment");
  require(in.byte() == 1, "TTL");
  require(in.byte() == 2, "not IGMP");
  in.number();
  Address const source = in.address();
  Address const destination = in.address();
  require(in.number() == 0x9404 && in.number() == 0, "no Router Alert");
  require(length >= ipHeader, "IP length");
  heard.message = messageOf(in.take(length - ipHeader));
  std::copy(mac.begin() + 6, mac.end(), heard.message.sourceMac.emplace().begin());
  heard.message.source = source;
  heard.message.destination = destination;
  require(destination == destinationOf(heard.message), "destination");
  std::uint32_t const low = destination.value();
  require(mac[0] == 1 && mac[1] == 0 && mac[2] == 0x5e && mac[3] == (low >> 16 & 0x7f) &&
              Wirex::bigEndian16(&mac[4]) == (low & 0xffff),
          "the destination's MAC address");
  return heard;
}

}  // namespace Agent::Soak
