#pragma once

namespace Agent {

/// Has what is freed wait for what is allocated next. By itself glibc merges small pieces when a
/// large one is asked for, and gives the end of the heap back, all at once: some 50 ms after the
/// entries of 320,000 memberships have gone. Called once, before the event loop runs.
void freeMemoryInSmallSteps();

}  // namespace Agent
