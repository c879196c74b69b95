#include "agent/live/Heap.h"

#include <limits>
#include <malloc.h>

namespace Agent {

void freeMemoryInSmallSteps() {
  mallopt(M_MXFAST, 0);
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  // Setting one of the thresholds stops the other from rising, up to this, with what is freed.
  constexpr int highest = 32 << 20;
  mallopt(M_MMAP_THRESHOLD, highest);
}

}  // namespace Agent
