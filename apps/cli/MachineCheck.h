#pragma once

namespace twintrue::cli {

// Throws Failure (other) on a machine that the library can't convert a frame on.
void check_machine();

}  // namespace twintrue::cli
