#pragma once

#include <functional>
#include <string>
#include <utility>

namespace Agent {

/// What a client is told, made piece by piece as the client reads. An answer holds nothing that a
/// change of the switch between two pieces could invalidate: it keeps keys and looks them up.
class Answer {
 public:
  enum class Progress {
    more,     ///< call again
    waiting,  ///< there will be more, as `wake` tells
    done,
  };

  Answer() = default;
  Answer(Answer const&) = delete;
  Answer& operator=(Answer const&) = delete;
  virtual ~Answer() = default;

  /// Appends the next piece, which may be empty, and takes little time to make.
  virtual Progress advance(std::string& out) = 0;

  /// To be called when an answer that waited has more. Nothing is sent before it returns.
  void wakeIs(std::function<void()> wake) { wake_ = std::move(wake); }

 protected:
  void wake() const { wake_(); }

 private:
  std::function<void()> wake_ = [] {};
};

/// An answer that is there at once.
class TextAnswer final : public Answer {
 public:
  explicit TextAnswer(std::string text) : text_(std::move(text)) {}

  Progress advance(std::string& out) override {
    out += text_;
    return Progress::done;
  }

 private:
  std::string text_;
};

}  // namespace Agent
