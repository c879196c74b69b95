#include "agent/text/TextTable.h"

#include <algorithm>
#include <ostream>

namespace Agent {

namespace {

constexpr std::size_t gap = 2;

bool continuesCharacter(char c) {
  return (static_cast<unsigned char>(c) & 0xc0) == 0x80;  // UTF-8
}

std::size_t characters(std::string_view text) {
  return text.size() -
         static_cast<std::size_t>(std::count_if(text.begin(), text.end(), continuesCharacter));
}

/// The size in bytes of the first `count` characters.
std::size_t sizeOf(std::string_view text, std::size_t count) {
  std::size_t size = 0;
  while (size < text.size()) {
    if (!continuesCharacter(text[size]) && count-- == 0) break;
    ++size;
  }
  return size;
}

/// Takes one line off the front of a text.
std::string_view takeLine(std::string_view& text, std::size_t columnWidth) {
  std::size_t const fitting = sizeOf(text, columnWidth);
  std::size_t end = fitting;
  if (fitting < text.size()) {
    std::size_t const blank = text.rfind(' ', fitting);
    if (blank != std::string_view::npos && blank > 0) end = blank;
  }
  std::string_view const line = text.substr(0, end);
  text.remove_prefix(end);
  if (text.starts_with(' ')) text.remove_prefix(1);
  return line;
}

void appendCell(std::string& line, std::string_view text, TextTable::Align align,
                std::size_t columnWidth) {
  std::size_t const padding = columnWidth - characters(text);
  if (align == TextTable::Align::right) line.append(padding, ' ');
  line.append(text);
  if (align == TextTable::Align::left) line.append(padding, ' ');
}

}  // namespace

std::vector<std::size_t> TextTable::columnWidths() const {
  std::vector<std::size_t> widths;
  std::size_t used = 0;
  for (std::size_t i = 0; i < columns_.size(); ++i) {
    std::size_t longest = characters(columns_[i].header);
    for (auto const& cells : rows_) longest = std::max(longest, characters(cells[i]));
    bool const isLast = i + 1 == columns_.size();
    std::size_t const left = std::max(narrowest, width - std::min(used, width));
    widths.push_back(std::min(longest, isLast ? left : columns_[i].maxWidth));
    used += widths.back() + gap;
  }
  return widths;
}

void TextTable::print(std::ostream& out) const {
  std::vector<std::size_t> const widths = columnWidths();
  std::vector<std::string> headers;
  for (Column const& column : columns_) headers.push_back(column.header);
  printRow(out, headers, widths);
  for (auto const& cells : rows_) printRow(out, cells, widths);
}

void TextTable::printRow(std::ostream& out, std::vector<std::string> const& cells,
                         std::vector<std::size_t> const& widths) const {
  std::vector<std::string_view> rest(cells.begin(), cells.end());
  do {
    std::string line;
    for (std::size_t i = 0; i < rest.size(); ++i) {
      if (i > 0) line.append(gap, ' ');
      appendCell(line, takeLine(rest[i], widths[i]), columns_[i].align, widths[i]);
    }
    line.erase(line.find_last_not_of(' ') + 1);
    out << line << '\n';
  } while (!std::all_of(rest.begin(), rest.end(), [](auto text) { return text.empty(); }));
}

void printParagraph(std::ostream& out, std::string_view text, std::size_t indent) {
  do out << std::string(indent, ' ') << takeLine(text, TextTable::width - indent) << '\n';
  while (!text.empty());
}

}  // namespace Agent
