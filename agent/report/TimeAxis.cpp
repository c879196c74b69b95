#include "agent/report/TimeAxis.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <ostream>

#include "agent/output/JsonValues.h"
#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// Of the marks: some eight of them, at times that people count by.
Horix::Time stepOf(Horix::Time length) {
  using namespace std::chrono_literals;
  static constexpr std::array<Horix::Time, 17> steps{
      100ms, 200ms, 500ms, 1s, 2s, 5s, 10s, 30s, 60s, 2min, 5min, 10min, 30min, 1h, 3h, 6h, 24h};
  for (Horix::Time const step : steps)
    if (length / step <= 10) return step;
  return std::chrono::hours(24) * (length / std::chrono::hours(24) / 10 + 1);
}

}  // namespace

TimeAxis::TimeAxis(History const& history) : begin_(history.begin), end_(history.end) {
  if (end_ <= begin_) end_ = begin_ + std::chrono::seconds(1);
}

double TimeAxis::x(Horix::Time time) const {
  double const part = seconds(std::clamp(time, begin_, end_) - begin_) / seconds(end_ - begin_);
  return std::round((left + part * (right - left)) * 10) / 10;
}

double TimeAxis::end(Span const& span) const {
  return std::max(x(span.to.value_or(end_)), x(span.from) + 2);
}

void TimeAxis::draw(std::ostream& out, int bottom) const {
  Horix::Time const step = stepOf(end_ - begin_);
  for (Horix::Time time = begin_; time <= end_; time += step)
    out << "<path class=\"grid\" d=\"M" << x(time) << ' ' << height - 6 << 'V' << bottom
        << "\"/><text class=\"tick\" x=\"" << x(time) << "\" y=\"" << height - 10 << "\">"
        << timeWords(time) << "</text>";
  out << '\n';
}

std::string timeWords(Horix::Time time) {
  using std::chrono::milliseconds;
  auto const milli = std::chrono::round<milliseconds>(time).count();
  auto const whole = milli / 1000;
  std::array<char, 48> text{};
  if (whole >= 3600)
    std::snprintf(text.data(), text.size(), "%lld:%02lld:%02lld h",
                  static_cast<long long>(whole / 3600), static_cast<long long>(whole / 60 % 60),
                  static_cast<long long>(whole % 60));
  else if (whole >= 120)
    std::snprintf(text.data(), text.size(), "%lld:%02lld min", static_cast<long long>(whole / 60),
                  static_cast<long long>(whole % 60));
  else if (milli % 1000 == 0)
    return message(whole, " s");
  else
    std::snprintf(text.data(), text.size(), "%lld.%02lld s", static_cast<long long>(whole),
                  static_cast<long long>(milli % 1000 / 10));
  return text.data();
}

}  // namespace Agent
