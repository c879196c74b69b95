#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "agent/config/Configuration.h"

namespace Agent {

/// One line each, in the order of the file: "FILE:LINE:COLUMN: what is wrong; what to do".
/// Columns count characters. A file that cannot be read at all has no line and column.
using ConfigurationErrors = std::vector<std::string>;

/// Either a whole configuration or all reasons why there is none.
using ConfigurationOrErrors = std::variant<Configuration, ConfigurationErrors>;

/// Reads a configuration file (TOML).
ConfigurationOrErrors readConfigurationFile(std::string const& fileName);

/// Reads a configuration from its text.
/// @param fileName what error messages call the text.
ConfigurationOrErrors readConfiguration(std::string_view text, std::string const& fileName);

}  // namespace Agent
