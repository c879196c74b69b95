#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <sys/types.h>

namespace Agent {

/// Where the lines of the log go. Writing never waits: what a full pipe, socket or disk does not
/// take is lost and counted, and the next line that is taken follows one that tells how many were
/// lost. Of a file system that is slow it waits for each line. Single-threaded.
class LogOutput {
 public:
  /// @param descriptor stays the caller's and is not changed, because other processes may write to
  ///   the same pipe or terminal.
  explicit LogOutput(int descriptor);
  LogOutput(LogOutput const&) = delete;
  LogOutput& operator=(LogOutput const&) = delete;
  ~LogOutput();

  /// @param lines each ends with a newline.
  /// @param prefix what the line about those that were lost begins with.
  void write(std::string_view lines, std::string_view prefix);

  /// How many lines so far.
  std::uint64_t lost() const noexcept { return lost_; }

 private:
  void follow();
  bool writeWhole(std::string_view lines);
  bool finishLine();
  std::size_t writeSome(std::string_view text) const;

  int descriptor_;
  // What the descriptor was connected to last.
  dev_t device_ = 0;
  ino_t inode_ = 0;
  bool isSocket_ = false;
  int own_ = -1;      // the same, opened for itself, which does not block
  std::string rest_;  // of a line that has begun
  std::uint64_t lost_ = 0;
  std::uint64_t untold_ = 0;  // of those
};

}  // namespace Agent
