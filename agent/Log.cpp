#include "agent/Log.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "agent/LogOutput.h"

namespace Agent {

namespace {

LogOutput& output() {
  static LogOutput standardError(STDERR_FILENO);
  return standardError;
}

std::string prefixOf(Severity severity) {
  std::string prefix = journalPrefix(severity);
  return prefix.empty() ? "igmpsnoopd: " : prefix;
}

}  // namespace

bool isJournal(char const* journalStream, int descriptor) {
  struct stat status {};
  return journalStream && fstat(descriptor, &status) == 0 &&
         journalStream == message(status.st_dev, ':', status.st_ino);
}

std::string journalPrefix(Severity severity) {
  static bool const toJournal = isJournal(std::getenv("JOURNAL_STREAM"), STDERR_FILENO);
  return toJournal ? message('<', static_cast<int>(severity), '>') : "";
}

void logText(Severity severity, std::string_view text) {
  std::string const prefix = prefixOf(severity);
  std::string lines;
  for (std::size_t begin = 0; begin <= text.size();) {
    std::size_t const end = std::min(text.find('\n', begin), text.size());
    lines += prefix;
    lines += text.substr(begin, end - begin);
    lines += '\n';
    begin = end + 1;
  }
  output().write(lines, prefixOf(Severity::warning));
}

std::uint64_t lostLogLines() {
  return output().lost();
}

}  // namespace Agent
