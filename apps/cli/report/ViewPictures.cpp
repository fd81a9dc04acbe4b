#include "apps/cli/report/ViewPictures.h"

#include <nettle/base64.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "apps/cli/pictures/EncodedPictures.h"
#include "render/StereoRender.h"
#include "verdict/PairView.h"

namespace twintrue::cli {
namespace {

// Size of one picture, pixels: three beside each other fill a page, one fills a phone.
constexpr int kWidth = 420;
constexpr int kHeight = 300;
constexpr double kSideTangent = 1.19;  // 50 degrees: where errors show first, and lenses still are sharp
// Pixels a radian: about those of the frame, so that a pixel of misalignment is to be seen, but enough to the
// side to tell what is shown.
constexpr double kCoarsest = 350.0;
constexpr double kFinest = 800.0;

PagePicture to_picture(const std::vector<std::byte>& bytes, int width, int height) {
  const std::string jpeg = encode_jpeg({width, height, 3, render::SampleType::kByte, bytes.data()}, "");
  const std::string head = "data:image/jpeg;base64,";
  std::string uri(head.size() + BASE64_ENCODE_RAW_LENGTH(jpeg.size()), '\0');
  std::copy(head.begin(), head.end(), uri.begin());
  base64_encode_raw(uri.data() + head.size(), jpeg.size(),
                    reinterpret_cast<const std::uint8_t*>(jpeg.data()));
  return {width, height, std::move(uri)};
}

// One picture so wide that all three directions are parts of it.
struct Panorama {
  explicit Panorama(double pixels_per_radian) : density(pixels_per_radian) {
    view.projection = render::Projection::kRectilinear;
    view.width = 2 * static_cast<int>(std::lround(density * kSideTangent)) + kWidth;
    view.height = kHeight;
    view.fov = 2.0 * std::atan(view.width / (2.0 * density));
  }
  render::Window window(int direction) const {
    return {(view.width - kWidth) / 2 * direction, 0, kWidth, kHeight};
  }
  Point tangents(double x, double y) const {
    return {(x - view.width / 2.0) / density, (view.height / 2.0 - y) / density};
  }

  double density;
  render::View view;
};

PagePicture draw(const render::StereoRender& render, const render::Window& window) {
  std::vector<std::byte> bytes(std::size_t{3} * kWidth * kHeight);
  render.draw(render::Layout::kAnaglyphRedCyan, window,
              {kWidth, kHeight, render::SampleType::kByte, render::Light::kEncoded, bytes.data(),
               std::size_t{3} * kWidth});
  return to_picture(bytes, kWidth, kHeight);
}

bool in_circle(const Circle& circle, double x, double y) {
  return std::hypot(x - circle.centre[0], y - circle.centre[1]) <= circle.radius;
}

}  // namespace

std::vector<DirectionView> draw_directions(const Frame& frame, const RigModel& given,
                                           const RigModel* corrected) {
  const double frame_density = given.right.scale * 2.0 / std::acos(-1.0);
  const Panorama panorama(std::clamp(frame_density, kCoarsest, kFinest));
  std::vector<DirectionView> views{
      {"left", {}, {}, {}, {}}, {"straight ahead", {}, {}, {}, {}}, {"right", {}, {}, {}, {}}};
  const render::FramePixels pixels{static_cast<int>(frame.width), static_cast<int>(frame.height),
                                   render::SampleType::kByte, render::Light::kEncoded, frame.pixels.data()};
  for (const RigModel* rig : {&given, corrected}) {
    if (rig == nullptr) continue;
    const render::StereoPictures eyes(pixels, *rig, render::Light::kEncoded,
                                      render::view_density(panorama.view));
    const render::StereoRender render(eyes, *rig, panorama.view);
    for (std::size_t i = 0; i < views.size(); ++i) {
      const render::Window window = panorama.window(static_cast<int>(i));
      PagePicture picture = draw(render, window);
      views[i].low = panorama.tangents(window.x, window.y + window.height);
      views[i].high = panorama.tangents(window.x + window.width, window.y);
      if (rig == &given) {
        views[i].given = std::move(picture);
      } else {
        views[i].corrected = std::move(picture);
      }
    }
  }
  return views;
}

FramePreview draw_frame(const Frame& frame, const std::array<Circle, 2>& circles) {
  constexpr std::uint32_t kMostAcross = 840;
  const std::uint32_t step = (frame.width + kMostAcross - 1) / kMostAcross;
  const std::uint32_t width = std::max(frame.width / step, 1U);
  const std::uint32_t height = std::max(frame.height / step, 1U);
  std::vector<std::byte> bytes(std::size_t{3} * width * height);
  double sum = 0.0;
  double squares = 0.0;
  double count = 0.0;
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      std::array<std::uint32_t, 3> sums{};
      for (std::uint32_t row = y * step; row < (y + 1) * step; ++row) {
        const std::uint8_t* at = &frame.pixels[(std::size_t{row} * frame.width + std::size_t{x} * step) * 3];
        for (std::uint32_t i = 0; i < 3 * step; ++i) sums[i % 3] += at[i];
      }
      for (std::size_t c = 0; c < 3; ++c) {
        bytes[(std::size_t{y} * width + x) * 3 + c] = static_cast<std::byte>(sums[c] / (step * step));
      }
      const double fx = x * step;
      const double fy = y * step;
      if (!in_circle(circles[0], fx, fy) && !in_circle(circles[1], fx, fy)) continue;
      const double value = (sums[0] + sums[1] + sums[2]) / (3.0 * step * step);
      sum += value;
      squares += value * value;
      count += 1.0;
    }
  }
  FramePreview preview;
  preview.picture = to_picture(bytes, static_cast<int>(width), static_cast<int>(height));
  if (count > 0.0) {
    preview.mean = sum / count;
    preview.spread = std::sqrt(std::max(squares / count - preview.mean * preview.mean, 0.0));
  }
  return preview;
}

}  // namespace twintrue::cli
