#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Bridging::IgmpSnooping::Proxy::Testing {

/// A statement of a story: its words, the quoted ones without their quotes.
struct Statement {
  int line;
  std::vector<std::string> words;
};

/// What is wrong with a story, or with what it tells.
struct Failure {
  int line;
  std::string text;
};

/// A story as it stands in its file. The language is described in README.md beside this.
struct Story {
  std::string title;
  std::vector<Statement> statements;

  /// Reads a story. Throws a Failure where it is none.
  static Story fromText(std::string_view text);
};

}  // namespace Bridging::IgmpSnooping::Proxy::Testing
