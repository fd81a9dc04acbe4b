#pragma once

// Inputs that must calibrate, and inputs that can't or must not.

#include <functional>
#include <string>
#include <vector>

#include "Picture.h"

namespace twintrue::false_success {

// Where a spoilt picture shows what the camera saw: the pixels, to the right and downward, from a place of an
// eye's half to what stands there now. Places are parts of the frame's height off the middle of the half.
using Warp = std::function<std::array<double, 2>(bool left_eye, double u, double v)>;

// A frame as it is given to the program, with what is true of it.
struct Input {
  Picture frame;
  std::string lens;         // text of the lens file that is given
  std::string true_lens;    // text of the true one; empty if no lens file is true of the frame
  std::vector<Warp> warps;  // by which the frame shows the scene otherwise than the true lens does
};

struct Case {
  std::string name;
  std::string kind;
  bool good = false;  // must end as calibrated
  bool ignore_thresholds = false;
  bool shows = true;   // whether the frame shows what is wrong with it
  bool single = true;  // one fault, or several at once
  std::function<Input()> make;
};

// All cases. `examples` holds frame.jpg, nominal.lens, truth.lens; `frames` (may be empty) folders with
// frame.png and the two.
std::vector<Case> named_cases(const std::string& examples, const std::string& frames);

// One fault at a time, by kind, strength and scene; then mixtures. Drawn from fixed seeds.
std::vector<Case> drawn_cases(const std::string& examples, const std::string& frames);

// A frame with its two lens files.
Input read_input(const std::string& frame, const std::string& folder);
// The same at half the width.
Input at_half(Input input);

}  // namespace twintrue::false_success
