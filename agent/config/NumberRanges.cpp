#include "agent/config/NumberRanges.h"

#include <charconv>
#include <system_error>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

std::uint32_t readNumber(std::string_view text) {
  std::uint32_t number = 0;
  char const* const end = text.data() + text.size();
  auto const [stop, error] = std::from_chars(text.data(), end, number);
  if (error == std::errc::result_out_of_range) {
    refuse(quoted(text), " is too large; give a smaller number");
  }
  if (error != std::errc{} || stop != end) {
    refuse(quoted(text), " is no number; write ranges as in 1-5 or 1,3-5, without blanks");
  }
  if (text.size() > 1 && text.front() == '0') {
    refuse("number ", quoted(text), " has a leading zero; write ", number);
  }
  return number;
}

void appendRange(std::string_view range, std::vector<std::uint32_t>& numbers) {
  std::size_t const hyphen = range.find('-');
  std::uint32_t const first = readNumber(range.substr(0, hyphen));
  std::uint32_t const last =
      hyphen == std::string_view::npos ? first : readNumber(range.substr(hyphen + 1));
  if (last < first) {
    refuse("range ", quoted(range), " runs downwards; write ", last, '-', first);
  }
  if (last - first >= maxExpansion - numbers.size()) {
    refuse("range ", quoted(range), " exceeds ", maxExpansion,
           " numbers in all; give a smaller range");
  }
  // `last` may be the type's largest value, so the count ends the loop.
  for (std::uint32_t offset = 0; offset <= last - first; ++offset) {
    numbers.push_back(first + offset);
  }
}

}  // namespace

std::vector<std::uint32_t> expandNumberRanges(std::string_view ranges) {
  std::vector<std::uint32_t> numbers;
  for (std::size_t comma = ranges.find(','); comma != std::string_view::npos;
       comma = ranges.find(',')) {
    appendRange(ranges.substr(0, comma), numbers);
    ranges.remove_prefix(comma + 1);
  }
  appendRange(ranges, numbers);
  return numbers;
}

}  // namespace Agent
