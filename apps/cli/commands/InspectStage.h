#pragma once

#include <CLI/CLI.hpp>

#include "apps/cli/ExitCode.h"

namespace twintrue::cli {

// Adds `inspect stage`.
void add_inspect_stage(CLI::App& inspect, ExitCode* code);

}  // namespace twintrue::cli
