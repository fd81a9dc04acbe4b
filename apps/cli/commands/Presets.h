#pragma once

#include <string>

namespace twintrue::cli {

// What `twintrue presets` prints: the built-in parameter files, one a line, each with what it is for.
std::string list_of_presets();

}  // namespace twintrue::cli
