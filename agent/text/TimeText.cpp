#include "agent/text/TimeText.h"

#include <chrono>
#include <ctime>
#include <iomanip>
#include <sstream>

namespace Agent {

std::string timeText(Horix::Time time) {
  using std::chrono::floor;
  using std::chrono::microseconds;
  using std::chrono::seconds;
  auto const whole = floor<seconds>(time);
  auto const micro = floor<microseconds>(time);
  std::ostringstream text;
  text << whole.count() << '.' << std::setfill('0');
  if (micro == time)
    text << std::setw(6) << (micro - whole).count();
  else
    text << std::setw(9) << (time - whole).count();
  return text.str();
}

std::string utcText(Horix::Time sinceEpoch) {
  auto const whole = std::chrono::floor<std::chrono::seconds>(sinceEpoch);
  std::time_t const seconds = whole.count();
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  std::ostringstream text;
  text << std::put_time(&utc, "%FT%T") << timeText(sinceEpoch - whole).substr(1) << 'Z';
  return text.str();
}

}  // namespace Agent
