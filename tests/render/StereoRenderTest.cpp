// Whole pictures: against a plain remapping, and where the points of a scene come to.

#include "render/StereoRender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include "PlainView.h"
#include "RenderRigs.h"
#include "base/ThreadTeam.h"
#include "render/ToneCode.h"

namespace twintrue::render {
namespace {

using render_test::example_rig;
using render_test::kDegree;
using render_test::PlainPicture;
using render_test::small_rig;
using render_test::textured;
using render_test::view_of;

struct Drawn {
  PictureRoom room;
  std::vector<std::byte> bytes;

  Drawn(const Window& size, SampleType type, Light light) {
    room = {size.width, size.height, type, light};
    room.row_bytes = static_cast<std::size_t>(size.width) * 3 * bytes_of(type);
    bytes.resize(room.row_bytes * static_cast<std::size_t>(size.height));
    room.samples = bytes.data();
  }
  template <typename Sample>
  Sample at(int x, int y, int channel) const {
    Sample sample;
    std::memcpy(&sample, room.part(x, y, 1, 1).samples + static_cast<std::size_t>(channel) * sizeof sample,
                sizeof sample);
    return sample;
  }
};

Drawn draw(const StereoRender& render, Layout layout, const Window& part, SampleType type = SampleType::kByte,
           Light light = Light::kEncoded) {
  Drawn drawn(layout_window(layout, part), type, light);
  render.draw(layout, part, drawn.room);
  return drawn;
}

// The half of the left eye in doubles, each pixel the mean light of n x n pixels.
PlainPicture plain_half(const std::vector<std::uint8_t>& bytes, int channel, int n, bool as_light) {
  PlainPicture half{256 / n, 256 / n, {}};
  for (int row = 0; row < half.height; ++row) {
    for (int column = 0; column < half.width; ++column) {
      double sum = 0.0;
      for (int i = 0; i < n * n; ++i) {
        const int x = 256 + column * n + i % n, y = row * n + i / n;
        sum += render_test::plain_light(bytes[static_cast<std::size_t>((y * 512 + x) * 3 + channel)] / 255.0);
      }
      half.values.push_back(as_light ? sum / (n * n) : render_test::plain_display(sum / (n * n)));
    }
  }
  return half;
}

TEST(StereoRender, AgreesWithAPlainRemapping) {
  const auto bytes = textured<std::uint8_t>(512, 256, 255);
  const FramePixels frame{512, 256, SampleType::kByte, Light::kEncoded, bytes.data()};
  struct Case {
    View view;
    std::uint32_t kind;
    Light sampling;
    int reduction;
  };
  for (const Case& c : {Case{view_of(Projection::kHalfEquirect, 256, 256), 1, Light::kLinear, 1},
                        Case{view_of(Projection::kHalfEquirect, 700, 500), 2, Light::kEncoded, 1},
                        Case{view_of(Projection::kRectilinear, 640, 360, 80, 25, 10), 1, Light::kEncoded, 1},
                        Case{view_of(Projection::kFisheye, 300, 300, 170), 2, Light::kLinear, 1},
                        Case{view_of(Projection::kFisheye, 80, 81, 170), 1, Light::kEncoded, 3},
                        Case{view_of(Projection::kHalfEquirect, 128, 128), 2, Light::kLinear, 2}}) {
    SCOPED_TRACE(testing::Message() << "view of " << c.view.width << " x " << c.view.height);
    const RigModel rig = small_rig(c.kind);
    ASSERT_EQ(reduction_for(rig.left, view_density(c.view)), c.reduction);
    const StereoRender render(frame, rig, c.view, c.sampling);
    const Drawn drawn = draw(render, Layout::kLeftEye, whole_window(c.view));
    const bool as_light = c.sampling == Light::kLinear;
    int compared = 0, apart = 0;
    for (int channel = 0; channel < 3; ++channel) {
      const PlainPicture half = plain_half(bytes, channel, c.reduction, as_light);
      for (int y = 0; y < c.view.height; ++y) {
        for (int x = 0; x < c.view.width; ++x) {
          const auto ray = render_test::plain_ray(c.view, x, y);
          const auto pixel = ray ? render_test::plain_project(rig.left, *ray) : std::nullopt;
          if (!pixel) continue;
          const double px = ((*pixel)[0] - 256 + 0.5) / c.reduction - 0.5;
          const double py = ((*pixel)[1] + 0.5) / c.reduction - 0.5;
          // The rim has its own tests.
          if (px < 3 || py < 3 || px > half.width - 4 || py > half.height - 4) continue;
          if (std::hypot(px - half.width / 2.0, py - half.height / 2.0) > 120.0 / c.reduction) continue;
          const double value = half.sample(px, py);
          const double display = as_light ? render_test::plain_display(std::max(value, 0.0)) : value;
          const double expected = std::clamp(display, 0.0, 1.0) * 255;
          ++compared;
          apart += std::fabs(drawn.at<std::uint8_t>(x, y, channel) - expected) > 1.0 ? 1 : 0;
        }
      }
    }
    EXPECT_GT(compared, c.view.width * c.view.height);
    EXPECT_LE(apart, compared / 1000);
  }
}

// Bright spots where the eyes of a rig see points of a scene.
class SpotFrame {
 public:
  SpotFrame() : samples_(2048U * 1024 * 3, 0.0f) {}

  void add(const EyeModel& eye, const double (&point)[3]) {
    double x = 0.0, y = 0.0;
    if (!eye_ray_to_image(eye, &x, &y, point[0] - eye.position[0], point[1] - eye.position[1],
                          point[2] - eye.position[2])) {
      throw std::runtime_error("the eye does not see the point");
    }
    constexpr int kReach = 9;
    for (int j = -kReach; j <= kReach; ++j) {
      for (int i = -kReach; i <= kReach; ++i) {
        const int column = static_cast<int>(std::lround(x)) + i, row = static_cast<int>(std::lround(y)) + j;
        const double d2 = (column - x) * (column - x) + (row - y) * (row - y);
        for (int c = 0; c < 3; ++c) {
          samples_[static_cast<std::size_t>((row * 2048 + column) * 3 + c)] +=
              static_cast<float>(std::exp(-d2 / 8));
        }
      }
    }
  }
  FramePixels frame() const { return {2048, 1024, SampleType::kFloat, Light::kLinear, samples_.data()}; }

 private:
  std::vector<float> samples_;
};

// Middle of what is bright within some pixels of a place.
std::array<double, 2> spot_near(const Drawn& drawn, double x, double y, int reach) {
  double sum = 0.0, sum_x = 0.0, sum_y = 0.0;
  for (int row = static_cast<int>(y) - reach; row <= y + reach; ++row) {
    for (int column = static_cast<int>(x) - reach; column <= x + reach; ++column) {
      if (row < 0 || column < 0 || row >= drawn.room.height || column >= drawn.room.width) continue;
      const double light = drawn.at<float>(column, row, 1);
      sum += light;
      sum_x += light * column;
      sum_y += light * row;
    }
  }
  return {sum_x / sum, sum_y / sum};
}

struct Disparity {
  double worst = 0.0;
  double least = std::numeric_limits<double>::infinity();
};

// How far apart the rows are in which both eyes see the points, in a picture 4096 pixels wide.
Disparity disparity_of(const SpotFrame& spots, const RigModel& rig, const View& view,
                       const std::vector<std::array<double, 3>>& points) {
  const StereoRender render(spots.frame(), rig, view, Light::kLinear);
  const Window part = whole_window(view);
  const Drawn left = draw(render, Layout::kLeftEye, part, SampleType::kFloat, Light::kLinear);
  const Drawn right = draw(render, Layout::kRightEye, part, SampleType::kFloat, Light::kLinear);
  Disparity disparity;
  for (const auto& p : points) {
    std::array<double, 2> rows{};
    for (const bool of_right : {false, true}) {
      const auto& eye = of_right ? rig.right : rig.left;
      const double x = p[0] - eye.position[0], y = p[1], z = p[2];
      double column = 0.0, row = 0.0;
      if (view.projection == Projection::kRectilinear) {
        const double focal = 0.5 * view.width / std::tan(0.5 * view.fov);
        column = 0.5 * view.width - focal * x / z;
        row = 0.5 * view.height + focal * y / z;
      } else {
        column = view.width * (0.5 + std::atan2(x, -z) / render_test::kPi);
        row = view.height * (0.5 - std::atan2(y, std::hypot(x, z)) / render_test::kPi);
      }
      rows[of_right ? 1 : 0] = spot_near(of_right ? right : left, column, row, 70)[1];
    }
    const double apart = std::fabs(rows[0] - rows[1]);
    disparity.worst = std::max(disparity.worst, apart);
    disparity.least = std::min(disparity.least, apart);
  }
  return disparity;
}

TEST(StereoRender, ShowsPointsInOneRowOfBothEyesThroughTheTrueLensAlone) {
  const RigModel truth = example_rig("truth.lens");
  const RigModel nominal = example_rig("nominal.lens");
  struct Case {
    View view;
    double distance;  // metres
  };
  // Near points share their rows in a rectilinear view; in one of latitudes it takes far ones.
  for (const Case& c : {Case{view_of(Projection::kRectilinear, 4096, 2400, 90), 1.5},
                        Case{view_of(Projection::kHalfEquirect, 4096, 4096), 1e6}}) {
    SpotFrame spots;
    std::vector<std::array<double, 3>> points;
    for (int j = -1; j <= 1; ++j) {
      for (int i = -2; i <= 2; ++i) {
        const double z = c.distance * (1.0 + 0.3 * ((i + j) & 1));
        points.push_back({0.38 * i * z, 0.25 * j * z, -z});
        const double point[3] = {0.38 * i * z, 0.25 * j * z, -z};
        spots.add(truth.left, point);
        spots.add(truth.right, point);
      }
    }
    EXPECT_LT(disparity_of(spots, truth, c.view, points).worst, 0.1);
    EXPECT_GT(disparity_of(spots, nominal, c.view, points).least, 1.0);
  }
}

TEST(StereoRender, PutsTheEyesTogetherAsEachLayoutSays) {
  const auto words = textured<std::uint16_t>(512, 256, 65535);
  const FramePixels frame{512, 256, SampleType::kWord, Light::kEncoded, words.data()};
  const View view = view_of(Projection::kRectilinear, 200, 150, 70, 5, 3);
  const Window part{20, 30, 101, 57};
  const StereoRender render(frame, small_rig(1), view, Light::kEncoded);
  const auto floats = [&](Layout layout) { return draw(render, layout, part, SampleType::kFloat); };
  const Drawn left = floats(Layout::kLeftEye), right = floats(Layout::kRightEye);
  const Drawn beside = floats(Layout::kSideBySide), below = floats(Layout::kTopBottom);
  const Drawn red_cyan = floats(Layout::kAnaglyphRedCyan), amber = floats(Layout::kAnaglyphAmberBlue);
  const Drawn difference = floats(Layout::kDifference);
  ASSERT_EQ(beside.room.width, 202);
  ASSERT_EQ(below.room.height, 114);
  const auto brightness = [](const Drawn& eye, int x, int y) {
    return 0.2126 * eye.at<float>(x, y, 0) + 0.7152 * eye.at<float>(x, y, 1) +
           0.0722 * eye.at<float>(x, y, 2);
  };
  constexpr double kRounding = 1e-6;
  double apart = 0.0;
  for (int y = 0; y < part.height; ++y) {
    for (int x = 0; x < part.width; ++x) {
      for (int c = 0; c < 3; ++c) {
        const auto a = left.at<float>(x, y, c), b = right.at<float>(x, y, c);
        ASSERT_EQ(beside.at<float>(x, y, c), a);
        ASSERT_EQ(beside.at<float>(part.width + x, y, c), b);
        ASSERT_EQ(below.at<float>(x, y, c), a);
        ASSERT_EQ(below.at<float>(x, part.height + y, c), b);
        ASSERT_EQ(difference.at<float>(x, y, c), std::fabs(a - b));
        ASSERT_NEAR(red_cyan.at<float>(x, y, c), brightness(c == 0 ? left : right, x, y), kRounding);
        ASSERT_NEAR(amber.at<float>(x, y, c), brightness(c < 2 ? left : right, x, y), kRounding);
        apart += std::fabs(a - b);
      }
    }
  }
  EXPECT_GT(apart, 100.0);
}

// The optics cross the pictures: the right half of the frame is what the left eye sees.
TEST(StereoRender, TakesTheLeftEyeFromTheRightHalf) {
  std::vector<std::uint8_t> bytes(512 * 256 * 3, 50);
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = i / 3 % 512 < 256 ? 50 : 200;
  const FramePixels frame{512, 256, SampleType::kByte, Light::kEncoded, bytes.data()};
  const View view = view_of(Projection::kHalfEquirect, 100, 100);
  const StereoRender render(frame, small_rig(2), view, Light::kEncoded);
  const Drawn drawn = draw(render, Layout::kSideBySide, whole_window(view));
  EXPECT_EQ(drawn.at<std::uint8_t>(50, 50, 0), 200);
  EXPECT_EQ(drawn.at<std::uint8_t>(150, 50, 0), 50);
}

TEST(StereoRender, IsTheSameForEveryNumberOfThreads) {
  const auto bytes = textured<std::uint8_t>(512, 256, 255);
  const FramePixels frame{512, 256, SampleType::kByte, Light::kEncoded, bytes.data()};
  const View view = view_of(Projection::kFisheye, 301, 303, 200);
  std::vector<std::byte> first;
  for (const int threads : {1, 2, 5}) {
    const ThreadTeam team(threads);
    const StereoRender render(frame, small_rig(1), view, Light::kLinear);
    const Drawn drawn = draw(render, Layout::kDifference, whole_window(view));
    if (threads == 1) first = drawn.bytes;
    EXPECT_EQ(drawn.bytes, first) << threads;
  }
}

// What a lens file may say of an eye, however little sense it makes, must not lead out of the frame.
TEST(StereoRender, StaysInTheFrameWhateverTheLensFileSays) {
  const auto bytes = textured<std::uint8_t>(64, 32, 255);
  const FramePixels frame{64, 32, SampleType::kByte, Light::kEncoded, bytes.data()};
  constexpr std::int32_t kMost = std::numeric_limits<std::int32_t>::max();
  const std::vector<void (*)(EyeModel&)> odd{
      [](EyeModel&) {},
      [](EyeModel& eye) { eye.valid_x_begin = -kMost, eye.valid_x_end = kMost, eye.view_height = kMost; },
      [](EyeModel& eye) { eye.valid_x_begin = 50, eye.valid_x_end = 3, eye.view_height = -5; },
      [](EyeModel& eye) { eye.scale = 1e300; },
      [](EyeModel& eye) { eye.scale = -1e-300; },
      [](EyeModel& eye) { eye.center_x = 1e308, eye.offset_x = 1e308; },
      [](EyeModel& eye) { eye.distortion.coeff = {1e300, -1e300, 0, 0, 0, 1e308}; },
      [](EyeModel& eye) { eye.distortion.coeff[0] = 100.0; },
      [](EyeModel& eye) { eye.magnify_v = 0.0, eye.fov_degrees = 1e9; },
      [](EyeModel& eye) { eye.fov_degrees = -1.0; },
      [](EyeModel& eye) {
        eye.translate = {0, 0, 1e308};
      },
  };
  for (const auto& change : odd) {
    RigModel rig = small_rig(1);
    change(rig.left);
    for (const View& view :
         {view_of(Projection::kHalfEquirect, 64, 48), view_of(Projection::kFisheye, 900, 900, 359),
          view_of(Projection::kRectilinear, 8, 8, 1)}) {
      const StereoRender render(frame, rig, view, Light::kLinear);
      const Drawn drawn = draw(render, Layout::kSideBySide, whole_window(view));
      EXPECT_EQ(drawn.bytes.size(), static_cast<std::size_t>(view.width * view.height * 6));
    }
  }
}

TEST(ToneCode, KeepsEverySampleThroughLightAndBack) {
  for (const SampleType type : {SampleType::kByte, SampleType::kWord}) {
    const int largest = type == SampleType::kByte ? 255 : 65535;
    const ToneCode tone(Light::kLinear, type, Light::kEncoded);
    for (int i = 0; i <= largest; ++i) {
      const float light = light_of_display(static_cast<float>(i) / static_cast<float>(largest));
      const float pixel[4] = {light, light, light, 0.0f};
      std::uint16_t out[3] = {0, 0, 0};
      tone.write(pixel, 1, reinterpret_cast<std::byte*>(out));
      const int found = type == SampleType::kByte ? reinterpret_cast<std::uint8_t*>(out)[2] : out[2];
      ASSERT_EQ(found, i);
    }
  }
}

TEST(ToneCode, TakesWhatLiesBeyond) {
  const float pixel[4] = {-1.0f, 7.0f, std::nanf(""), 0.0f};
  std::uint8_t bytes[3];
  ToneCode(Light::kEncoded, SampleType::kByte, Light::kEncoded)
      .write(pixel, 1, reinterpret_cast<std::byte*>(bytes));
  EXPECT_EQ(bytes[0], 0);
  EXPECT_EQ(bytes[1], 255);
  EXPECT_EQ(bytes[2], 0);
  float floats[3];
  ToneCode(Light::kLinear, SampleType::kFloat, Light::kLinear)
      .write(pixel, 1, reinterpret_cast<std::byte*>(floats));
  EXPECT_EQ(floats[0], -1.0f);
  EXPECT_EQ(floats[1], 7.0f);
  EXPECT_EQ(floats[2], 0.0f);
}

}  // namespace
}  // namespace twintrue::render
