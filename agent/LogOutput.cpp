#include "agent/LogOutput.h"

#include <algorithm>
#include <climits>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

constexpr int sendFlags = MSG_DONTWAIT | MSG_NOSIGNAL;

/// Opens anew what may block, so that not blocking is the new descriptor's alone. A file is not
/// opened anew, because its end would be written over; it does not block.
int openAnew(int descriptor, mode_t mode) {
  if (!S_ISFIFO(mode) && !isatty(descriptor)) return -1;
  std::string const path = message("/proc/self/fd/", descriptor);
  return open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

/// A pipe that is ready takes so much without blocking.
ssize_t writeIfReady(int descriptor, std::string_view text) {
  pollfd output{descriptor, POLLOUT, 0};
  if (poll(&output, 1, 0) <= 0) return -1;
  return write(descriptor, text.data(), std::min<std::size_t>(text.size(), PIPE_BUF));
}

}  // namespace

LogOutput::LogOutput(int descriptor) : descriptor_(descriptor) {}

LogOutput::~LogOutput() {
  if (own_ >= 0) close(own_);
}

void LogOutput::write(std::string_view lines, std::string_view prefix) {
  follow();
  bool taken = finishLine();
  if (taken && untold_ > 0) {
    taken = writeWhole(message(prefix, counted(untold_, "line"),
                               " of the log lost, which could not be written at once\n"));
    if (taken) untold_ = 0;
  }
  if (taken && writeWhole(lines)) return;
  auto const count = static_cast<std::uint64_t>(std::count(lines.begin(), lines.end(), '\n'));
  lost_ += count;
  untold_ += count;
}

/// The descriptor may have been connected to something else.
void LogOutput::follow() {
  struct stat status {};
  if (fstat(descriptor_, &status) != 0) return;
  if (status.st_dev == device_ && status.st_ino == inode_) return;
  device_ = status.st_dev;
  inode_ = status.st_ino;
  isSocket_ = S_ISSOCK(status.st_mode);
  rest_.clear();
  if (own_ >= 0) close(own_);
  own_ = openAnew(descriptor_, status.st_mode);
}

/// Returns whether they are written, or are to be: what begins is not lost any more.
bool LogOutput::writeWhole(std::string_view lines) {
  std::size_t const written = writeSome(lines);
  if (written == 0) return false;
  rest_ = lines.substr(written);
  return true;
}

bool LogOutput::finishLine() {
  rest_.erase(0, writeSome(rest_));
  return rest_.empty();
}

/// Returns how much was taken: errors are no different from something that is full.
std::size_t LogOutput::writeSome(std::string_view text) const {
  if (text.empty()) return 0;
  ssize_t const written = isSocket_   ? send(descriptor_, text.data(), text.size(), sendFlags)
                          : own_ >= 0 ? ::write(own_, text.data(), text.size())
                                      : writeIfReady(descriptor_, text);
  return written < 0 ? 0 : static_cast<std::size_t>(written);
}

}  // namespace Agent
