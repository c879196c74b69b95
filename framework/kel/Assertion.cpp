#include "framework/kel/Assertion.h"

#include <cstdio>
#include <cstdlib>

namespace Kel {

void assertionFailed(char const* expression, char const* sourceFile, int line,
                     char const* function) {
  std::fprintf(stderr, "%s:%d: %s: assertion failed: %s\n", sourceFile, line, function, expression);
  std::abort();
}

}  // namespace Kel
