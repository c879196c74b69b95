#pragma once

#include <memory>

#include "agent/config/ConfigurationState.h"
#include "agent/control/Answer.h"
#include "platform/horix/Clock.h"

namespace Agent {

/// The answer to `show version`, in the lines of showAnswer(): which program runs since when, and
/// with which configuration.
/// @param uptime since the start.
/// @param configuration null where none was read from a file.
std::unique_ptr<Answer> versionAnswer(Horix::Time uptime, ConfigurationState const* configuration);

}  // namespace Agent
