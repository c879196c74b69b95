#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "agent/report/ReportData.h"

namespace Agent {

/// A table of the page, with a caption and headers. A large one is closed at first, and a very
/// large one says what it leaves out.
class PageTable {
 public:
  static constexpr std::size_t many = 60;
  /// One with more rows stays closed in print: it would take hundreds of sheets.
  static constexpr std::size_t tooManyForPaper = 2000;
  static constexpr std::size_t most = 50000;

  struct Column {
    std::string header;
    bool isNumber = false;
  };

  /// @param all where the rest is, if there are more rows than at most.
  PageTable(std::string caption, std::vector<Column> columns, std::string all = {},
            std::size_t atMost = most);

  /// Has each row tell since when, in a column more, if it is known what day it is.
  void dateColumnIs(std::size_t place, std::string const& now);

  /// @param since of the column more.
  void row(std::vector<std::string> cells, std::string const& since = {});
  /// Prints nothing if there are no rows.
  void print(std::ostream& out) const;

 private:
  std::string caption_;
  std::vector<Column> columns_;
  std::string all_;
  std::size_t atMost_;
  std::string now_;  // empty without the column more
  std::size_t datePlace_ = 0;
  std::string rows_;
  std::size_t count_ = 0;
};

/// The tables of `show`.
void printTables(std::ostream& out, ReportData const& data);

/// What was ignored, by port and cause.
void printIgnored(std::ostream& out, ReportData const& data);

/// The rows of a history, in words; of a long one the first some thousands.
void printChanges(std::ostream& out, History const& history);

}  // namespace Agent
