#pragma once

#include <memory>
#include <string>
#include <vector>

#include "apps/cli/ExitCode.h"

namespace CLI {
class App;
}

namespace twintrue::cli {

// The program's commands and options, ready to parse. What runs writes its exit code to `code`, which must
// outlive the parser.
std::unique_ptr<CLI::App> make_command_line(ExitCode* code);

// Reads a command line, without the program's name in front, and runs the command that it names. Results go
// to standard output, errors to standard error. Throws what no command expects, such as std::bad_alloc.
ExitCode run_command_line(std::vector<std::string> arguments);

}  // namespace twintrue::cli
