#include "tests/proxy/scenario/Words.h"

#include <algorithm>
#include <charconv>

namespace Bridging::IgmpSnooping::Proxy::Testing {

void Words::requireEnd() const {
  if (!atEnd()) throw "the end of the statement instead of " + words_[next_];
}

bool Words::take(std::string_view word) {
  if (atEnd() || words_[next_] != word) return false;
  ++next_;
  return true;
}

void Words::require(std::string_view word) {
  if (!take(word)) throw std::string(word);
}

std::string const& Words::text(char const* what) {
  if (atEnd()) throw std::string(what);
  return words_[next_++];
}

std::uint16_t Words::number(char const* what) {
  std::string const& word = text(what);
  std::uint16_t number = 0;
  char const* const end = word.data() + word.size();
  auto const [read, error] = std::from_chars(word.data(), end, number);
  if (error != std::errc() || read != end) throw what + (" instead of " + word);
  return number;
}

std::uint16_t Words::vlan() {
  std::uint16_t const vlan = number("a VLAN");
  if (vlan < VlanId::min || vlan > VlanId::max) throw "a VLAN instead of " + std::to_string(vlan);
  return vlan;
}

IpAddr Words::address(char const* what) {
  std::string const& word = text(what);
  auto const address = IpAddr::fromText(word);
  if (!address) throw what + (" instead of " + word);
  return *address;
}

bool Words::yesOrNo() {
  if (take("yes")) return true;
  if (take("no")) return false;
  throw std::string("yes or no");
}

IgmpVersion Words::version() {
  if (take("1")) return IgmpVersion::v1;
  if (take("2")) return IgmpVersion::v2;
  if (take("3")) return IgmpVersion::v3;
  throw std::string("1, 2 or 3");
}

Direction Words::direction() {
  for (auto const direction :
       {Direction::both, Direction::ingress, Direction::egress, Direction::none})
    if (take(textOf(direction))) return direction;
  throw std::string("both, ingress, egress or none");
}

Lines Words::list() {
  if (atEnd()) throw std::string("a list, or none");
  if (take("none")) return {};
  Lines list(words_.begin() + static_cast<std::ptrdiff_t>(next_), words_.end());
  next_ = words_.size();
  std::sort(list.begin(), list.end());
  return list;
}

}  // namespace Bridging::IgmpSnooping::Proxy::Testing
