#include "agent/text/TimeText.h"

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

}  // namespace Agent
