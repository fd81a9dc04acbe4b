#pragma once

#include <CLI/CLI.hpp>

#include "apps/cli/ExitCode.h"

namespace twintrue::cli {

// Adds `inspect features`.
void add_inspect_features(CLI::App& inspect, ExitCode* code);

}  // namespace twintrue::cli
