// The program `twintrue`: reads the command line, runs one command, turns errors into messages and exit
// codes.

#include <CLI/CLI.hpp>
#include <exception>
#include <iostream>
#include <new>

#include "apps/cli/ChatterCapture.h"
#include "apps/cli/ExitCode.h"
#include "apps/cli/Problem.h"
#include "apps/cli/commands/Calibrate.h"
#include "apps/cli/commands/Inspect.h"
#include "apps/cli/commands/Presets.h"

namespace {

using twintrue::cli::ExitCode;

constexpr const char* kExitCodes =
    "Exit codes:\n"
    "  0  calibrated, if need be with reservations (\"calibrated, but ...\")\n"
    "  1  anything not below, such as an output file that can't be written\n"
    "  2  usage: arguments that can't be carried out\n"
    "  3  input unreadable: FRAME, LENS or PARAMS is missing, unreadable, or FRAME is no picture\n"
    "  4  lens or parameter file unusable: its contents, or a frame smaller than the lens file says\n"
    "  5  too few keypoints or matches; no lens file is written\n"
    "  6  not calibrated: the quality test failed, or the matches speak against the result; the lens file "
    "is\n"
    "     written all the same\n";

int run(int argc, char** argv) {
  CLI::App program("TwinTrue: calibration of dual-fisheye stereo lenses from one frame", "twintrue");
  program.set_version_flag("--version", "twintrue " TWINTRUE_VERSION);
  // Not "exactly one": an unknown name is then told of by its name.
  program.require_subcommand(0, 1);
  program.footer(kExitCodes);
  ExitCode code = ExitCode::kOther;
  twintrue::cli::add_calibrate(program, &code);
  for (CLI::App* command : program.get_subcommands({})) command->footer(kExitCodes);
  twintrue::cli::add_presets(program, &code);
  twintrue::cli::add_inspect(program, &code);
  try {
    program.parse(argc, argv);
    if (program.get_subcommands().empty()) {
      std::cerr << program.help() << "\ntwintrue: a subcommand is missing, such as calibrate\n";
      code = ExitCode::kUsage;
    }
  } catch (const CLI::ParseError& error) {
    // Asking for help or the version arrives here as well, as a success.
    return program.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::kUsage);
  } catch (const twintrue::cli::Failure& failure) {
    for (const auto& problem : failure.problems()) std::cerr << "twintrue: " << format_problem(problem);
    code = failure.code();
  }
  return static_cast<int>(code);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    twintrue::cli::open_missing_standard_streams();
    const int code = run(argc, argv);
    std::cout.flush();
    if (!std::cout) {
      std::cerr << "twintrue: standard output could not be written\n";
      return static_cast<int>(ExitCode::kOther);
    }
    return code;
  } catch (const std::bad_alloc&) {
    std::cerr << "twintrue: out of memory\n";
  } catch (const std::exception& error) {
    std::cerr << "twintrue: " << error.what() << "\n";
  }
  return static_cast<int>(ExitCode::kOther);
}
