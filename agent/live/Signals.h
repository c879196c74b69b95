#pragma once

#include <functional>
#include <memory>

#include "platform/horix/EventLoop.h"

namespace Agent {

/// SIGTERM, SIGINT, SIGHUP and SIGUSR2 as input of an event loop, which outlives it. One that came
/// before is not lost, as long as the signals were blocked by then.
class Signals {
 public:
  /// @param handle is called on the loop with the number of the signal.
  Signals(Horix::EventLoop& loop, std::function<void(int)> handle);
  Signals(Signals const&) = delete;
  Signals& operator=(Signals const&) = delete;
  ~Signals();

 private:
  class Input;

  void handleReady();

  int descriptor_;
  std::function<void(int)> handle_;
  std::unique_ptr<Input> input_;
};

}  // namespace Agent
