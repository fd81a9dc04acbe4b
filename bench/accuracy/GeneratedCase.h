#pragma once

// Rigs and matches made from random numbers, always the same for a seed.

#include <cstdint>
#include <string>

#include "Case.h"
#include "Draws.h"

namespace twintrue::accuracy {

struct CaseSettings {
  std::uint64_t seed = 1;
  double angle_error_deg = 1.5;   // true errors go up to this in every angle of both eyes
  double offset_error_px = 10.0;  // and to this in every offset, pixels of a frame 8192 wide
  double outliers = 0.2;          // share of the matches
  double noise_px = 0.3;          // of each coordinate, before it is rounded to whole pixels
  int fewest_matches = 300;
  int most_matches = 20000;
};

// A lens near to what is built, with the numbers rounded as a maker would. The index sets format and width.
PlainLens draw_lens(Draws& draws, int index);

// The text of its lens file. The language knows no exponents.
std::string lens_text(const PlainLens& lens);

// Case `index`, one of a row of them: formats and frame widths take turns, numbers of matches spread evenly
// over their range. Cells and ranks follow the raster of the parameter file, so a small frame may hold fewer
// matches than are wanted. Throws std::runtime_error if the file gives no raster.
Case generate_case(const CaseSettings& settings, int index, const std::string& params);

}  // namespace twintrue::accuracy
