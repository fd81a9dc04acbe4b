#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lens/RigModel.h"
#include "search/RayMatch.h"
#include "support/PlainLens.h"

namespace twintrue::accuracy {

// A rig with matches and known truth.
struct Case {
  std::string name;
  PlainLens lens;  // `pose` is the lens file's
  Pose truth{};    // the pose that the matches were made with
  RigState rig;    // as the library reads the lens file
  std::vector<RayMatch> matches;
  std::int32_t cells = 0;
};

}  // namespace twintrue::accuracy
