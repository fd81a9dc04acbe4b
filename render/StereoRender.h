#pragma once

// Pictures of both eyes under a view, put together for a viewer.
//
// Names follow lens/RigModel.h: "left" is the left eye, whose picture stands in the right half of the frame.

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

// One frame under one lens file and one view. Only read once made; any number of threads.
class StereoRender {
 public:
  // `rig`: usable (see rig_is_usable()), of a frame that is at most as large as this one. `view`: possible.
  // `sampling`: whether samples are interpolated in proportion to light or as displays take them. The frame
  // is not looked at any more once this returns. Uses the threads of the caller's team. Memory: 8 bytes a
  // pixel of the frame, or 16 where its samples are not bytes. Throws std::bad_alloc and LensModelError.
  StereoRender(const FramePixels& frame, const RigModel& rig, const View& view, Light sampling);

  // Fills `room`, which has the size of layout_window(layout, part); `part` lies in the view's picture. The
  // result is the same for every number of threads and every instruction set. Black is what an eye does not
  // see.
  void draw(Layout layout, const Window& part, const PictureRoom& room) const;

 private:
  struct Eye {
    Eye(const FramePixels& frame, const EyeModel& model, const View& view, Light sampling);
    EyePicture picture;
    ViewMap map;
  };

  Eye left_;
  Eye right_;
};

}  // namespace twintrue::render
