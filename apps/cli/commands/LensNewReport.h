#pragma once

#include <string>

#include "apps/cli/Problem.h"
#include "lens/FirstLens.h"

namespace twintrue::cli {

// What a lens was made of and how well its curve follows: some lines, each with a newline at its end.
std::string describe_first_lens(const FirstLensInput& input, const FirstLens& lens);

// What a person should know of the file besides; empty if there is nothing.
std::string first_lens_notes(const FirstLensInput& input, const FirstLens& lens);

// Why no lens file could be made, in the words of the command line.
Problem problem_of(const FirstLensError& error, const FirstLensInput& input);

}  // namespace twintrue::cli
