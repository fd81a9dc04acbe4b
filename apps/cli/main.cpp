// The program `twintrue`.

#include <exception>
#include <iostream>
#include <new>
#include <string>
#include <vector>

#include "apps/cli/ChatterCapture.h"
#include "apps/cli/CommandLine.h"
#include "apps/cli/ExitCode.h"

int main(int argc, char** argv) {
  using twintrue::cli::ExitCode;
  ExitCode code = ExitCode::kOther;
  try {
    twintrue::cli::open_missing_standard_streams();
    // A caller may leave out even the program's name.
    const std::vector<std::string> all(argv, argv + argc);
    code = twintrue::cli::run_command_line({all.empty() ? all.begin() : all.begin() + 1, all.end()});
    std::cout.flush();
    if (!std::cout) {
      std::cerr << "twintrue: standard output could not be written\n";
      code = ExitCode::kOther;
    }
  } catch (const std::bad_alloc&) {
    std::cerr << "twintrue: out of memory\n";
    code = ExitCode::kOther;
  } catch (const std::exception& error) {
    std::cerr << "twintrue: " << error.what() << "\n";
    code = ExitCode::kOther;
  }
  return static_cast<int>(code);
}
