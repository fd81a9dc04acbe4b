#pragma once

// What can be wrong with a frame or its lens file, kind by kind, in several strengths.

#include <string>
#include <vector>

#include "Draws.h"
#include "Inputs.h"

namespace twintrue::false_success {

struct Fault {
  std::string kind;
  std::string form;               // its name, with a place for the strength
  std::vector<double> strengths;  // from mild to hard; pixels are those of a frame 2048 wide
  void (*apply)(Input& input, double strength, accuracy::Draws& draws);
  bool shows = true;  // whether any frame could show it
};

const std::vector<Fault>& all_faults();

}  // namespace twintrue::false_success
