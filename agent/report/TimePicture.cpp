#include "agent/report/TimePicture.h"

#include <algorithm>
#include <map>
#include <ostream>

#include "agent/report/Markup.h"
#include "agent/report/TimeAxis.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

using Kind = HistoryRow::Kind;

constexpr int rowHeight = 19;
constexpr int headHeight = 24;
constexpr int pictureWidth = 1200;
constexpr double letterWidth = 6.8;

bool isOfGroup(HistoryRow const& row) {
  return row.kind == Kind::membership || row.kind == Kind::record;
}

/// The group that the row begins, or "Routers" for those of none; empty if the row before did.
std::string headOf(std::span<HistoryRow const> rows, std::size_t index) {
  HistoryRow const& row = rows[index];
  bool const isFirst = index == 0 || isOfGroup(rows[index - 1]) != isOfGroup(row) ||
                       rows[index - 1].group != row.group;
  if (!isFirst) return {};
  return isOfGroup(row) ? message(row.group) : "Queriers and routers";
}

std::string labelOf(HistoryRow const& row) {
  switch (row.kind) {
    case Kind::querier:
      return "elected querier";
    case Kind::router:
      return shortened(row.interface, 15) + " leads to a router";
    case Kind::membership:
      return shortened(row.interface, 15) + " \u2190 " + message(row.reporter);
    case Kind::record:
      return shortened(row.interface, 15) + " reports";
  }
  return {};
}

class Chart {
 public:
  Chart(std::ostream& out, History const& history, PortColours const& colours)
      : out_(out), axis_(history), colours_(colours) {}

  void draw(std::span<HistoryRow const> rows, int height) {
    axis_.draw(out_, height);
    int y = TimeAxis::height;
    for (std::size_t i = 0; i < rows.size(); ++i) {
      if (std::string const head = headOf(rows, i); !head.empty()) {
        out_ << "<text class=\"group\" x=\"4\" y=\"" << y + 17 << "\">" << head << "</text>\n";
        y += headHeight;
      }
      drawRow(rows[i], y);
      y += rowHeight;
    }
  }

 private:
  void drawRow(HistoryRow const& row, int y) {
    out_ << "<text class=\"row\" x=\"14\" y=\"" << y + 13 << "\">" << escaped(labelOf(row))
         << "</text>";
    std::string const colour = row.interface.empty() ? "querier" : colours_.of(row.interface);
    for (Span const& span : row.spans) {
      double const x = axis_.x(span.from);
      double const width = axis_.end(span) - x;
      out_ << "<rect class=\"" << (row.kind == Kind::record ? "record " : "bar ") << colour
           << "\" x=\"" << x << "\" y=\"" << y + 2 << "\" width=\"" << width << "\" height=\""
           << rowHeight - 4 << "\" rx=\"3\"/>";
      auto const room = static_cast<std::size_t>(std::max(0.0, (width - 10) / letterWidth));
      if (room >= std::min<std::size_t>(span.text.size(), 6))
        out_ << "<text class=\"inbar\" x=\"" << x + 5 << "\" y=\"" << y + 13.5 << "\">"
             << escaped(shortened(span.text, room)) << "</text>";
    }
    out_ << '\n';
  }

  std::ostream& out_;
  TimeAxis axis_;
  PortColours const& colours_;
};

int heightOf(std::span<HistoryRow const> rows) {
  int height = TimeAxis::height + 4;
  for (std::size_t i = 0; i < rows.size(); ++i)
    height += rowHeight + (headOf(rows, i).empty() ? 0 : headHeight);
  return height;
}

void open(std::ostream& out, std::string const& id, std::string const& title,
          std::string const& description, int height) {
  out << "<svg class=\"time\" id=\"" << id << "\" viewBox=\"0 0 " << pictureWidth << ' ' << height
      << "\" role=\"img\" aria-labelledby=\"" << id << "-t " << id << "-d\"><title id=\"" << id
      << "-t\">" << escaped(title) << "</title><desc id=\"" << id << "-d\">" << description
      << "</desc>\n";
}

// ---- Counts

using Steps = std::map<Horix::Time, std::ptrdiff_t>;

Steps stepsOf(std::span<HistoryRow const> rows, Kind kind) {
  Steps steps;
  for (HistoryRow const& row : rows) {
    if (row.kind != kind) continue;
    for (Span const& span : row.spans) {
      ++steps[span.from];
      if (span.to) --steps[*span.to];
    }
  }
  return steps;
}

std::ptrdiff_t mostOf(Steps const& steps) {
  std::ptrdiff_t count = 0;
  std::ptrdiff_t most = 0;
  for (auto const& [time, step] : steps) most = std::max(most, count += step);
  return most;
}

constexpr int countsHeight = 170;
constexpr int countsTop = TimeAxis::height + 8;
constexpr int countsBottom = countsHeight - 8;

double heightOf(std::ptrdiff_t count, std::ptrdiff_t most) {
  double const part = most == 0 ? 0 : static_cast<double>(count) / static_cast<double>(most);
  return countsBottom - part * (countsBottom - countsTop);
}

/// One step for each pixel that has any: more cannot be seen.
void drawSteps(std::ostream& out, Steps const& steps, std::ptrdiff_t most, TimeAxis const& axis,
               History const& history, char const* kind) {
  std::ptrdiff_t count = 0;
  int drawnX = -1;
  out << "<path class=\"count " << kind << "\" d=\"M" << TimeAxis::left << ' ' << countsBottom;
  for (auto next = steps.begin(); next != steps.end();) {
    auto const x = static_cast<int>(axis.x(next->first));
    for (; next != steps.end() && static_cast<int>(axis.x(next->first)) == x; ++next)
      count += next->second;
    if (x != drawnX) out << 'H' << x;
    out << 'V' << static_cast<int>(heightOf(count, most));
    drawnX = x;
  }
  out << 'H' << axis.x(history.end) << "\"/>";
}

}  // namespace

void drawTimeLine(std::ostream& out, std::string const& id, std::string const& title,
                  History const& history, std::span<HistoryRow const> rows,
                  PortColours const& colours) {
  int const height = heightOf(rows);
  open(out, id, title,
       message(counted(rows.size(), "row"), " from ", timeWords(history.begin), " to ",
               timeWords(history.end), "; the table of changes has the same in words."),
       height);
  Chart(out, history, colours).draw(rows, height);
  out << "</svg>\n";
}

void drawCounts(std::ostream& out, std::string const& id, std::string const& title,
                History const& history, std::span<HistoryRow const> rows) {
  Steps const memberships = stepsOf(rows, Kind::membership);
  Steps const records = stepsOf(rows, Kind::record);
  std::ptrdiff_t const mostMemberships = mostOf(memberships);
  std::ptrdiff_t const mostRecords = mostOf(records);
  std::ptrdiff_t const most = std::max(mostMemberships, mostRecords);
  TimeAxis const axis(history);
  open(out, id, title,
       message("At most ", mostMemberships, " memberships and ", mostRecords, " records."),
       countsHeight);
  axis.draw(out, countsHeight);
  drawSteps(out, memberships, most, axis, history, "memberships");
  if (mostRecords > 0) drawSteps(out, records, most, axis, history, "records");
  int const y = countsTop + 16;
  auto const key = [&](int place, char const* kind, char const* what, std::ptrdiff_t count) {
    out << "<path class=\"count " << kind << "\" d=\"M14 " << place - 4 << "h24\"/>"
        << "<text class=\"row\" x=\"46\" y=\"" << place << "\">" << what << ", at most "
        << grouped(static_cast<std::uint64_t>(count)) << "</text>";
  };
  key(y, "memberships", "memberships", mostMemberships);
  if (mostRecords > 0) key(y + 22, "records", "records", mostRecords);
  out << "</svg>\n";
}

}  // namespace Agent
