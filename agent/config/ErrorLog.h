#pragma once

#include <string>
#include <utility>
#include <vector>

#include <toml++/toml.h>

#include "agent/text/Wording.h"

namespace Agent {

/// The errors found so far in one configuration file.
class ErrorLog {
 public:
  explicit ErrorLog(std::string fileName) : fileName_(std::move(fileName)) {}

  /// @param parts print as "what is wrong; what to do".
  template <typename... Parts>
  void add(toml::source_position where, Parts const&... parts) {
    errors_.push_back(
        {where, message(fileName_, ':', where.line, ':', where.column, ": ", parts...)});
  }

  std::size_t size() const noexcept { return errors_.size(); }

  /// One line each, sorted by place.
  std::vector<std::string> lines() const;

 private:
  struct Error {
    toml::source_position where;
    std::string line;
  };

  std::string fileName_;
  std::vector<Error> errors_;
};

}  // namespace Agent
