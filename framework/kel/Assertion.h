#pragma once

#include "framework/kel/Export.h"

namespace Kel {

/// Prints the expression and its place on standard error, and aborts.
[[noreturn]] KEL_EXPORT void assertionFailed(char const* expression, char const* sourceFile,
                                             int line, char const* function);

}  // namespace Kel

/// Misuse that only a programming error can cause ends the process with `text`, the expression as
/// operators know it. The source file is the module's (see KEL_TRACE_MODULE).
#define KEL_ASSERT(expression, text) \
  (static_cast<bool>(expression)     \
       ? static_cast<void>(0)        \
       : ::Kel::assertionFailed(text, kelSourceFile, __LINE__, __func__))
