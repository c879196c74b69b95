#include "agent/Usage.h"

#include <charconv>
#include <cstdint>
#include <exception>
#include <sstream>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr std::string_view exampleHeading = "Example: ";

/// What the command takes and has not got: its commands where one of them is missing.
std::string whatIsMissing(CLI::App const& command) {
  std::vector<std::string> names;
  for (CLI::App const* const each : command.get_subcommands([](auto const*) { return true; }))
    names.push_back(each->get_name());
  if (!names.empty()) return enumerated(names, "or") + " is required";
  for (CLI::Option const* const option : command.get_options()) {
    if (!option->get_required() || option->count() > 0) continue;
    std::string const type = option->get_type_name();
    names.push_back(option->get_name() + (type.empty() ? "" : " " + type));
  }
  return enumerated(names, "and") + (names.size() == 1 ? " is required" : " are required");
}

std::string exampleOf(CLI::App const& command) {
  std::string const footer = command.get_footer();
  return footer.starts_with(exampleHeading) ? ", as in " + footer.substr(exampleHeading.size())
                                            : std::string();
}

/// What the parser did not expect says more than what is wrong in consequence.
[[noreturn]] void refuseUsage(CLI::App const& app, std::exception const& error) {
  std::string problem = error.what();
  std::string help = app.get_name();
  CLI::App const* reached = &app;
  while (!reached->get_subcommands().empty()) {
    reached = reached->get_subcommands().front();
    help += " " + reached->get_name();
  }
  if (auto const extras = app.remaining(true); !extras.empty()) {
    bool const hasCommands = !reached->get_subcommands([](auto const*) { return true; }).empty();
    bool const isCommand = hasCommands && !extras[0].starts_with('-');
    problem = (isCommand ? "unknown command " : "unexpected argument ") + Agent::quoted(extras[0]);
  } else if (dynamic_cast<CLI::RequiredError const*>(&error)) {
    problem = whatIsMissing(*reached) + exampleOf(*reached);
  }
  throw WrongUsage(problem + "; try " + help + " --help");
}

}  // namespace

std::optional<Information> parse(CLI::App& app, int argc, char const* const* argv) {
  try {
    app.parse(argc, argv);
    return std::nullopt;
  } catch (CLI::Success const& request) {
    std::ostringstream text;
    app.exit(request, text, text);
    return Information{text.str()};
  } catch (CLI::ParseError const& error) {
    refuseUsage(app, error);
  } catch (std::invalid_argument const& error) {
    refuseUsage(app, error);
  }
}

void exampleIs(CLI::App& command, std::string const& line) {
  command.footer(std::string(exampleHeading) + line);
}

std::optional<Bridging::VlanId> vlanIn(std::string const& text) {
  using Bridging::VlanId;
  std::uint16_t number = 0;
  char const* const end = text.data() + text.size();
  auto const [stop, error] = std::from_chars(text.data(), end, number);
  if (error != std::errc{} || stop != end || number < VlanId::min || number > VlanId::max)
    return std::nullopt;
  return VlanId(number);
}

}  // namespace Agent
