#include "agent/report/Markup.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ostream>

namespace Agent {

namespace {

constexpr std::uint32_t replacement = 0xfffd;

/// Takes the first character off a text that is not empty.
std::uint32_t takeCharacter(std::string_view& text) {
  auto const first = static_cast<unsigned char>(text[0]);
  std::size_t const length = first < 0x80           ? 1
                             : (first >> 5) == 0x06 ? 2
                             : (first >> 4) == 0x0e ? 3
                             : (first >> 3) == 0x1e ? 4
                                                    : 0;
  constexpr std::array<std::uint32_t, 5> least{0, 0, 0x80, 0x800, 0x10000};
  std::uint32_t character = length == 1 ? first : first & (0x7fu >> length);
  bool valid = length > 0 && length <= text.size();
  for (std::size_t i = 1; valid && i < length; ++i) {
    auto const next = static_cast<unsigned char>(text[i]);
    valid = (next & 0xc0) == 0x80;
    character = character << 6 | (next & 0x3fu);
  }
  valid = valid && character >= least[length] && character <= 0x10ffff &&
          (character < 0xd800 || character > 0xdfff);
  text.remove_prefix(valid ? length : 1);
  return valid ? character : replacement;
}

/// Controls, and what has writing run in the other direction (Unicode Standard Annex 9).
bool isInvisible(std::uint32_t character) {
  return character < 0x20 || (character >= 0x7f && character < 0xa0) ||
         (character >= 0x200b && character <= 0x200f) ||
         (character >= 0x2028 && character <= 0x202e) ||
         (character >= 0x2060 && character <= 0x206f) || character == 0xfeff ||
         character == 0x061c || (character & 0xfffe) == 0xfffe;
}

void append(std::string& out, std::string_view taken, std::uint32_t character) {
  switch (character) {
    case '<':
      out += "&lt;";
      return;
    case '>':
      out += "&gt;";
      return;
    case '&':
      out += "&amp;";
      return;
    case '"':
      out += "&quot;";
      return;
    case '\'':
      out += "&#39;";
      return;
    case replacement:
      out += "\xef\xbf\xbd";
      return;
    default:
      break;
  }
  if (!isInvisible(character)) {
    out += taken;
    return;
  }
  std::array<char, 16> code{};
  std::snprintf(code.data(), code.size(), "\\u{%x}", static_cast<unsigned>(character));
  out += code.data();
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  while (!text.empty()) {
    std::string_view const before = text;
    std::uint32_t const character = takeCharacter(text);
    append(out, before.substr(0, before.size() - text.size()), character);
  }
  return out;
}

std::string shortened(std::string const& text, std::size_t most) {
  std::size_t characters = 0;
  std::string_view rest = text;
  while (!rest.empty() && characters + 1 < most) {
    takeCharacter(rest);
    ++characters;
  }
  std::size_t const end = text.size() - rest.size();
  if (!rest.empty()) takeCharacter(rest);
  return rest.empty() ? text : text.substr(0, end) + "\xe2\x80\xa6";
}

std::string grouped(std::uint64_t number) {
  std::string digits = std::to_string(number);
  for (std::size_t place = digits.size(); place > 3; place -= 3) digits.insert(place - 3, ",");
  return digits;
}

void beginScrolled(std::ostream& out, std::string_view name) {
  out << R"(<div class="scroll" role="region" tabindex="0" aria-label=")" << escaped(name)
      << "\">\n";
}

}  // namespace Agent
