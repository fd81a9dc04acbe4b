#pragma once

// What is to be drawn and written, worked out from the arguments before any work is done.

#include <string>

#include "apps/cli/commands/View.h"
#include "render/StereoRender.h"

namespace twintrue::cli {

enum class PictureFormat { kPng, kJpeg, kTiff, kExr };

struct ViewPlan {
  PictureFormat format = PictureFormat::kPng;
  render::View view;                                    // of one eye
  render::Window part;                                  // of it, that is drawn
  render::Layout layout = render::Layout::kSideBySide;  // of a blinking picture: the left eye's
  bool blink = false;
  bool compare = false;
  bool below = true;  // what a second lens file shows stands below what the first one does, or beside it
  render::Light sampling = render::Light::kEncoded;

  // Size of what both eyes share under one lens file, and of the whole picture.
  render::Window one() const { return render::layout_window(layout, part); }
  render::Window all() const;
  // Where the picture of the first or the second lens file stands in it.
  render::Window place(int lens) const;
};

// Throws Failure (usage) for a name without the ending of a format, or what its format can't hold.
PictureFormat format_of(const std::string& out, const std::string& layout);

// `frame_height`: of the first lens file, in pixels, from which a size follows that keeps what the frame
// shows. Throws Failure (usage).
ViewPlan plan_view(const ViewArguments& arguments, int frame_height);

// The samples that a picture of this format takes from a frame of those, and how they stand to light.
render::SampleType kept_type(PictureFormat format, render::SampleType of_frame);
render::Light kept_light(PictureFormat format);

// An XMP packet with the tags by which viewers know a half sphere, and its layout; empty for a picture that
// is none.
std::string panorama_tags(const ViewPlan& plan);

}  // namespace twintrue::cli
