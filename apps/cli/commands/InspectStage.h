#pragma once

#include <string>
#include <vector>

#include "apps/cli/commands/InspectRun.h"

namespace twintrue::cli {

struct StageArguments : RunArguments {
  std::string stage;    // one of stage_names()
  std::string picture;  // the TIFF to write
};

// The images between the steps of detection, in their order.
const std::vector<std::string>& stage_names();

// `inspect stage`: one of them, as a TIFF of 32-bit floats.
void inspect_stage(const StageArguments& arguments);

}  // namespace twintrue::cli
