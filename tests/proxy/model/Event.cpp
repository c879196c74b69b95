#include "tests/proxy/model/Event.h"

#include <ostream>

namespace Bridging::IgmpSnooping::Proxy::Model {

namespace {

struct InMode {
  bool excludes;
};

std::ostream& operator<<(std::ostream& out, InMode mode) {
  return out << (mode.excludes ? "exclude" : "include");
}

std::ostream& operator<<(std::ostream& out, std::vector<int> const& sources) {
  out << '{';
  char const* separator = "";
  for (int const source : sources) {
    out << separator << 's' << source;
    separator = ", ";
  }
  return out << '}';
}

std::ostream& operator<<(std::ostream& out, std::vector<Reporter> const& reporters) {
  if (reporters.empty()) return out << ", an empty one";
  char const* separator = ", one with ";
  for (Reporter const& reporter : reporters) {
    out << separator << "reporter " << reporter.reporter << " on port " << reporter.port << " ("
        << InMode{reporter.excludes} << ' ' << reporter.sources << ')';
    separator = ", ";
  }
  return out;
}

struct Where {
  Event const& event;
  int depth;
};

std::ostream& operator<<(std::ostream& out, Where const& where) {
  if (where.depth > 2) out << "reporter " << where.event.reporter << " of ";
  if (where.depth > 1) out << "port " << where.event.port << " of ";
  out << "group " << where.event.group;
  return where.event.inOtherStatus ? out << " in the other status" : out;
}

std::ostream& operator<<(std::ostream& out, HostKey const& key) {
  return out << "port " << key.port << " in VLAN " << key.vlan;
}

}  // namespace

std::ostream& operator<<(std::ostream& out, Event const& event) {
  using What = Event::What;
  Where const group{event, 1};
  Where const port{event, 2};
  Where const reporter{event, 3};
  switch (event.what) {
    case What::groupMade:
      return out << group << " appears";
    case What::groupRemoved:
      return out << group << " goes";
    case What::groupReplaced:
      return out << group << ": another object is put in place" << event.reporters;
    case What::groupPutBack:
      return out << group << ": the object last removed is put back";
    case What::groupShared:
      return out << group << " is also put into the other status";
    case What::portMade:
      return out << port << " appears";
    case What::portRemoved:
      return out << port << " goes";
    case What::portReplaced:
      return out << port << ": another object is put in place" << event.reporters;
    case What::portPutBack:
      return out << port << ": the object last removed is put back";
    case What::reporterMade:
      return out << reporter << " appears";
    case What::reporterRemoved:
      return out << reporter << " goes";
    case What::reporterReplaced:
      return out << reporter << ": another object is put in place, " << InMode{event.excludes}
                 << ' ' << event.sources;
    case What::reporterPutBack:
      return out << reporter << ": the object last removed is put back";
    case What::modeSet:
      return out << reporter << " goes to " << InMode{event.excludes} << " mode";
    case What::modeRaised:
      return out << reporter << " raises its filter mode";
    case What::sourcesAdded:
      return out << reporter << " adds " << event.sources;
    case What::sourcesRemoved:
      return out << reporter << " removes " << event.sources;
    case What::sourcesCleared:
      return out << reporter << " removes all its sources";
    case What::sourceRaised:
      return out << reporter << " raises " << event.sources;
    case What::removedReporterChanged:
      return out << reporter << ": the object last removed adds " << event.sources;
    case What::hostKeySet:
      return out << "host key of " << event.hostKey << " is set "
                 << (event.keyValue ? "true" : "false");
    case What::hostKeyRemoved:
      return out << "host key of " << event.hostKey << " goes";
    case What::hostKeyRaised:
      return out << "host key of " << event.hostKey << " is raised";
    case What::hostMade:
      return out << "host of " << event.hostKey << " appears";
    case What::hostRemoved:
      return out << "host of " << event.hostKey << " goes";
    case What::statusSwitched:
      return out << "adapter goes over to the other status";
    case What::adapterDropped:
      return out << "adapter is dropped";
    case What::adapterMade:
      return out << "adapter is made";
    case What::activitiesRun:
      return out << "activities run";
    case What::reportRaised:
      return out << "a report is raised";
  }
  return out;
}

}  // namespace Bridging::IgmpSnooping::Proxy::Model
