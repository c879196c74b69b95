#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "agent/Switch.h"
#include "agent/control/Answer.h"
#include "agent/control/Request.h"
#include "agent/output/JsonValues.h"
#include "agent/text/Dates.h"

namespace Agent {

/// How much of an answer is made in one turn of the event loop.
inline constexpr std::size_t stepsAtOnce = 1000;
inline constexpr std::size_t bytesAtOnce = 65536;
/// Where nothing is done with a group's ports but counting what they have.
inline constexpr std::size_t countsAtOnce = 8192;

/// An answer to `show`: a frame, and a line for each element.
class Listing : public Answer {
 public:
  Progress advance(std::string& out) final {
    if (!std::exchange(begun_, true)) {
      Json header;
      header["time"] = seconds(switch_.now() - epoch_.start);
      addDate(header, "date", switch_.now());
      header["lists"] = lists_;
      addLine(out, header);
    }
    if (!advanceList(out)) return Progress::more;
    addLine(out, {{"end", true}});
    return Progress::done;
  }

 protected:
  Listing(Switch const& snoopingSwitch, Request const& request, Epoch const& epoch,
          std::vector<std::string> lists)
      : switch_(snoopingSwitch), of_(request.of), epoch_(epoch), lists_(std::move(lists)) {}

  Switch const& theSwitch() const { return switch_; }
  Selection const& of() const { return of_; }
  Horix::Time now() const { return switch_.now(); }

  bool isSelected(VlanConfig const& vlan) const {
    return of_.has(vlan.vlanId) && (!of_.interface || vlan.member(*of_.interface));
  }
  /// The selected group, where a VLAN knows it.
  Bridging::IgmpSnooping::IgmpGroup const* selectedGroup(Bridging::VlanId vlan) const {
    auto const status = switch_.entities().snoopingStatus->contextStatus(vlan);
    return status ? status->group().find(*of_.group) : nullptr;
  }
  bool knowsGroup(Bridging::VlanId vlan) const { return !of_.group || selectedGroup(vlan); }

  /// Handles VLANs of the configuration, which may change between pieces, from where the last piece
  /// ended. Returns whether all are done.
  template <class Handle>
  bool advanceVlans(std::string const& out, Handle handle) {
    std::size_t steps = 0;
    while (VlanConfig const* const vlan = switch_.configuration().vlanFrom(nextVlan_)) {
      if (steps > stepsAtOnce || out.size() >= bytesAtOnce) return false;
      steps += 1 + vlan->members.size();
      nextVlan_ = vlan->vlanId.value() + 1u;
      handle(*vlan);
    }
    return true;
  }

  /// Adds when something was, if it is known of which day that is.
  void addDate(Json& object, char const* key, Horix::Time time) const {
    if (epoch_.dates.known()) object[key] = epoch_.dates.text(time);
  }

  static void addLine(std::string& out, Json const& line) { out.append(oneLine(line)) += '\n'; }
  static void add(std::string& out, char const* list, Json element) {
    Json line;
    line[list] = std::move(element);
    addLine(out, line);
  }

 private:
  /// Appends elements. Returns whether they were the last.
  virtual bool advanceList(std::string& out) = 0;

  Switch const& switch_;
  Selection of_;
  Epoch epoch_;
  std::vector<std::string> lists_;
  bool begun_ = false;
  unsigned nextVlan_ = 0;
};

}  // namespace Agent
