#pragma once

namespace Agent {

/// Has the program end with one line on standard error, and status 1, when memory runs out. Nothing
/// is destroyed then: what withdraws memberships and tells of it needs memory itself.
void endWhenMemoryRunsOut();

}  // namespace Agent
