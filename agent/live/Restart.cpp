#include "agent/live/Restart.h"

#include <chrono>
#include <filesystem>
#include <system_error>
#include <utility>

#include "agent/text/Wording.h"

namespace Agent {

namespace {

/// For answers to get to who asked.
constexpr auto pause = std::chrono::milliseconds(100);

/// Asked at the start: of a file that was replaced since, the kernel tells no usable name.
std::string pathOfThisProgram() {
  std::error_code none;
  return std::filesystem::read_symlink("/proc/self/exe", none);
}

}  // namespace

Restart::Restart(Horix::EventLoop& loop, std::vector<std::string> arguments,
                 std::function<void(std::string const& path)> replace)
    : loop_(loop),
      path_(pathOfThisProgram()),
      arguments_(std::move(arguments)),
      replace_(std::move(replace)) {}

void Restart::begin(std::string const& configuration, Told told) {
  if (told_ || scheduled()) {
    told("a restart is under way already");
    return;
  }
  told_ = std::move(told);
  try {
    trial_ = std::make_unique<TrialRun>(
        loop_, path_,
        std::vector<std::string>{arguments_.front(), "check", "--config", configuration},
        [this](bool succeeded) { handleTried(succeeded); });
  } catch (std::system_error const& error) {
    tell(message("cannot start ", error.what(), "; the running program goes on"));
  }
}

void Restart::handleTried(bool succeeded) {
  trial_.reset();
  if (!succeeded) {
    tell(message(path_,
                 " cannot run, or finds the configuration unusable, as the log says; the "
                 "running program goes on"));
    return;
  }
  tell({});
  loop_.timerWheel()->schedule(*this, pause);
}

void Restart::onExpiry() {
  replace_(path_);
}

void Restart::tell(std::string const& problem) {
  auto const told = std::exchange(told_, nullptr);
  told(problem);
}

}  // namespace Agent
