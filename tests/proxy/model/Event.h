#pragma once

#include <iosfwd>
#include <vector>

#include "tests/proxy/model/Picture.h"

namespace Bridging::IgmpSnooping::Proxy::Model {

/// A reporter with its filter, for objects that are put in place ready made.
struct Reporter {
  int port = 0;
  int reporter = 0;
  bool excludes = true;
  std::vector<int> sources;
};

/// One thing that happens around an adapter. It can be applied to any state: what finds nothing
/// to apply to does nothing, so that sequences can be shortened.
struct Event {
  enum class What {
    // What the adapter hears of at once.
    groupMade,
    groupRemoved,
    groupReplaced,
    groupPutBack,
    groupShared,
    // What the adapter hears of when activities run.
    portMade,
    portRemoved,
    portReplaced,
    portPutBack,
    reporterMade,
    reporterRemoved,
    reporterReplaced,
    reporterPutBack,
    modeSet,
    modeRaised,
    sourcesAdded,
    sourcesRemoved,
    sourcesCleared,
    sourceRaised,
    removedReporterChanged,
    // What it hears of at once, again.
    hostKeySet,
    hostKeyRemoved,
    hostKeyRaised,
    hostMade,
    hostRemoved,
    statusSwitched,
    adapterDropped,
    adapterMade,
    activitiesRun,
    reportRaised,
  };
  static constexpr What firstDelayed = What::portMade;
  static constexpr What lastDelayed = What::removedReporterChanged;

  What what = What::activitiesRun;
  bool inOtherStatus = false;  // not in the one that the adapter follows
  int group = 0;
  int port = 0;
  int reporter = 0;
  bool excludes = false;
  std::vector<int> sources;
  std::vector<Reporter> reporters;  // of what is put in place
  HostKey hostKey;
  bool keyValue = true;
};

/// The event as one line of a story.
std::ostream& operator<<(std::ostream& out, Event const& event);

}  // namespace Bridging::IgmpSnooping::Proxy::Model
