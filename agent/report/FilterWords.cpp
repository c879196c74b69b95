#include "agent/report/FilterWords.h"

#include <algorithm>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// The first so many of the sources.
std::string listed(SourceFilter const& filter, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < count; ++i) text += message(i == 0 ? "" : ", ", filter.sources[i]);
  if (count < filter.sources.size()) text += message(" +", filter.sources.size() - count);
  return text;
}

}  // namespace

std::string wordsFor(SourceFilter const& filter, std::size_t most) {
  bool const includes = filter.mode == Gmp::Igmp::IgmpFilterMode::include;
  if (filter.sources.empty()) return includes ? "nothing" : "every source";
  std::string const lead = includes ? "only " : "all but ";
  // No address is shorter than 7 characters, so no more of them than this can fit.
  std::size_t count = std::min(filter.sources.size(), most / 7 + 1);
  std::string text = listed(filter, count);
  while (count > 1 && lead.size() + text.size() > most) text = listed(filter, --count);
  return lead + text;
}

}  // namespace Agent
