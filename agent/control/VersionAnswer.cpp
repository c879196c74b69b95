#include "agent/control/VersionAnswer.h"

#include <nlohmann/json.hpp>

#include "agent/output/JsonValues.h"
#include "agent/text/Dates.h"

namespace Agent {

namespace {

Json configurationObject(ConfigurationState const& state) {
  Json object;
  object["file"] = state.fileName;
  object["state"] = state.refused ? "refused" : "in-use";
  object["in-use-since"] = dateText(state.inUseSince);
  if (state.refused) {
    object["refused"] = dateText(*state.refused);
    object["problem"] = state.problem;
  }
  object["refused-count"] = state.refusals;
  return object;
}

}  // namespace

std::unique_ptr<Answer> versionAnswer(Horix::Time uptime, ConfigurationState const* configuration) {
  auto const now = std::chrono::system_clock::now();
  Json version;
  version["version"] = IGMPSNOOPD_VERSION;
  version["uptime"] = seconds(uptime);
  version["date"] = dateText(now);
  version["started"] =
      dateText(now - std::chrono::duration_cast<std::chrono::system_clock::duration>(uptime));
  if (configuration) version["configuration"] = configurationObject(*configuration);
  Json header;
  header["time"] = seconds(uptime);
  header["lists"] = {"version"};
  return std::make_unique<TextAnswer>(
      oneLine(header) + '\n' + oneLine({{"version", std::move(version)}}) + "\n{\"end\":true}\n");
}

}  // namespace Agent
