#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "apps/cli/ExitCode.h"
#include "search/RayMatch.h"

namespace twintrue::cli {

// Adds `inspect matches`.
void add_inspect_matches(CLI::App& inspect, ExitCode* code);

// The accepted rows of a file that `inspect matches` wrote, or another tool with the same columns: of these
// the search needs x_a, y_a, x_b, y_b, rank and accepted. Columns may stand in any order; lines that begin
// with # are comments. Throws Failure (input unreadable).
std::vector<RayMatch> read_matches(const std::string& path);

}  // namespace twintrue::cli
