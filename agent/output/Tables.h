#pragma once

#include <iosfwd>

#include "agent/output/Explanation.h"
#include "agent/output/Snapshot.h"

/// Output for people, in tables that fit 100 columns. What is empty is said in words.
namespace Agent {

/// The hosts with their records, and what ports ignored if there is any.
void printSnapshot(std::ostream& out, Snapshot const& snapshot);

void printExplanation(std::ostream& out, Explanation const& explanation);

}  // namespace Agent
