#pragma once

#include <memory>
#include <string>

#include "agent/Switch.h"
#include "agent/config/ConfigurationState.h"
#include "agent/control/Answer.h"
#include "agent/control/SocketServer.h"
#include "agent/forwarding/Forwarding.h"

namespace Agent {

enum class MetricsFormat {
  openMetrics,  ///< version 1.0.0
  text          ///< Prometheus's text format, version 0.0.4, which textfile collectors read
};

/// The agent's counters and gauges. Labels are VLANs, ports, message types and causes only, so that
/// their number is bounded by the configuration.
/// @param clients the server whose clients are counted.
/// @param heading text before the first family.
/// @param forwarding counted where it is configured; may be null.
/// @param configuration whose refused reloads are counted; null where it is not from a file.
/// The switch, `clients`, `forwarding` and `configuration` outlive the answer.
std::unique_ptr<Answer> metricsAnswer(Switch const& snoopingSwitch, SocketServer const& clients,
                                      MetricsFormat format, std::string heading = "",
                                      Forwarding const* forwarding = nullptr,
                                      ConfigurationState const* configuration = nullptr);

}  // namespace Agent
