#pragma once

#include <initializer_list>
#include <string>
#include <vector>

#include "framework/kel/Trace.h"

namespace Bridging::IgmpSnooping::Proxy::Testing {

/// Enables levels of one handle's traces while it lives, and keeps what is traced.
class TraceCapture {
 public:
  static constexpr char const* adapter = "IgmpSnoopingProxyAdapter";
  static constexpr char const* pam = "IgmpSnooping::Proxy::Pam";

  struct Line {
    std::string handle, object, sourceFile, function;
    int level;
    std::string text;
  };

  explicit TraceCapture(std::initializer_list<int> levels, char const* handle = adapter)
      : handle_(Kel::traceHandle(handle)), levels_(levels) {
    handle_.enabledIs(true);
    for (int const level : levels_) handle_.levelEnabledIs(level, true);
    Kel::traceSinkIs([this](Kel::TraceMessage const& message) {
      lines_.push_back({std::string(message.handle.stringValue().view()), message.object,
                        message.sourceFile, message.function, message.level,
                        std::string(message.text)});
    });
  }
  TraceCapture(TraceCapture const&) = delete;
  TraceCapture& operator=(TraceCapture const&) = delete;
  ~TraceCapture() {
    Kel::traceSinkIs(nullptr);
    for (int const level : levels_) handle_.levelEnabledIs(level, false);
    handle_.enabledIs(false);
  }

  static TraceCapture ofEveryLevel(char const* handle = adapter) {
    return TraceCapture({0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}, handle);
  }

  std::vector<Line> const& lines() const { return lines_; }

  /// "level text" of each line.
  std::vector<std::string> texts() const {
    std::vector<std::string> texts;
    for (Line const& line : lines_) texts.push_back(std::to_string(line.level) + ' ' + line.text);
    return texts;
  }

  void clear() { lines_.clear(); }

 private:
  Kel::TraceHandle& handle_;
  std::vector<int> levels_;
  std::vector<Line> lines_;
};

}  // namespace Bridging::IgmpSnooping::Proxy::Testing
