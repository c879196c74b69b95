#include "agent/ctl/AnswerLines.h"

#include <stdexcept>

#include <nlohmann/json.hpp>

#include "agent/text/Wording.h"

namespace Agent {

AnswerLines::AnswerLines(std::string const& socket, Request const& request)
    : client_(socket, request), patient_(request.command == "monitor"), path_(socket) {}

bool AnswerLines::next(Json& line) {
  auto const text = client_.nextLine(patient_);
  if (!text)
    throw std::runtime_error(
        message("igmpsnoopd on ", path_, " ended in the midst of its answer; ask again"));
  line = Json::parse(*text, nullptr, /* allow_exceptions */ false);
  if (!line.is_object())
    throw std::runtime_error(
        message("what listens on ", path_, " is no igmpsnoopd of this version; restart it"));
  if (auto const error = line.find("error"); error != line.end())
    throw std::runtime_error(error->get<std::string>());
  return !line.contains("end");
}

}  // namespace Agent
