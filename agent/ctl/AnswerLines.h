#pragma once

#include <string>

#include "agent/ctl/ControlClient.h"
#include "agent/output/JsonValues.h"

namespace Agent {

/// The lines of an agent's answer to a request. Throws std::runtime_error with what the agent says
/// if it could not do it, and if it falls silent before the end.
class AnswerLines {
 public:
  /// @param socket its path.
  AnswerLines(std::string const& socket, Request const& request);

  /// Reads the next line. Returns whether there was one before the end.
  bool next(Json& line);

 private:
  ControlClient client_;
  bool patient_;
  std::string path_;
};

}  // namespace Agent
