#pragma once

#include "apps/cli/commands/InspectRun.h"

namespace twintrue::cli {

// `inspect features`: keypoints and descriptors of a half of the frame, as CSV.
void inspect_features(const RunArguments& arguments);

}  // namespace twintrue::cli
