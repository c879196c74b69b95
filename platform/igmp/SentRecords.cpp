#include "platform/igmp/SentRecords.h"

#include <algorithm>

#include "framework/kel/Hash.h"

namespace Igmp {

using Wirex::IpAddr;

std::size_t SentRecords::mostBytes() noexcept {
  return sets * sizeof(Set);
}

void SentRecords::note(std::uint32_t host, IpAddr group, Sent const& sent) {
  if (sets_.empty()) sets_.resize(sets);
  Set& set = sets_[setOf(host, group)];
  auto const isOfGroup = [&](Entry const& entry) {
    return entry.host == host && entry.group == group;
  };
  auto const isOlder = [](Entry const& one, Entry const& other) {
    return one.sent.time < other.sent.time;
  };
  auto at = std::find_if(set.begin(), set.end(), isOfGroup);
  if (at == set.end())
    at = std::find_if(set.begin(), set.end(), [](Entry const& entry) { return entry.host == 0; });
  if (at == set.end()) at = std::min_element(set.begin(), set.end(), isOlder);
  *at = {host, group, sent};
}

std::optional<SentRecords::Sent> SentRecords::find(std::uint32_t host, IpAddr group) const {
  if (sets_.empty()) return std::nullopt;
  for (Entry const& entry : sets_[setOf(host, group)])
    if (entry.host == host && entry.group == group) return entry.sent;
  return std::nullopt;
}

std::size_t SentRecords::setOf(std::uint32_t host, IpAddr group) noexcept {
  return Kel::spreadHash(Kel::hash(group) + Kel::spreadHash(host)) % sets;
}

}  // namespace Igmp
