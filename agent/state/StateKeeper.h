#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <optional>
#include <string>

#include "agent/Switch.h"
#include "agent/state/StateGathering.h"
#include "platform/horix/TimerWheel.h"

namespace Agent {

/// Restores a switch from sealed state, and logs that, or why the state cannot be used.
/// @param name what the log calls the place that the state comes from.
void resumeOrWarn(Switch& snoopingSwitch, std::string const& name, std::string_view sealed);

/// What a switch knows and has said, sealed, for one that goes on in its place at once.
std::string sealedState(Switch& snoopingSwitch);

/// Keeps what a switch knows in a file, and has the switch know again what is there. When something
/// has changed the file is replaced, at once if that has not been so for a few seconds, and not if
/// it would be the same; times that are only renewed wait longer. Gathering is done piece by piece
/// on the loop, and writing, which the disk may hold up, by a thread that has nothing but the
/// bytes.
class StateKeeper final : private Horix::Timer {
 public:
  /// @param snoopingSwitch outlives it.
  StateKeeper(std::string path, Switch& snoopingSwitch,
              Kel::Ptr<Horix::TimerWheel const> timerWheel);
  StateKeeper(StateKeeper const&) = delete;
  StateKeeper& operator=(StateKeeper const&) = delete;
  ~StateKeeper() override;

  /// Has the switch take up what is in the file, and tells the log of it.
  void resume();

  /// Begins to keep the file.
  void begin();

  /// Writes what is known now, and returns when it is written.
  void saveNow();

  /// The same while the loop goes on, and keeps the file no more. Who waits is told when it is
  /// written, or when that takes too long.
  void save(std::function<void()> saved);

 private:
  /// What a file was written of, and what went wrong.
  struct Written {
    std::size_t entriesHash = 0;
    std::string problem;
  };

  void onExpiry() override;
  void handleBatch();
  void continueSaving();
  bool hasChanged() const;
  bool isDue() const;
  Horix::Time nextLook() const;
  void gather();
  void startWriting();
  void finishWriting();
  Horix::Time renewalInterval() const;

  std::string const path_;
  Switch& switch_;
  Kel::Ptr<Horix::TimerWheel const> timerWheel_;
  std::uint64_t seenMutations_ = 0;
  Horix::Time lastGathered_{};
  std::optional<StateGathering> gathering_;
  std::future<Written> writing_;
  std::size_t writtenHash_ = 0;
  bool failed_ = false;  // the last time
  std::function<void()> saved_;
  Horix::Time latestSaved_{};  // when who waits for that is told in any case
};

}  // namespace Agent
