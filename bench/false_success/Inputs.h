#pragma once

// Inputs that must calibrate, and inputs that can't or must not.

#include <functional>
#include <string>
#include <vector>

#include "Picture.h"

namespace twintrue::false_success {

// A frame as it is given to the program, with what is true of it.
struct Input {
  Picture frame;
  std::string lens;       // text of the lens file that is given
  std::string true_lens;  // text of the true one; empty if no lens file is true of the frame
};

struct Case {
  std::string name;
  bool good = false;  // must end as calibrated
  bool ignore_thresholds = false;
  std::function<Input()> make;
};

// All cases. `examples` holds frame.jpg, nominal.lens, truth.lens; `frames` (may be empty) folders with
// frame.png and the two.
std::vector<Case> all_cases(const std::string& examples, const std::string& frames);

}  // namespace twintrue::false_success
