#pragma once

// Frames with known truth: a folder with frame.png, nominal.lens and truth.lens.

#include <filesystem>
#include <string>

#include "Case.h"

namespace twintrue::accuracy {

// Detects and matches under the parameter file, as a run does. Throws std::runtime_error with its reason for
// a folder or a parameter file that can't be worked with, std::bad_alloc and std::system_error.
Case frame_case(const std::filesystem::path& folder, const std::string& params);

}  // namespace twintrue::accuracy
