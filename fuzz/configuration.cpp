#include <string>
#include <variant>

#include "agent/config/ConfigurationReader.h"
#include "fuzz/FuzzInput.h"

/// Any text is a usable configuration, or its errors each name the file and are one line.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* bytes, std::size_t size) {
  std::string_view const text(reinterpret_cast<char const*>(bytes), size);
  auto const result = Agent::readConfiguration(text, "fuzz.toml");
  auto const* const errors = std::get_if<Agent::ConfigurationErrors>(&result);
  if (!errors) return 0;
  Fuzz::require(!errors->empty(), "an unusable configuration has errors");
  for (std::string const& error : *errors) {
    Fuzz::require(error.starts_with("fuzz.toml"), "an error names its file");
    Fuzz::require(error.find('\n') == std::string::npos, "an error is one line");
  }
  return 0;
}
