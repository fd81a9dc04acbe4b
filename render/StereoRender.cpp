#include "render/StereoRender.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

#include "base/ParallelEach.h"
#include "render/SampleKernel.h"
#include "render/ToneCode.h"

namespace twintrue::render {
namespace {

constexpr std::size_t kNumbers = 4;  // of a pixel

// Rows that one thread draws one after the other: neighbours are sampled from pixels that they share.
constexpr int kBand = 16;

// Weights of red, green and blue in brightness (ITU-R BT.709).
float brightness(const float* pixel) { return 0.2126f * pixel[0] + 0.7152f * pixel[1] + 0.0722f * pixel[2]; }

// One row of both eyes, and what it is worked out with.
struct RowSpace {
  explicit RowSpace(int width)
      : x(static_cast<std::size_t>(width)), y(x.size()), left(x.size() * kNumbers), right(left.size()) {}
  std::vector<double> x, y;
  std::vector<float> left, right;
};

// Puts the brightness of both eyes into the left row; `channels` of each pixel are the left eye's.
void mix_anaglyph(RowSpace& row, std::size_t channels) {
  for (std::size_t i = 0; i < row.left.size(); i += kNumbers) {
    const float of_left = brightness(&row.left[i]);
    const float of_right = brightness(&row.right[i]);
    for (std::size_t c = 0; c < 3; ++c) row.left[i + c] = c < channels ? of_left : of_right;
  }
}

void mix_difference(RowSpace& row, Light light) {
  for (std::size_t i = 0; i < row.left.size(); ++i) {
    const float a = row.left[i];
    const float b = row.right[i];
    row.left[i] = light == Light::kEncoded
                      ? std::fabs(a - b)
                      : light_of_display(std::fabs(display_of_light(a) - display_of_light(b)));
  }
}

bool needs_left(Layout layout) { return layout != Layout::kRightEye; }
bool needs_right(Layout layout) { return layout != Layout::kLeftEye; }

}  // namespace

Window layout_window(Layout layout, const Window& part) {
  Window size{0, 0, part.width, part.height};
  if (layout == Layout::kSideBySide) size.width *= 2;
  if (layout == Layout::kTopBottom) size.height *= 2;
  return size;
}

StereoRender::Eye::Eye(const FramePixels& frame, const EyeModel& model, const View& view, Light sampling)
    : picture(frame, model, sampling, reduction_for(model, view_density(view))), map(model, view) {}

StereoRender::StereoRender(const FramePixels& frame, const RigModel& rig, const View& view, Light sampling)
    : left_(frame, rig.left, view, sampling), right_(frame, rig.right, view, sampling) {}

void StereoRender::draw(Layout layout, const Window& part, const PictureRoom& room) const {
  const Light light = left_.picture.light();
  const ToneCode tone(light, room.type, room.light);
  const SampleRow sample = sample_row();
  const auto width = static_cast<std::size_t>(part.width);
  const auto sample_eye = [&](const Eye& eye, int y, RowSpace& row, std::vector<float>& pixels) {
    eye.map.row(part.y + y, part.x, part.x + part.width, row.x.data(), row.y.data());
    sample(eye.picture, row.x.data(), row.y.data(), part.width, pixels.data());
  };
  const auto draw_row = [&](int y, RowSpace& row) {
    if (needs_left(layout)) sample_eye(left_, y, row, row.left);
    if (needs_right(layout)) sample_eye(right_, y, row, row.right);
    switch (layout) {
      case Layout::kSideBySide:
        tone.write(row.left.data(), width, room.row(y));
        tone.write(row.right.data(), width, room.part(part.width, 0, part.width, part.height).row(y));
        return;
      case Layout::kTopBottom:
        tone.write(row.left.data(), width, room.row(y));
        tone.write(row.right.data(), width, room.row(part.height + y));
        return;
      case Layout::kRightEye:
        tone.write(row.right.data(), width, room.row(y));
        return;
      case Layout::kAnaglyphRedCyan:
        mix_anaglyph(row, 1);
        break;
      case Layout::kAnaglyphAmberBlue:
        mix_anaglyph(row, 2);
        break;
      case Layout::kDifference:
        mix_difference(row, light);
        break;
      case Layout::kLeftEye:
        break;
    }
    tone.write(row.left.data(), width, room.row(y));
  };
  const int bands = (part.height + kBand - 1) / kBand;
  parallel_each(static_cast<std::size_t>(bands), [&](std::size_t band) {
    RowSpace row(part.width);
    const int begin = static_cast<int>(band) * kBand;
    for (int y = begin; y < std::min(begin + kBand, part.height); ++y) draw_row(y, row);
  });
}

}  // namespace twintrue::render
