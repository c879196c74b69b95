#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "tests/agent/replay/CaptureTesting.h"
#include "tests/platform/interface/VethCable.h"

namespace Agent {

/// An igmpsnoopd that runs live in a network namespace, and what its service manager hears of it.
class RunningAgent {
 public:
  struct Start {
    std::vector<std::string> prefix = {};  ///< a program that starts it, with arguments
    std::map<std::string, std::string> environment = {};
    std::vector<std::string> options = {};  ///< of its own
    bool journal = false;                   ///< has it take its log for the journal
  };

  RunningAgent(InterfaceTest::NetworkNamespace const& space, std::string const& configuration,
               Start const& start);
  RunningAgent(RunningAgent const&) = delete;
  RunningAgent& operator=(RunningAgent const&) = delete;
  ~RunningAgent();

  pid_t process() const { return process_; }
  /// What it has taken of the processor.
  std::chrono::nanoseconds processorTime() const;
  void configurationIs(std::string const& text) const;
  void removeConfiguration() const;
  /// Its control socket.
  std::string control() const { return directory_.file("control"); }
  void signal(int number) const;

  /// The next message to the service manager; nothing if none comes within the time.
  std::optional<std::string> notification(std::chrono::milliseconds longest) const;
  /// Waits for a message that begins so. Returns whether one came within two seconds.
  bool awaitNotification(std::string const& beginning) const;

  /// Waits for the end. Returns its exit status, or -1 if it did not exit by itself in five
  /// seconds.
  int awaitExit();
  std::string log() const;

 private:
  TemporaryDirectory directory_;
  int notifications_ = -1;
  pid_t process_ = -1;
};

}  // namespace Agent
