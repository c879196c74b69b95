#pragma once

#include <cstdint>
#include <functional>
#include <iosfwd>
#include <sstream>
#include <string_view>
#include <vector>

#include "framework/kel/Export.h"
#include "framework/kel/Text.h"

namespace Kel {

/// The switches and the hit counter of one module's trace statements. Handles are known by name,
/// are made on first use and live as long as the process.
class KEL_EXPORT TraceHandle {
 public:
  static constexpr int levels = 16;

  explicit TraceHandle(Name name);
  TraceHandle(TraceHandle const&) = delete;
  TraceHandle& operator=(TraceHandle const&) = delete;
  ~TraceHandle();

  Name const& name() const noexcept { return name_; }

  bool enabled() const noexcept { return enabled_; }
  void enabledIs(bool enabled) noexcept;

  /// A level that there is not is never enabled.
  bool levelEnabled(int level) const noexcept {
    return isLevel(level) && (levelFlags_ >> level & 1u) != 0;
  }
  /// Throws RangeException for a level that there is not.
  void levelEnabledIs(int level, bool enabled);

  /// How often the module's statements were reached; those reached while enabled count twice.
  std::uint64_t hits() const noexcept { return hits_; }

  void hit() noexcept { hits_ += hitStep_; }

  /// Whether a statement of this level has to build its message.
  bool wanted(int level) const noexcept {
    return isLevel(level) && (wantedLevels_ >> level & 1u) != 0;
  }

  /// While set, every statement of every handle also writes its message here.
  static std::ostream* coverageStream() noexcept { return coverageStream_; }
  static void coverageStreamIs(std::ostream* stream) noexcept;

 private:
  static constexpr bool isLevel(int level) noexcept { return level >= 0 && level < levels; }
  void updateStatements() noexcept;

  static std::ostream* coverageStream_;
  static TraceHandle* first_;

  // What a statement reads, kept in step with the switches: it is reached far more often than they
  // are set.
  std::uint64_t hits_ = 0;
  std::uint32_t hitStep_ = 1;
  std::uint32_t wantedLevels_ = 0;

  std::uint32_t levelFlags_ = 0;
  bool enabled_ = false;
  TraceHandle* next_;
  Name name_;
};

/// The handle of that name, made if need be.
KEL_EXPORT TraceHandle& traceHandle(Name const& name);

/// Every handle made so far, by name.
KEL_EXPORT std::vector<TraceHandle*> traceHandles();

/// One message on its way to the sink.
struct TraceMessage {
  Name const& handle;
  char const* object;
  std::string_view text;
  int level;
  char const* sourceFile;
  int line;
  char const* function;
};

using TraceSink = std::function<void(TraceMessage const&)>;

/// Where messages go. Without a sink they are lines on standard error.
KEL_EXPORT void traceSinkIs(TraceSink sink);

/// Hands a message that was built to the sink if its level is enabled, and to the coverage
/// stream if that is set.
KEL_EXPORT void traceHelper(TraceHandle& facility, char const* object,
                            std::ostringstream const& stream, int level, bool levelEnabled,
                            char const* sourceFile, int line, char const* function);

}  // namespace Kel

/// Names a module's trace handle and the source file that its messages and assertions give.
/// NOLINTNEXTLINE(bugprone-macro-parentheses)
#define KEL_TRACE_MODULE(handleName, sourceFileName)                   \
  namespace {                                                          \
  ::Kel::TraceHandle& kelTraceHandle = ::Kel::traceHandle(handleName); \
  constexpr char const* kelSourceFile = sourceFileName;                \
  }

/// Writes `message`, a chain of stream insertions, at a level. The message is built only if
/// somebody wants it.
#define KEL_TRACE(level, message) KEL_TRACE_OF(__func__, level, message)

/// For the helper functions of a handler, whose messages give the handler's name.
#define KEL_TRACE_OF(handler, level, message)                                            \
  do {                                                                                   \
    kelTraceHandle.hit();                                                                \
    if (kelTraceHandle.wanted(level)) {                                                  \
      std::ostringstream kelStream;                                                      \
      kelStream << message; /* NOLINT(bugprone-macro-parentheses) */                     \
      ::Kel::traceHelper(kelTraceHandle, "<unknown>", kelStream, level,                  \
                         kelTraceHandle.enabled() && kelTraceHandle.levelEnabled(level), \
                         kelSourceFile, __LINE__, handler);                              \
    }                                                                                    \
  } while (false)
