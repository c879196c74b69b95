#include "tests/agent/live/RunningAgent.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace Agent {

using namespace std::chrono_literals;

namespace {

int checked(int result, char const* call) {
  if (result < 0) throw std::system_error(errno, std::generic_category(), call);
  return result;
}

int listenAt(std::string const& path) {
  int const descriptor = checked(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, path.c_str(), sizeof address.sun_path - 1);
  checked(bind(descriptor, reinterpret_cast<sockaddr const*>(&address), sizeof address), "bind");
  chmod(path.c_str(), 0777);
  return descriptor;
}

std::string journalStream(int descriptor) {
  struct stat status {};
  checked(fstat(descriptor, &status), "fstat");
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

}  // namespace

RunningAgent::RunningAgent(InterfaceTest::NetworkNamespace const& space,
                           std::string const& configuration, Start const& start)
    : notifications_(listenAt(directory_.file("notify"))) {
  chmod(directory_.file("").c_str(), 0777);
  configurationIs(configuration);
  std::vector<std::string> command = start.prefix;
  for (std::string const& word :
       {std::string(IGMPSNOOPD), std::string("live"), std::string("--config"),
        directory_.file("switch.toml"), std::string("--control"), control()})
    command.push_back(word);
  command.insert(command.end(), start.options.begin(), start.options.end());
  std::vector<char*> arguments;
  for (std::string& word : command) arguments.push_back(word.data());
  arguments.push_back(nullptr);

  InterfaceTest::NetworkNamespace::Inside const inside(space);
  process_ = checked(fork(), "fork");
  if (process_ != 0) return;
  int const log = open(directory_.file("log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
  dup2(log, STDERR_FILENO);
  if (start.journal) setenv("JOURNAL_STREAM", journalStream(log).c_str(), 1);
  setenv("NOTIFY_SOCKET", directory_.file("notify").c_str(), 1);
  for (auto const& [name, value] : start.environment) setenv(name.c_str(), value.c_str(), 1);
  execvp(arguments.front(), arguments.data());
  _exit(127);
}

RunningAgent::~RunningAgent() {
  if (process_ > 0) {
    kill(process_, SIGKILL);
    waitpid(process_, nullptr, 0);
  }
  close(notifications_);
}

std::chrono::nanoseconds RunningAgent::processorTime() const {
  clockid_t clock{};
  timespec time{};
  if (clock_getcpuclockid(process_, &clock) != 0 || clock_gettime(clock, &time) < 0)
    throw std::runtime_error("the agent's processor time cannot be read");
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

void RunningAgent::configurationIs(std::string const& text) const {
  std::ofstream(directory_.file("switch.toml")) << text;
}

void RunningAgent::removeConfiguration() const {
  std::filesystem::remove(directory_.file("switch.toml"));
}

void RunningAgent::signal(int number) const {
  kill(process_, number);
}

std::optional<std::string> RunningAgent::notification(std::chrono::milliseconds longest) const {
  pollfd ready{notifications_, POLLIN, 0};
  if (poll(&ready, 1, static_cast<int>(longest.count())) <= 0) return std::nullopt;
  std::string text(4096, '\0');
  ssize_t const size = recv(notifications_, text.data(), text.size(), 0);
  text.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
  return text;
}

bool RunningAgent::awaitNotification(std::string const& beginning) const {
  for (auto const end = std::chrono::steady_clock::now() + 10s;
       std::chrono::steady_clock::now() < end;) {
    auto const text = notification(100ms);
    if (text && text->starts_with(beginning)) return true;
  }
  return false;
}

int RunningAgent::awaitExit() {
  for (auto const end = std::chrono::steady_clock::now() + 10s;
       std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(5ms)) {
    int status = 0;
    if (waitpid(process_, &status, WNOHANG) == 0) continue;
    process_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  return -1;
}

std::string RunningAgent::log() const {
  std::ostringstream text;
  text << std::ifstream(directory_.file("log")).rdbuf();
  return text.str();
}

}  // namespace Agent
