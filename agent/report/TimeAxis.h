#pragma once

#include <iosfwd>
#include <string>

#include "agent/report/History.h"

namespace Agent {

/// The horizontal axis of pictures over time: where a time lies, and the grid with its labels.
class TimeAxis {
 public:
  static constexpr int left = 250;
  static constexpr int right = 1184;
  static constexpr int height = 26;

  explicit TimeAxis(History const& history);

  /// Pixels from the picture's left.
  double x(Horix::Time time) const;

  /// Of a span: at least as wide as can be seen.
  double end(Span const& span) const;

  /// @param bottom of the lines.
  void draw(std::ostream& out, int bottom) const;

 private:
  Horix::Time begin_;
  Horix::Time end_;
};

/// "12.5 s", "4:10 min", "26:03:00 h".
std::string timeWords(Horix::Time time);

}  // namespace Agent
