#pragma once

#include <string>
#include <vector>

#include "apps/cli/ExitCode.h"

namespace twintrue::cli {

// Reads a command line, without the program's name in front, and runs the command that it names. Results go
// to standard output, errors to standard error. Throws what no command expects, such as std::bad_alloc.
ExitCode run_command_line(std::vector<std::string> arguments);

}  // namespace twintrue::cli
