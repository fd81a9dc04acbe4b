#pragma once

#include <string>
#include <vector>

#include "FrameRun.h"

namespace twintrue::refine_bench {

// What can be done to a frame: "none" and harms that a capture or a file may come with.
const std::vector<std::string>& spoil_names();

// Throws std::runtime_error for a name that there is none of.
void spoil(Pixels& pixels, const std::string& name);

}  // namespace twintrue::refine_bench
