#pragma once

#include <string>

namespace twintrue::cli {

// The text of presets/default.yaml as it was when the program was built.
const std::string& default_preset();

}  // namespace twintrue::cli
