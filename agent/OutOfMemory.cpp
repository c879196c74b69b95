#include "agent/OutOfMemory.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/resource.h>
#include <unistd.h>

#include "agent/Log.h"

namespace Agent {

namespace {

std::array<char, 32> prefix;  // of the line: there is no memory left to make one

/// What the process may take of its address space, as words; empty if that is not limited.
std::array<char, 80> limitWords() {
  std::array<char, 80> words{};
  rlimit limit{};
  if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY)
    std::snprintf(words.data(), words.size(), ", and a limit of %llu MB of address space",
                  static_cast<unsigned long long>(limit.rlim_cur >> 20));
  return words;
}

[[noreturn]] void end() {
  std::set_new_handler(nullptr);
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  std::array<char, 400> line{};
  std::snprintf(
      line.data(), line.size(),
      "%sout of memory with %ld MB in use%s; give it more (MemoryMax in the unit, ulimit -v), or "
      "lower max-groups and the limits beside it\n",
      prefix.data(), usage.ru_maxrss >> 10, limitWords().data());
  [[maybe_unused]] ssize_t const written =
      write(STDERR_FILENO, line.data(), strnlen(line.data(), line.size()));
  std::_Exit(EXIT_FAILURE);
}

}  // namespace

void endWhenMemoryRunsOut() {
  std::string const text = journalPrefix(Severity::error);
  std::snprintf(prefix.data(), prefix.size(), "%s", text.empty() ? "igmpsnoopd: " : text.c_str());
  std::set_new_handler(end);
}

}  // namespace Agent
