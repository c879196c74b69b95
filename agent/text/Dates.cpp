#include "agent/text/Dates.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>

#include "agent/text/TimeText.h"

namespace Agent {

namespace {

// Of "2026-11-22T21:05:09.500000+00:00".
constexpr std::size_t yearLength = 4;
constexpr std::size_t dayLength = 10;
constexpr std::size_t secondsEnd = 19;

std::string formatted(char const* format, std::tm const& time) {
  std::array<char, 64> text;
  return {text.data(), std::strftime(text.data(), text.size(), format, &time)};
}

std::string isoText(Horix::Time sinceEpoch, bool exact) {
  auto const whole = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
  std::time_t const seconds = whole.count();
  std::tm local{};
  localtime_r(&seconds, &local);
  auto const micro = std::chrono::floor<std::chrono::microseconds>(sinceEpoch - whole);
  std::string const fraction = exact ? timeText(micro).substr(1) : "";
  std::string const zone = formatted("%z", local);
  return formatted("%FT%T", local) + fraction + zone.substr(0, 3) + ":" + zone.substr(3);
}

std::string withoutFraction(std::string const& utc) {
  return utc.substr(0, secondsEnd) + 'Z';
}

std::string wholeSeconds(Horix::Time time) {
  return std::to_string(std::chrono::round<std::chrono::seconds>(time).count()) + " s";
}

}  // namespace

Dates Dates::knownAt(Horix::Time now) {
  return {Form::local, std::chrono::system_clock::now().time_since_epoch() - now};
}

Dates Dates::inUtc(Horix::Time zero) {
  return {Form::utc, zero};
}

Dates Dates::sinceZero() {
  return {Form::sinceZero, {}};
}

std::string Dates::text(Horix::Time time, bool exact) const {
  switch (form_) {
    case Form::none:
      return "";
    case Form::local:
      return isoText(zero_ + time, exact);
    case Form::utc:
      return exact ? utcText(zero_ + time) : withoutFraction(utcText(zero_ + time));
    case Form::sinceZero:
      return exact ? timeText(time) : wholeSeconds(time);
  }
  return "";
}

std::string dateText(std::chrono::system_clock::time_point time) {
  return isoText(time.time_since_epoch(), false);
}

std::string shortDate(std::string const& date, std::string const& now) {
  if (date.size() < secondsEnd) return date;
  std::string timeOfDay = date.substr(dayLength + 1, secondsEnd - dayLength - 1);
  if (date.starts_with(now.substr(0, dayLength))) return timeOfDay;
  if (!date.starts_with(now.substr(0, yearLength))) return date.substr(0, dayLength);
  return date.substr(yearLength + 1, dayLength - yearLength - 1) + " " + timeOfDay.substr(0, 5);
}

std::string timeOfDay(std::string const& date) {
  std::size_t const begin = std::min(dayLength + 1, date.size());
  return date.substr(begin, date.find_first_of("+-", begin) - begin);
}

std::string spelledDate(std::string date) {
  if (date.size() <= secondsEnd) return date;
  date[dayLength] = ' ';
  return date.insert(date.find_first_of("+-", secondsEnd), " ");
}

}  // namespace Agent
