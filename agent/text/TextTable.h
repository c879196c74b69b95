#pragma once

#include <cstddef>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// A table for terminals, at most `width` columns wide: a text that is too long for its cell goes
/// on in the lines below. Columns are as wide as they must be, the last one at most as wide as what
/// is left; where the others leave less than `narrowest` it has that, and the table is wider.
class TextTable {
 public:
  static constexpr std::size_t width = 100;
  static constexpr std::size_t narrowest = 10;

  enum class Align { left, right };

  struct Column {
    std::string header;
    Align align = Align::left;
    std::size_t maxWidth = 20;
  };

  explicit TextTable(std::vector<Column> columns) : columns_(std::move(columns)) {}

  /// @param cells one per column. A break comes at a blank, if there is one.
  void row(std::vector<std::string> cells) { rows_.push_back(std::move(cells)); }

  void print(std::ostream& out) const;

 private:
  std::vector<std::size_t> columnWidths() const;
  void printRow(std::ostream& out, std::vector<std::string> const& cells,
                std::vector<std::size_t> const& widths) const;

  std::vector<Column> columns_;
  std::vector<std::vector<std::string>> rows_;
};

/// Prints a text in lines that end, like those of tables, at TextTable::width.
/// @param indent blanks before each line.
void printParagraph(std::ostream& out, std::string_view text, std::size_t indent = 0);

}  // namespace Agent
