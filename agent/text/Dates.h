#pragma once

#include <chrono>
#include <string>

#include "platform/horix/Clock.h"

namespace Agent {

/// Tells the times of day of what a clock tells, where these are known: in ISO 8601.
class Dates {
 public:
  /// Of a clock that is of no day.
  Dates() = default;

  /// As of the place where this runs.
  /// @param now what the clock reads at this moment.
  static Dates knownAt(Horix::Time now);

  /// In UTC, for what was recorded anywhere: "2026-11-22T21:05:09Z".
  /// @param zero since the epoch, when the clock read zero.
  static Dates inUtc(Horix::Time zero);

  /// In place of times of day the seconds since the clock read zero: "12 s".
  static Dates sinceZero();

  bool known() const { return form_ != Form::none; }

  /// "2026-11-22T21:05:09+00:00"; empty if nothing is known.
  std::string text(Horix::Time time) const { return text(time, false); }
  /// With microseconds: "2026-11-22T21:05:09.500000+00:00".
  std::string exactText(Horix::Time time) const { return text(time, true); }

 private:
  enum class Form { none, local, utc, sinceZero };

  Dates(Form form, Horix::Time zero) : form_(form), zero_(zero) {}
  std::string text(Horix::Time time, bool exact) const;

  Form form_ = Form::none;
  Horix::Time zero_{};  // of the clock, since 1970
};

/// A time of day in the same form.
std::string dateText(std::chrono::system_clock::time_point time);

/// From when on an answer counts seconds, and of which day that is.
struct Epoch {
  Epoch(Horix::Time begin = {}, Dates const& known = {})  // NOLINT: a start alone is one of no day
      : start(begin), dates(known) {}

  Horix::Time start;
  Dates dates;
};

/// The shortest form that is clear to a reader who knows the date: "21:05:09" of the same day,
/// "11-22 21:05" of the same year, else "2025-11-22".
std::string shortDate(std::string const& date, std::string const& now);

/// Of an exact one, without the day: "21:05:09.500000".
std::string timeOfDay(std::string const& date);

/// For sentences: "2026-11-22 21:05:09 +00:00".
std::string spelledDate(std::string date);

}  // namespace Agent
