#pragma once

#include <CLI/CLI.hpp>

#include "apps/cli/ExitCode.h"

namespace twintrue::cli {

// Adds `inspect settings` and `inspect pattern`.
void add_inspect_settings(CLI::App& inspect, ExitCode* code);

}  // namespace twintrue::cli
