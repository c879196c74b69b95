#include "agent/state/StateCodec.h"

#include <algorithm>
#include <chrono>
#include <ratio>
#include <utility>

namespace Agent {

using Bridging::VlanId;
using Horix::Time;
using Wirex::IntfId;
using Wirex::IpAddr;

namespace {

/// The resolution of times.
using Tenths = std::chrono::duration<std::int64_t, std::deci>;
constexpr std::int64_t latest = std::chrono::floor<Tenths>(Time::max()).count();
constexpr std::size_t longestName = 255;

/// Tells the fields of a struct from the values that have a form of their own.
template <class Value>
concept HasFields = requires(Value& value) {
  Value::fields(value);
};

}  // namespace

struct StateWriter::Putting {
  StateWriter& to;

  void value(std::uint64_t number) const {
    for (; number >= 0x80; number >>= 7) to.bytes_ += static_cast<char>(number | 0x80);
    to.bytes_ += static_cast<char>(number);
  }
  void value(bool is) const { value(std::uint64_t{is}); }
  void value(std::uint8_t small) const { value(std::uint64_t{small}); }
  void value(Igmp::IgmpVersion version) const { value(static_cast<std::uint8_t>(version)); }
  void value(VlanId vlan) const { value(std::uint64_t{vlan.value()}); }
  void value(Wirex::MacAddress const& address) const {
    to.bytes_.append(address.begin(), address.end());
  }
  void value(IpAddr address) const {
    for (int shift = 24; shift >= 0; shift -= 8)
      to.bytes_ += static_cast<char>(address.value() >> shift);
  }
  // Zero is a time of its own, and so is "never", the only one above it: the next number.
  void value(Time time) const {
    bool const isNever = time == Time::max();
    // What is past or beyond all that can be told is told as the nearest that can.
    auto const tenths =
        std::chrono::ceil<Tenths>(std::clamp(time, Time(Tenths(1)), Time(Tenths(latest)))).count();
    value(isNever          ? std::uint64_t{1}
          : time == Time() ? std::uint64_t{0}
                           : static_cast<std::uint64_t>(tenths) + 2);
  }
  void value(IntfId const& interface) const {
    auto const [known, isNew] = to.interfaces_.try_emplace(interface, to.interfaces_.size());
    value(known->second);
    if (!isNew) return;
    std::string_view const name = interface.stringValue().view();
    value(std::uint64_t{name.size()});
    to.bytes_ += name;
  }
  template <class Element>
  void value(std::vector<Element> const& elements) const {
    value(std::uint64_t{elements.size()});
    for (Element const& element : elements) value(element);
  }
  template <HasFields Struct>
  void value(Struct const& fields) const {
    std::apply([&](auto const&... each) { (value(each), ...); }, Struct::fields(fields));
  }
};

void StateWriter::put(KeptEntry const& entry) {
  Putting const putting{*this};
  putting.value(std::uint64_t{entry.index()});
  std::visit([&](auto const& kept) { putting.value(kept); }, entry);
}

struct StateReader::Taking {
  StateReader& from;

  void fail() const {
    from.failed_ = true;
    from.rest_ = {};
  }
  std::string_view bytes(std::uint64_t count) const {
    if (count > from.rest_.size()) fail();
    std::string_view const taken = from.rest_.substr(0, count);
    from.rest_.remove_prefix(taken.size());
    return taken;
  }
  std::uint8_t byte() const {
    std::string_view const one = bytes(1);
    return one.empty() ? std::uint8_t{0} : static_cast<std::uint8_t>(one.front());
  }
  std::uint64_t number(std::uint64_t most) const {
    std::uint64_t number = 0;
    std::uint8_t next = 0x80;
    for (int shift = 0; shift < 63 && (next & 0x80) != 0; shift += 7)
      number |= std::uint64_t{(next = byte()) & 0x7fu} << shift;
    if (number <= most && (next & 0x80) == 0) return number;
    fail();
    return 0;
  }

  void value(bool& is) const { is = number(1) != 0; }
  void value(std::uint8_t& small) const { small = static_cast<std::uint8_t>(number(0xff)); }
  void value(Igmp::IgmpVersion& version) const {
    version = static_cast<Igmp::IgmpVersion>(number(3));
    if (version < Igmp::IgmpVersion::v1) fail();
  }
  void value(Wirex::MacAddress& address) const {
    for (std::uint8_t& each : address) each = byte();
  }
  void value(VlanId& vlan) const {
    auto const value = static_cast<std::uint16_t>(number(VlanId::max));
    if (value < VlanId::min)
      fail();
    else
      vlan = VlanId(value);
  }
  void value(IpAddr& address) const {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | byte();
    address = IpAddr(value);
  }
  void value(Time& time) const {
    auto const value = static_cast<std::int64_t>(number(static_cast<std::uint64_t>(latest) + 2));
    time = value == 1 ? Time::max() : value == 0 ? Time() : Time(Tenths(value - 2));
  }
  void value(IntfId& interface) const {
    std::uint64_t const known = number(from.interfaces_.size());
    if (known == from.interfaces_.size()) {
      std::string_view const name = bytes(number(longestName));
      if (from.failed_) return;
      from.interfaces_.emplace_back(Kel::String8(name));
    }
    interface = from.interfaces_[known];
  }
  template <class Element>
  void value(std::vector<Element>& elements) const {
    // Each takes a byte at least, so no more are believed in.
    std::uint64_t const count = number(from.rest_.size());
    for (std::uint64_t i = 0; i < count && !from.failed_; ++i) value(elements.emplace_back());
  }
  template <HasFields Struct>
  void value(Struct& fields) const {
    std::apply([&](auto&... each) { (value(each), ...); }, Struct::fields(fields));
  }
};

namespace {

/// An entry of the alternative with this number, its fields yet to come.
template <std::size_t... alternative>
KeptEntry emptyEntry(std::uint64_t number, std::index_sequence<alternative...> /*all*/) {
  KeptEntry entry;
  ((alternative == number ? void(entry.emplace<alternative>()) : void()), ...);
  return entry;
}

}  // namespace

std::optional<KeptEntry> StateReader::next() {
  if (rest_.empty()) return std::nullopt;
  constexpr std::size_t alternatives = std::variant_size_v<KeptEntry>;
  Taking const taking{*this};
  KeptEntry entry =
      emptyEntry(taking.number(alternatives - 1), std::make_index_sequence<alternatives>());
  std::visit([&](auto& kept) { taking.value(kept); }, entry);
  return failed_ ? std::nullopt : std::optional(std::move(entry));
}

}  // namespace Agent
