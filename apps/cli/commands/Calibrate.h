#pragma once

#include <CLI/CLI.hpp>

#include "apps/cli/ExitCode.h"

namespace twintrue::cli {

// Adds `twintrue calibrate` to the program. When the command line names it, parsing runs it and stores its
// exit code in *code.
void add_calibrate(CLI::App& program, ExitCode* code);

}  // namespace twintrue::cli
