#include "apps/cli/commands/Inspect.h"

#include "apps/cli/commands/InspectFeatures.h"
#include "apps/cli/commands/InspectLens.h"
#include "apps/cli/commands/InspectMatches.h"
#include "apps/cli/commands/InspectParams.h"
#include "apps/cli/commands/InspectSearch.h"
#include "apps/cli/commands/InspectSettings.h"
#include "apps/cli/commands/InspectStage.h"

namespace twintrue::cli {
namespace {

constexpr const char* kFooter =
    "The library's own messages go to standard error.\n"
    "Exit codes:\n"
    "  0  the stage ran, whatever its result\n"
    "  1  anything not below, such as an output file that can't be written\n"
    "  2  usage: arguments that can't be carried out\n"
    "  3  input unreadable: a file is missing, unreadable, or FRAME is no picture\n"
    "  4  lens or parameter file unusable: the stage can't be run with its contents\n"
    "  5  too few keypoints for the image asked for\n";

}  // namespace

void add_inspect(CLI::App& program, ExitCode* code) {
  CLI::App* inspect = program.add_subcommand("inspect", "Show what single stages make of their input");
  inspect->footer(kFooter);
  inspect->require_subcommand(1);
  add_inspect_lens(*inspect, code);
  add_inspect_params(*inspect, code);
  add_inspect_settings(*inspect, code);
  add_inspect_features(*inspect, code);
  add_inspect_matches(*inspect, code);
  add_inspect_search(*inspect, code);
  add_inspect_stage(*inspect, code);
}

}  // namespace twintrue::cli
