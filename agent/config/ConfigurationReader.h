#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "agent/config/Configuration.h"

namespace Agent {

/// One line each, in the order of the file: "FILE:LINE:COLUMN: what is wrong; what to do".
/// Columns count characters.
using ConfigurationErrors = std::vector<std::string>;

/// Either a whole configuration or all reasons why there is none.
using ConfigurationOrErrors = std::variant<Configuration, ConfigurationErrors>;

/// A configuration file that cannot be read at all: what has no line and column to tell.
class UnreadableConfiguration : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a configuration file (TOML). Throws UnreadableConfiguration.
ConfigurationOrErrors readConfigurationFile(std::string const& fileName);

/// Reads a configuration from its text.
/// @param fileName what error messages call the text.
ConfigurationOrErrors readConfiguration(std::string_view text, std::string const& fileName);

}  // namespace Agent
