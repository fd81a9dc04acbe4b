#pragma once

#include <CLI/CLI.hpp>

#include "apps/cli/ExitCode.h"

namespace twintrue::cli {

// Adds `inspect lens-text`, `lens`, `ray`, `image` and `write`.
void add_inspect_lens(CLI::App& inspect, ExitCode* code);

}  // namespace twintrue::cli
