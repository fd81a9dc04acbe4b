#pragma once

#include <CLI/CLI.hpp>

#include "apps/cli/ExitCode.h"

namespace twintrue::cli {

// Adds `inspect params`.
void add_inspect_params(CLI::App& inspect, ExitCode* code);

}  // namespace twintrue::cli
