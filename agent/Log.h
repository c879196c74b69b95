#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "agent/text/Wording.h"

/// The messages of a running agent, for its operator: lines on standard error, which carry their
/// severity where the journal reads them. Nothing waits for their reader: see LogOutput. May be
/// called from anywhere on the event loop's thread.
namespace Agent {

/// As in syslog(3).
enum class Severity { error = 3, warning = 4, notice = 5, info = 6, debug = 7 };

/// What a line begins with where the journal reads standard error; nothing elsewhere.
std::string journalPrefix(Severity severity);

/// Writes a line for each line of the text.
void logText(Severity severity, std::string_view text);

/// Writes a line of the parts, printed one after the other.
template <typename... Parts>
void log(Severity severity, Parts const&... parts) {
  logText(severity, message(parts...));
}

/// How many lines could not be written so far.
std::uint64_t lostLogLines();

/// Whether standard error is connected to the journal: JOURNAL_STREAM then holds the device and the
/// inode of its descriptor (systemd.exec(5)).
/// @param journalStream the variable's value, or null.
bool isJournal(char const* journalStream, int descriptor);

}  // namespace Agent
