#pragma once

#include <string>
#include <string_view>
#include <variant>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "agent/config/ConfigurationReader.h"

namespace Agent {

/// VLAN 10 of a switch with three ports, whose keys may be continued.
inline constexpr char const* threePorts = R"(
  [[interface]]
  name = "swp[1-3]"
  [[vlan]]
  id = 10
  querier = { igmp-version = 3 }
  interfaces = ["swp[1-3]"]
)";

/// The configuration in the text, which must be without errors.
inline Configuration configurationIn(std::string_view text) {
  ConfigurationOrErrors result = readConfiguration(text, "test.toml");
  if (auto const* const errors = std::get_if<ConfigurationErrors>(&result)) {
    for (std::string const& error : *errors) ADD_FAILURE() << error;
    return {};
  }
  return std::get<Configuration>(std::move(result));
}

/// The error messages about the text, called test.toml; none when it is without errors.
inline ConfigurationErrors errorsIn(std::string_view text) {
  ConfigurationOrErrors result = readConfiguration(text, "test.toml");
  auto* const errors = std::get_if<ConfigurationErrors>(&result);
  return errors ? std::move(*errors) : ConfigurationErrors{};
}

}  // namespace Agent
