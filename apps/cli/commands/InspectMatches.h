#pragma once

#include <string>
#include <vector>

#include "apps/cli/commands/InspectRun.h"
#include "search/RayMatch.h"

namespace twintrue::cli {

// `inspect matches`: all matches from the left half to the right one, as CSV.
void inspect_matches(const RunArguments& arguments);

// The accepted rows of a file that `inspect matches` wrote, or another tool with the same columns: of these
// the search needs x_a, y_a, x_b, y_b, rank and accepted. Columns may stand in any order; lines that begin
// with # are comments. Throws Failure (input unreadable).
std::vector<RayMatch> read_matches(const std::string& path);

}  // namespace twintrue::cli
