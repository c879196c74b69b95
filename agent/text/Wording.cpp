#include "agent/text/Wording.h"

#include <algorithm>
#include <numeric>

namespace Agent {

namespace {

/// The number of letters to insert, drop or replace (Levenshtein).
std::size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < b.size(); ++j) {
      std::size_t const replaced = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string onOneLine(std::string_view text) {
  static constexpr char hexDigits[] = "0123456789abcdef";
  std::string result;
  for (char const c : text) {
    auto const byte = static_cast<unsigned char>(c);
    if (byte < ' ' || byte == 0x7f) {
      result += {'\\', 'x', hexDigits[byte >> 4], hexDigits[byte & 0xf]};
    } else {
      result += c;
    }
  }
  return result;
}

std::string quoted(std::string_view text) {
  std::string escaped;
  for (char const c : text) {
    if (c == '"' || c == '\\') escaped += '\\';
    escaped += c;
  }
  return '"' + onOneLine(escaped) + '"';
}

std::string inWords(std::string name) {
  std::replace(name.begin(), name.end(), '-', ' ');
  return name;
}

std::string counted(std::size_t count, char const* noun) {
  return message(count, ' ', noun, count == 1 ? "" : "s");
}

std::string enumerated(std::vector<std::string> const& words, std::string_view conjunction) {
  std::string result;
  for (std::size_t i = 0; i < words.size(); ++i) {
    bool const last = i + 1 == words.size();
    if (i > 0 && last)
      result.append(" ").append(conjunction).append(" ");
    else if (i > 0)
      result.append(", ");
    result.append(words[i]);
  }
  return result;
}

std::string nearest(std::string_view misspelt, std::vector<std::string> const& words) {
  std::string best;
  std::size_t leastDistance = 2 + misspelt.size() / 4;
  for (std::string const& word : words) {
    std::size_t const distance = editDistance(misspelt, word);
    if (distance >= leastDistance) continue;
    leastDistance = distance;
    best = word;
  }
  return best;
}

}  // namespace Agent
