#pragma once

#include <string>
#include <vector>

#include "agent/output/Explanation.h"

/// An explanation in plain English, a sentence or more each. "This port" is the one in question.
namespace Agent {

/// "21:05:09" for what began so long ago, or is as old; empty if the time of day is not known.
std::string dateOf(Horix::Time ago, Explanation const& explanation);

/// What the host reports, or why there is nothing that it could.
std::string verdictOf(Explanation const& explanation);

/// How the other ports' wishes became the record.
std::string mergeOf(Explanation const& explanation);

/// What became of the source, without its address: "is not in the list: ...".
std::string fateOf(ExplainedSource const& source, Explanation const& explanation);

/// What of the group was ignored and why, a sentence each.
std::vector<std::string> ignoredOf(Explanation const& explanation);

/// What is odd about a port, or nothing.
std::string remarkOn(ExplainedPort const& port);

/// Whether the host says it, and to whom. None if there is no host.
std::vector<std::string> sendingOf(Explanation const& explanation);

/// "include 192.0.2.1", "exclude nothing".
std::string filterText(SourceFilter const& filter);

char const* name(MergeRule rule);
char const* name(Standing standing);
char const* name(Obstacle obstacle);

}  // namespace Agent
