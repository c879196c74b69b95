#pragma once

#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// How error messages put what they talk about.
namespace Agent {

/// The parts, printed one after the other.
template <typename... Parts>
std::string message(Parts const&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

/// Throws std::invalid_argument with the message that the parts make.
template <typename... Parts>
[[noreturn]] void refuse(Parts const&... parts) {
  throw std::invalid_argument(message(parts...));
}

/// The text on one line: control characters as \xNN.
std::string onOneLine(std::string_view text);

/// The text in double quotes, on one line; quotes and backslashes in it are escaped.
std::string quoted(std::string_view text);

/// "no carrier" for the name "no-carrier".
std::string inWords(std::string name);

/// "1 VLAN", "2 VLANs".
std::string counted(std::size_t count, char const* noun);

/// "a", "a or b", "a, b or c".
/// @param conjunction what stands before the last word: "or".
std::string enumerated(std::vector<std::string> const& words, std::string_view conjunction);

/// The word that was probably meant, or an empty text when none is similar.
std::string nearest(std::string_view misspelt, std::vector<std::string> const& words);

}  // namespace Agent
