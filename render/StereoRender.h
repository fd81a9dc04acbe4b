#pragma once

// Pictures of both eyes under a view, put together for a viewer.
//
// Names follow lens/RigModel.h: "left" is the left eye, whose picture stands in the right half of the frame.

#include <memory>

#include "lens/RigModel.h"
#include "render/EyePicture.h"
#include "render/Pixels.h"
#include "render/View.h"
#include "render/ViewMap.h"

namespace twintrue::render {

// How both eyes share one picture.
enum class Layout {
  kLeftEye,
  kRightEye,
  kSideBySide,  // the left eye on the left
  kTopBottom,   // the left eye on top
  // The brightness of the left eye in red and that of the right one in green and blue. Without colours, since
  // a red thing would be bright for one eye and dark for the other.
  kAnaglyphRedCyan,
  // The left eye in red and green, the right one in blue: yellow and blue are told apart by people who do not
  // tell red from green.
  kAnaglyphAmberBlue,
  kDifference,  // of the display values, channel by channel, without sign: black where both eyes see the same
};

// Part of an eye's picture, pixels.
struct Window {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
};

constexpr Window whole_window(const View& view) { return {0, 0, view.width, view.height}; }

// Size of the picture that a layout makes of such a part of both eyes; x and y are 0.
Window layout_window(Layout layout, const Window& part);

// Both eyes' pictures, cut from a frame under one lens file. Making them takes longer than drawing a small
// view, and several views of like density may share them.
struct StereoPictures {
  std::shared_ptr<const EyePicture> left;
  std::shared_ptr<const EyePicture> right;

  // `rig`: usable (see rig_is_usable()), of a frame that is at most as large as this one. `sampling`: whether
  // samples are interpolated in proportion to light or as displays take them. `density`: of the views (see
  // view_density()); one that has more pixels is drawn with less detail than the frame holds. The frame is
  // not looked at any more once this returns. Uses the threads of the caller's team. Memory: 8 bytes a pixel
  // of the frame, or 16 where its samples are not bytes, divided by the square of the reduction. Throws
  // std::bad_alloc and LensModelError.
  StereoPictures(const FramePixels& frame, const RigModel& rig, Light sampling, double density);
};

// One frame under one lens file and one view. Only read once made; any number of threads.
class StereoRender {
 public:
  // `rig`: that of the pictures, which are shared with it. `view`: possible. Uses the threads of the caller's
  // team. Throws std::bad_alloc and LensModelError.
  StereoRender(const StereoPictures& pictures, const RigModel& rig, const View& view);

  // Fills `room`, which has the size of layout_window(layout, part); `part` lies in the view's picture. The
  // result is the same for every number of threads and every instruction set. Black is what an eye does not
  // see.
  void draw(Layout layout, const Window& part, const PictureRoom& room) const;

 private:
  struct Eye {
    std::shared_ptr<const EyePicture> picture;
    ViewMap map;
  };

  Eye left_;
  Eye right_;
};

}  // namespace twintrue::render
