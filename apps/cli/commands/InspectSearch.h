#pragma once

#include <CLI/CLI.hpp>

#include "apps/cli/ExitCode.h"

namespace twintrue::cli {

// Adds `inspect search`.
void add_inspect_search(CLI::App& inspect, ExitCode* code);

}  // namespace twintrue::cli
