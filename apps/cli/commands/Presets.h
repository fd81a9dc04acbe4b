#pragma once

#include <CLI/CLI.hpp>

#include "apps/cli/ExitCode.h"

namespace twintrue::cli {

// Adds `twintrue presets`, which lists the built-in parameter files, and `twintrue presets show NAME`, which
// prints one. When the command line names it, parsing runs it and stores its exit code in *code.
void add_presets(CLI::App& program, ExitCode* code);

}  // namespace twintrue::cli
