#include "agent/live/KernelInterfaces.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <linux/rtnetlink.h>
#include <utility>
#include <vector>

namespace Agent {

namespace {

using namespace std::chrono_literals;

// So many that frames, timers and clients get their turn in between.
constexpr std::size_t mostTold = 8;

}  // namespace

/// Tells what one turn did not.
class KernelInterfaces::Rest final : public Horix::Timer {
 public:
  explicit Rest(KernelInterfaces& interfaces) : interfaces_(interfaces) {}

 private:
  void onExpiry() override { interfaces_.onPause(); }

  KernelInterfaces& interfaces_;
};

std::unique_ptr<NetlinkSocket> KernelInterfaces::ofLinks() {
  return NetlinkSocket::ofKernel(RTMGRP_LINK);
}

KernelInterfaces::KernelInterfaces(Horix::EventLoop& loop, Changed changed,
                                   std::unique_ptr<NetlinkSocket> socket)
    : loop_(loop),
      changed_(std::move(changed)),
      rest_(std::make_unique<Rest>(*this)),
      table_(loop, std::move(socket), RTM_GETLINK, *this) {
  table_.awaitComplete(5s);
  tell(std::numeric_limits<std::size_t>::max());
}

KernelInterfaces::~KernelInterfaces() = default;

void KernelInterfaces::onEntry(nlmsghdr const& entry) {
  if (auto link = readLink(entry)) handleLink(std::move(*link));
}

void KernelInterfaces::onComplete() {
  std::vector<std::uint32_t> gone;
  for (auto const& [index, link] : links_)
    if (link.generation != table_.generation()) gone.push_back(index);
  for (std::uint32_t const index : gone) linkDel(index);
}

void KernelInterfaces::onPause() {
  tell(mostTold);
  if (!untold_.empty()) loop_.timerWheel()->schedule(*rest_, 0ms);
}

void KernelInterfaces::handleLink(LinkMessage link) {
  if (!link.ofBridge) {
    if (link.deleted)
      linkDel(link.index);
    else
      linkIs(link.index, {std::move(link.name), link.state});
    return;
  }
  auto const known = links_.find(link.index);
  if (known == links_.end()) return;
  Link port = known->second;
  port.state.forwarding = link.state.forwarding;
  linkIs(link.index, std::move(port));
}

void KernelInterfaces::linkIs(std::uint32_t index, Link link) {
  link.generation = table_.generation();
  Link& known = links_[index];
  std::string const formerName = std::exchange(known, std::move(link)).name;
  if (formerName != known.name) giveUpName(formerName, index);
  auto const named = named_.try_emplace(known.name, index).first;
  bool const isAnother = std::exchange(named->second, index) != index;
  changedIs(known.name, isAnother                   ? Meanwhile::gone
                        : known.state.operational() ? Meanwhile::changed
                                                    : Meanwhile::down);
}

void KernelInterfaces::linkDel(std::uint32_t index) {
  auto const known = links_.find(index);
  if (known == links_.end()) return;
  std::string const name = known->second.name;
  links_.erase(known);
  giveUpName(name, index);
}

/// Another interface may have the name already: what was lost in an overrun comes in any order.
void KernelInterfaces::giveUpName(std::string const& name, std::uint32_t index) {
  auto const owner = named_.find(name);
  if (owner == named_.end() || owner->second != index) return;
  named_.erase(owner);
  changedIs(name, Meanwhile::gone);
}

void KernelInterfaces::changedIs(std::string const& name, Meanwhile meanwhile) {
  auto const change = untold_.try_emplace(name, meanwhile).first;
  change->second = std::max(change->second, meanwhile);
}

InterfaceState KernelInterfaces::stateOf(std::string const& name) const {
  auto const owner = named_.find(name);
  return owner == named_.end() ? InterfaceState() : links_.at(owner->second).state;
}

void KernelInterfaces::tell(std::size_t most) {
  for (; most > 0 && !untold_.empty(); --most) {
    auto const next = untold_.extract(untold_.begin());
    tell(next.key(), next.mapped());
  }
}

void KernelInterfaces::tell(std::string const& name, Meanwhile meanwhile) {
  Wirex::IntfId const intf(name.c_str());
  InterfaceState const state = stateOf(name);
  InterfaceState& told = told_[name];
  if (told.present && meanwhile == Meanwhile::gone) changed_(intf, InterfaceState());
  if (told.operational() && state.operational() && meanwhile == Meanwhile::down) {
    told.carrier = false;
    changed_(intf, told);
  }
  told = state;
  if (state.present)
    changed_(intf, state);
  else
    told_.erase(name);
}

}  // namespace Agent
