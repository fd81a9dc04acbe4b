#pragma once

// What a viewer sees, as the pictures of a page.

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "apps/cli/pictures/Frame.h"
#include "apps/cli/report/Misalignment.h"
#include "lens/RigModel.h"

namespace twintrue::cli {

// A JPEG, as a page holds it.
struct PagePicture {
  int width = 0;
  int height = 0;
  std::string uri;  // data:image/jpeg;base64,...
};

// One direction that both eyes look in, as red-cyan anaglyph. All three are parts of one rectilinear picture
// without pan, so a point of the scene has one row for both eyes at any distance if the lens file is right.
struct DirectionView {
  const char* name = "";
  PagePicture given;
  std::optional<PagePicture> corrected;
  // What it shows, as tangents right and up of straight ahead.
  Point low{};
  Point high{};
};

// Left, straight ahead, right. `corrected` may be null. The rigs are usable and their frame is at most as
// large as `frame`. Runs on the caller's team. Throws std::bad_alloc and LensModelError.
std::vector<DirectionView> draw_directions(const Frame& frame, const RigModel& given,
                                           const RigModel* corrected);

// The frame itself, small, and how bright it is.
struct FramePreview {
  PagePicture picture;
  double mean = 0.0;    // of the display values in both circles, 0 to 255
  double spread = 0.0;  // their standard deviation
};

FramePreview draw_frame(const Frame& frame, const std::array<Circle, 2>& circles);

}  // namespace twintrue::cli
