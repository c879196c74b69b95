#include "agent/live/TrialRun.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Agent {

namespace {

constexpr auto longest = std::chrono::seconds(10);

/// Starts a program with no input, no output and no signal blocked.
pid_t spawn(std::string const& path, std::vector<std::string> const& arguments) {
  std::vector<char*> words;
  words.reserve(arguments.size() + 1);
  for (std::string const& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none;
  sigemptyset(&none);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  pid_t process = -1;
  int const error =
      posix_spawn(&process, path.c_str(), &actions, &attributes, words.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  if (error != 0) throw std::system_error(error, std::generic_category(), path);
  return process;
}

}  // namespace

class TrialRun::Ended final : public Horix::EventLoop::Watch {
 public:
  Ended(Horix::EventLoop& loop, TrialRun& run) : Watch(loop, run.descriptor_.value()), run_(run) {}

 private:
  void onReady() override { run_.handleEnded(); }

  TrialRun& run_;
};

TrialRun::TrialRun(Horix::EventLoop& loop, std::string const& path,
                   std::vector<std::string> const& arguments, std::function<void(bool)> outcome)
    : process_(spawn(path, arguments)),
      descriptor_(static_cast<int>(syscall(SYS_pidfd_open, process_, 0))),
      outcome_(std::move(outcome)),
      ended_(std::make_unique<Ended>(loop, *this)) {
  loop.timerWheel()->schedule(*this, longest);
}

TrialRun::~TrialRun() {
  ended_.reset();
  if (process_ < 0) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

void TrialRun::onExpiry() {
  kill(process_, SIGKILL);
}

void TrialRun::handleEnded() {
  int status = 0;
  waitpid(std::exchange(process_, -1), &status, 0);
  ended_.reset();
  cancel();
  auto const outcome = std::move(outcome_);
  outcome(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace Agent
