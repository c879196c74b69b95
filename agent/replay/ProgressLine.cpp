#include "agent/replay/ProgressLine.h"

#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr char const* emptyLine = "\r\x1b[K";

std::string wordsFor(CaptureMerge const& packets) {
  constexpr int hundred = 100;
  std::string words = counted(packets.given(), "packet") + " read";
  if (auto const share = packets.shareRead())
    words += message(", ", static_cast<int>(*share * hundred), " % of the input");
  return words;
}

}  // namespace

void ProgressLine::show(CaptureMerge const& packets) {
  constexpr std::chrono::milliseconds interval(200);
  auto const now = clock_();
  if (now < due_) return;
  due_ = now + interval;
  shown_ = true;
  terminal_ << emptyLine << wordsFor(packets) << std::flush;
}

void ProgressLine::clear() {
  if (shown_) terminal_ << emptyLine << std::flush;
}

}  // namespace Agent
