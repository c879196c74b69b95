#include "agent/config/ErrorLog.h"

#include <algorithm>

namespace Agent {

std::vector<std::string> ErrorLog::lines() const {
  std::vector<Error> sorted = errors_;
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](Error const& a, Error const& b) { return a.where < b.where; });
  std::vector<std::string> result;
  result.reserve(sorted.size());
  for (Error& error : sorted) result.push_back(std::move(error.line));
  return result;
}

}  // namespace Agent
