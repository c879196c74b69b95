#include "tests/proxy/scenario/Story.h"

#include <sstream>

namespace Bridging::IgmpSnooping::Proxy::Testing {

namespace {

constexpr char const* blanks = " \t\r";

std::vector<std::string> wordsOf(std::string_view rest, int line) {
  std::vector<std::string> words;
  for (;;) {
    auto const begin = rest.find_first_not_of(blanks);
    if (begin == std::string_view::npos || rest[begin] == '#') return words;
    rest.remove_prefix(begin);
    std::size_t end = 0;
    if (rest[0] == '"') {
      rest.remove_prefix(1);
      end = rest.find('"');
      if (end == std::string_view::npos) throw Failure{line, "a text without closing quote"};
      words.emplace_back(rest.substr(0, end));
      rest.remove_prefix(end + 1);
    } else {
      end = std::min(rest.find_first_of(blanks), rest.size());
      words.emplace_back(rest.substr(0, end));
      rest.remove_prefix(end);
    }
  }
}

}  // namespace

Story Story::fromText(std::string_view text) {
  Story story;
  std::istringstream lines{std::string(text)};
  std::string content;
  for (int line = 1; std::getline(lines, content); ++line) {
    auto words = wordsOf(content, line);
    if (words.empty()) continue;
    if (story.title.empty()) {
      if (words.front() != "title" || words.size() < 2)
        throw Failure{line, "a story begins with its title"};
      auto const begin = content.find(words[1], content.find("title") + 5);
      story.title = content.substr(begin);
    } else {
      story.statements.push_back({line, std::move(words)});
    }
  }
  if (story.title.empty()) throw Failure{1, "a story begins with its title"};
  if (story.statements.empty()) throw Failure{1, "a story without statements"};
  return story;
}

}  // namespace Bridging::IgmpSnooping::Proxy::Testing
