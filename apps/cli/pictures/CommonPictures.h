#pragma once

// The two formats that nearly all frames come in, by small libraries of their own: they are there at once,
// where the picture helper takes longer to start than a small frame to calibrate.

#include <optional>
#include <string>

#include "apps/cli/pictures/Frame.h"

namespace twintrue::cli {

// Reads a sound JPEG of grey or RGB, or a sound PNG of 8 bits a sample without a palette, into the bytes that
// the picture helper would give. Nothing for every other file, damaged ones and those beyond the limits of a
// frame among them: the helper has the say on them.
std::optional<Frame> read_common_picture(const std::string& path);

}  // namespace twintrue::cli
