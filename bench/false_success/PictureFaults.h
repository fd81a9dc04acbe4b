#pragma once

// Photographic faults, and things drawn into a frame.

#include <functional>

#include "Draws.h"
#include "Inputs.h"

namespace twintrue::false_success {

// Reads every pixel from elsewhere in its half. Beyond the half it is black.
void take_from(Picture& picture, const Warp& from);

// Greys the picture where `keep` doesn't say so, by place in a half: -0.5 to 0.5, to the right and downward.
void grey(Picture& picture, const std::function<bool(double, double)>& keep);

// Strengths are as all_faults() names them.
void add_noise(Input& input, double levels, accuracy::Draws& draws);
void expose(Input& input, double stops, accuracy::Draws& draws);
void code_as_jpeg(Input& input, double below_best, accuracy::Draws& draws);
void blur_both(Input& input, double sigma, accuracy::Draws& draws);
void blur_one(Input& input, double sigma, accuracy::Draws& draws);
void vignette(Input& input, double share, accuracy::Draws& draws);
void add_lights(Input& input, double count, accuracy::Draws& draws);
void add_dirt(Input& input, double count, accuracy::Draws& draws);
void lower_contrast(Input& input, double share, accuracy::Draws& draws);
void draw_logo(Input& input, double size, accuracy::Draws& draws);
void draw_timecode(Input& input, double lines, accuracy::Draws& draws);
void draw_marks(Input& input, double count, accuracy::Draws& draws);

}  // namespace twintrue::false_success
