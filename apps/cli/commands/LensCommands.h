#pragma once

#include "apps/cli/ExitCode.h"

namespace CLI {
class App;
}

namespace twintrue::cli {

// Adds `lens` and its subcommands to the program. What runs writes its exit code to `code`.
void add_lens_commands(CLI::App& program, ExitCode* code);

}  // namespace twintrue::cli
