#pragma once

#include <CLI/CLI.hpp>

#include "apps/cli/ExitCode.h"

namespace twintrue::cli {

// Adds `twintrue inspect` with its subcommands, which show what single stages make of their input. When the
// command line names one, parsing runs it and stores its exit code in *code.
void add_inspect(CLI::App& program, ExitCode* code);

}  // namespace twintrue::cli
