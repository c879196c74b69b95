#include "agent/live/AddressBook.h"

#include <algorithm>

namespace Agent {

using Wirex::IpAddr;

bool AddressBook::linkIs(Index index, Link const& link, std::uint32_t generation) {
  auto const known = links_.find(index);
  if (known != links_.end() && known->second.link == link) {
    known->second.generation = generation;
    return false;
  }
  linkDel(index);
  links_.emplace(index, KnownLink{link, generation});
  named_[link.name] = index;
  if (link.vlan != 0) vlanDevices_[{link.below, link.vlan}] = index;
  return true;
}

bool AddressBook::linkDel(Index index) {
  auto const known = links_.find(index);
  if (known == links_.end()) return false;
  // Another one may have its name or its place already.
  std::erase_if(named_, [&](auto const& entry) { return entry.second == index; });
  std::erase_if(vlanDevices_, [&](auto const& entry) { return entry.second == index; });
  links_.erase(known);
  return true;
}

bool AddressBook::addressIs(Index index, IpAddr address, std::uint32_t generation) {
  auto& all = addresses_[index];
  auto const known = std::find_if(
      all.begin(), all.end(), [&](KnownAddress const& each) { return each.address == address; });
  if (known == all.end()) {
    all.push_back({address, generation});
    return true;
  }
  known->generation = generation;
  return false;
}

bool AddressBook::addressDel(Index index, IpAddr address) {
  auto const found = addresses_.find(index);
  return found != addresses_.end() &&
         std::erase_if(found->second, [&](auto const& each) { return each.address == address; });
}

bool AddressBook::linksAre(std::uint32_t generation) {
  std::vector<Index> gone;
  for (auto const& [index, known] : links_)
    if (known.generation != generation) gone.push_back(index);
  for (Index const index : gone) linkDel(index);
  return !gone.empty();
}

bool AddressBook::addressesAre(std::uint32_t generation) {
  std::size_t gone = 0;
  for (auto& [index, all] : addresses_)
    gone += std::erase_if(all, [&](auto const& each) { return each.generation != generation; });
  std::erase_if(addresses_, [](auto const& entry) { return entry.second.empty(); });
  return gone != 0;
}

IpAddr AddressBook::addressFor(Bridging::VlanId vlan, Wirex::IntfId const& intf) const {
  auto const named = named_.find(std::string(intf.stringValue().view()));
  if (named == named_.end()) return {};
  Index const index = named->second;
  Index const bridge = links_.at(index).link.bridge;
  for (IpAddr const address : {firstAddressAbove(index, vlan), firstAddressAbove(bridge, vlan),
                               firstAddress(index), firstAddress(bridge)})
    if (address != IpAddr()) return address;
  return {};
}

IpAddr AddressBook::firstAddress(Index index) const {
  auto const found = addresses_.find(index);
  return found == addresses_.end() || found->second.empty() ? IpAddr()
                                                            : found->second.front().address;
}

IpAddr AddressBook::firstAddressAbove(Index index, Bridging::VlanId vlan) const {
  auto const device = vlanDevices_.find({index, vlan.value()});
  return device == vlanDevices_.end() ? IpAddr() : firstAddress(device->second);
}

}  // namespace Agent
