#include "agent/control/ForwardingAnswer.h"

#include <algorithm>
#include <exception>
#include <linux/rtnetlink.h>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "agent/forwarding/MdbEntry.h"
#include "agent/output/JsonValues.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Wirex::IntfId;
using Wirex::IpAddr;

/// Of a group in a VLAN, as the kernel has them.
using Found = std::map<EntryWriter::Key, std::vector<FoundEntry>>;

constexpr std::size_t groupsAtOnce = 200;

class ForwardingAnswer final : public Answer {
 public:
  ForwardingAnswer(Switch const& snoopingSwitch, Forwarding const& forwarding,
                   Request const& request, Horix::Time start)
      : switch_(snoopingSwitch), forwarding_(forwarding), of_(request.of), start_(start) {}

  Progress advance(std::string& out) override {
    switch (stage_) {
      case Stage::heading:
        addHeading(out);
        stage_ = forwarding_.isActive() ? Stage::asking : Stage::end;
        return Progress::more;
      case Stage::asking:
        ask();
        return Progress::more;
      case Stage::comparing:
        for (std::size_t i = 0; i < groupsAtOnce && !keys_.empty(); ++i) {
          compare(keys_.back(), out);
          keys_.pop_back();
        }
        if (keys_.empty()) stage_ = Stage::end;
        return Progress::more;
      case Stage::end:
        addLine(out, {{"end", true}});
        break;
    }
    return Progress::done;
  }

 private:
  enum class Stage { heading, asking, comparing, end };

  static void addLine(std::string& out, Json const& line) { out.append(oneLine(line)) += '\n'; }

  void addHeading(std::string& out) const {
    Json header;
    header["time"] = seconds(switch_.now() - start_);
    header["lists"] = {"forwarding", "vlans", "entries"};
    addLine(out, header);
    auto const& config = forwarding_.configuration();
    if (!config) return;
    Json bridge;
    bridge["bridge"] = config->bridge;
    bridge["active"] = forwarding_.isActive();
    if (!forwarding_.obstacle().empty()) bridge["obstacle"] = forwarding_.obstacle();
    bridge["unregistered"] = message(config->unregistered);
    if (EntryWriter const* const entries = forwarding_.entries()) {
      bridge["entries-count"] = entries->entryCount();
      bridge["flooded-groups-count"] = entries->failedGroups();
      bridge["write-count"] = entries->counters().writes;
      bridge["failure-count"] = entries->counters().failures;
    }
    bridge["disturbance-count"] = forwarding_.disturbances();
    addLine(out, {{"forwarding", std::move(bridge)}});
    for (ForwardedVlan const& vlan : forwarding_.vlans())
      if (of_.has(vlan.vlanId))
        addLine(out, {{"vlans",
                       {{"vlan", vlan.vlanId.value()},
                        {"by-entries", forwarding_.goesByEntries(vlan.vlanId)}}}});
  }

  /// Takes a piece of what the kernel has.
  void ask() {
    bool more = false;
    try {
      if (!socket_) {
        socket_ = std::make_unique<RequestSocket>(NETLINK_ROUTE);
        NetlinkBatch batch;
        addEntriesRequest(batch);
        socket_->begin(batch);
      }
      std::vector<FoundEntry> entries;
      more = socket_->next([&](nlmsghdr const& header) { readEntries(header, entries); });
      for (FoundEntry& entry : entries)
        if (entry.place.bridge == forwarding_.bridge().index && entry.permanent && !entry.derived)
          found_[{entry.place.vlan, entry.place.group}].push_back(std::move(entry));
    } catch (std::exception const&) {
      more = false;  // what it did not tell is shown as missing
    }
    if (more) return;
    std::set<EntryWriter::Key> keys;
    for (auto const& [key, entries] : found_) keys.insert(key);
    for (ForwardedVlan const& vlan : forwarding_.vlans())
      if (auto const status = switch_.entities().snoopingStatus->contextStatus(vlan.learnedIn))
        for (IpAddr const group : status->group().keys()) keys.emplace(vlan.entryVlan, group);
    keys_.assign(keys.begin(), keys.end());
    stage_ = Stage::comparing;
  }

  void compare(EntryWriter::Key const& key, std::string& out) const {
    if (!of_.has(key.second)) return;
    for (ForwardedVlan const& vlan : forwarding_.vlans()) {
      if (vlan.entryVlan != key.first || !of_.has(vlan.vlanId)) continue;
      auto const wanted = forwarding_.wanted(vlan, key.second);
      for (auto const& [intf, port] : forwarding_.ports())
        if (of_.has(intf)) comparePort(vlan, key, intf, port, wanted, out);
    }
  }

  void comparePort(ForwardedVlan const& vlan, EntryWriter::Key const& key, IntfId const& intf,
                   std::uint32_t port, std::vector<EntryWriter::Entry> const& wanted,
                   std::string& out) const {
    auto const entry = std::find_if(wanted.begin(), wanted.end(),
                                    [&](auto const& each) { return each.first == port; });
    auto const ofGroup = found_.find(key);
    std::vector<KernelEntry> has;
    bool ours = false;
    if (ofGroup != found_.end())
      for (FoundEntry const& found : ofGroup->second) {
        if (found.place.port != port) continue;
        has.push_back(found.entry);
        ours = ours || found.ours;
      }
    char const* state = "unwanted";
    if (entry != wanted.end())
      state = has.empty() ? "missing" : holds(has, entry->second) ? "written" : "different";
    else if (has.empty())
      return;
    else if (!ours)
      state = "not ours";
    Json object;
    object["vlan"] = vlan.vlanId.value();
    object["address"] = message(key.second);
    object["interface"] = message(intf);
    addFilter(object, entry != wanted.end() ? entry->second : has.front().filter);
    object["state"] = state;
    addLine(out, {{"entries", std::move(object)}});
  }

  bool holds(std::vector<KernelEntry> const& has, SourceFilter const& filter) const {
    auto const wanted = kernelEntries(filter, forwarding_.entryKind());
    return std::all_of(wanted.begin(), wanted.end(), [&](KernelEntry const& each) {
      return std::any_of(has.begin(), has.end(), [&](KernelEntry const& found) {
        return found.source == each.source && (each.source != IpAddr() || found == each);
      });
    });
  }

  Switch const& switch_;
  Forwarding const& forwarding_;
  Selection of_;
  Horix::Time start_;
  Stage stage_ = Stage::heading;
  std::unique_ptr<RequestSocket> socket_;
  Found found_;
  std::vector<EntryWriter::Key> keys_;
};

}  // namespace

std::unique_ptr<Answer> forwardingAnswer(Switch const& snoopingSwitch, Forwarding const& forwarding,
                                         Request const& request, Horix::Time start) {
  return std::make_unique<ForwardingAnswer>(snoopingSwitch, forwarding, request, start);
}

}  // namespace Agent
