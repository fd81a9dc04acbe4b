// The export as a host calls it.

#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lens/LensParameters.h"
#include "support/TempDir.h"
#include "twintrue/calib.h"

namespace {

using testing_support::read_file;
using testing_support::TempDir;

constexpr double kHalfPi = 1.57079632679489661923;
constexpr double kDegree = kHalfPi / 90.0;
constexpr std::uint32_t kWidth = 1024;
constexpr std::uint32_t kHeight = 512;
constexpr double kScale = 248.5;  // pixels for 90 degrees
constexpr double kCentre = 262.5;
constexpr double kBaseline = 0.06;

const std::string kPreset = TWINTRUE_SOURCE_DIR "/presets/default.yaml";

std::string lens_text() {
  return "[OPTRA]\nformat_version = \"1.0\";\ninput_width = 1024; input_height = 512;\n"
         "output_width = 1024; output_height = 512; separate_x = 512;\nbaseline = 0.06;\n"
         "sensor_pitch = 0.01; inter_image_circle_distance = 5.25; image_circle_radius = 2.485;\n"
         "left_eye_magnify_v = 1.0; left_eye_magnify_h = 1.0;\n"
         "right_eye_magnify_v = 1.0; right_eye_magnify_h = 1.0;\n";
}

// Brightness of a wall at a place given in metres: noise of several grain sizes.
double texture(double u, double v, int wall) {
  double sum = 0.0;
  double weight = 0.5;
  for (double cells = 3.0; cells < 60.0; cells *= 2.0, weight *= 0.75) {
    const double fu = u * cells, fv = v * cells;
    const double iu = std::floor(fu), iv = std::floor(fv);
    const auto corner = [&](double du, double dv) {
      auto h = static_cast<std::uint32_t>(static_cast<std::int64_t>(iu + du) * 73856093 ^
                                          static_cast<std::int64_t>(iv + dv) * 19349663 ^ wall * 83492791);
      h = (h ^ (h >> 13)) * 1274126177u;
      return static_cast<double>((h ^ (h >> 16)) & 1023) / 1023.0;
    };
    const double a = fu - iu, b = fv - iv;
    sum += weight * ((1 - a) * (1 - b) * corner(0, 0) + a * (1 - b) * corner(1, 0) +
                     (1 - a) * b * corner(0, 1) + a * b * corner(1, 1));
  }
  return sum / 2.0;
}

// What stands in that direction in a room of 2.4 x 2 x 3 m round the rig.
double look(const double from[3], const double d[3]) {
  constexpr double kHalfRoom[3] = {1.2, 1.0, 1.5};
  double nearest = 1e9;
  int wall = 0;
  for (int axis = 0; axis < 3; ++axis) {
    if (d[axis] == 0.0) continue;
    const double t = ((d[axis] > 0 ? kHalfRoom[axis] : -kHalfRoom[axis]) - from[axis]) / d[axis];
    if (t < nearest) {
      nearest = t;
      wall = 2 * axis + (d[axis] > 0 ? 1 : 0);
    }
  }
  const int axis = wall / 2;
  const auto at = [&](int i) { return from[i] + nearest * d[i]; };
  return texture(at((axis + 1) % 3) + 7.0, at((axis + 2) % 3) + 7.0, wall);
}

struct EyeError {
  double pan, tilt, roll;  // radians
};

// The frame that a rig with those errors takes of the room.
std::vector<std::uint8_t> take_frame(const EyeError& right, const EyeError& left) {
  std::vector<std::uint8_t> bytes(std::size_t{3} * kWidth * kHeight);
  for (std::uint32_t y = 0; y < kHeight; ++y) {
    for (std::uint32_t x = 0; x < kWidth; ++x) {
      const bool is_left = x >= kWidth / 2;
      const EyeError& error = is_left ? left : right;
      const double centre_x = kWidth / 2.0 + (is_left ? kCentre : -kCentre);
      const double from[3] = {is_left ? -kBaseline / 2 : kBaseline / 2, 0, 0};
      double sum = 0.0;
      int hits = 0;
      for (int sample = 0; sample < 4; ++sample) {
        const double u = (x + 0.25 * (2 * (sample % 2) - 1) - centre_x) / kScale;
        const double v = -(y + 0.25 * (2 * (sample / 2) - 1) - kHeight / 2.0) / kScale;
        const double rho = std::hypot(u, v);
        if (rho > 1.02) continue;
        const double k = rho > 0 ? std::sin(rho * kHalfPi) / rho : kHalfPi;
        const double e[3] = {u * k, v * k, -std::cos(rho * kHalfPi)};
        // Rig from eye: the inverse turns, pan first.
        const double cp = std::cos(error.pan), sp = std::sin(error.pan);
        const double a[3] = {cp * e[0] - sp * e[2], e[1], sp * e[0] + cp * e[2]};
        const double ct = std::cos(error.tilt), st = std::sin(error.tilt);
        const double b[3] = {a[0], ct * a[1] + st * a[2], -st * a[1] + ct * a[2]};
        const double cr = std::cos(error.roll), sr = std::sin(error.roll);
        const double c[3] = {cr * b[0] + sr * b[1], -sr * b[0] + cr * b[1], b[2]};
        sum += look(from, c);
        ++hits;
      }
      const double value = hits == 0 ? 0.0 : 30 + 220 * sum / hits;
      for (int i = 0; i < 3; ++i)
        bytes[3 * (std::size_t{y} * kWidth + x) + static_cast<std::size_t>(i)] =
            static_cast<std::uint8_t>(std::min(value, 255.0));
    }
  }
  return bytes;
}

CalibImage image_over(const std::vector<std::uint8_t>& bytes) {
  return {kWidth, kHeight, 3 * static_cast<std::int32_t>(kWidth), bytes.data(), 0};
}

constexpr CalibResult kUntouched = {7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7, 7};

bool is_starting(const CalibResult& r) {
  return r.right_pan == 0 && r.left_offset_y == 0 && r.score == -1 && r.quality == -1 &&
         r.detection_ratio == -1 && r.error16 == -1;
}

struct Outcome {
  std::int32_t status;
  std::string out;
  std::string err;
};

Outcome run(const CalibImage* image, const std::string& lens, const std::string& params,
            const std::string& out_lens, bool ignore, CalibResult* result) {
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  const std::int32_t status =
      calib(image, lens.c_str(), params.c_str(), out_lens.c_str(), ignore ? 1 : 0, result);
  std::fflush(stdout);
  return {status, testing::internal::GetCapturedStdout(), testing::internal::GetCapturedStderr()};
}

TEST(Calib, CalibratesARenderedRoom) {
  const EyeError right{0.35 * kDegree, -0.5 * kDegree, 0.4 * kDegree};
  const EyeError left{-0.25 * kDegree, 0.2 * kDegree, -0.3 * kDegree};
  const auto bytes = take_frame(right, left);
  const CalibImage image = image_over(bytes);
  const TempDir dir;
  const std::string lens = dir.write("nominal.lens", lens_text());
  CalibResult result = kUntouched;
  const Outcome outcome = run(&image, lens, kPreset, dir.file("out.lens"), false, &result);
  ASSERT_EQ(outcome.status, TWINTRUE_CALIBRATED) << outcome.out << outcome.err;
  EXPECT_EQ(outcome.out.rfind("Convert using std::thread \n", 0), 0u);

  // The picture fixes what differs between the eyes, and the mean of pan and roll less well.
  EXPECT_NEAR(result.right_tilt - result.left_tilt, right.tilt - left.tilt, 0.06 * kDegree);
  EXPECT_NEAR(result.right_roll - result.left_roll, right.roll - left.roll, 0.06 * kDegree);
  EXPECT_NEAR(result.right_pan - result.left_pan, right.pan - left.pan, 0.12 * kDegree);
  EXPECT_GT(result.score, 0);
  EXPECT_LT(result.error16, 3.0);

  twintrue::RigState written;
  testing::internal::CaptureStdout();
  ASSERT_EQ(twintrue::load_lens_description(written, dir.file("out.lens"), "OPTRA"), 1);
  testing::internal::GetCapturedStdout();
  EXPECT_NEAR(written.current.right.lambda, result.right_pan, 1e-10);
  EXPECT_NEAR(written.current.left.roll, result.left_roll, 1e-10);
  EXPECT_NEAR(written.current.right.offset_x, result.right_offset_x, kWidth * 1e-10);

  EXPECT_EQ(run(&image, lens, kPreset, "", false, nullptr).status, TWINTRUE_CALIBRATED) << "no result wanted";
}

TEST(Calib, StatusesAndMessages) {
  const std::vector<std::uint8_t> black(std::size_t{3} * kWidth * kHeight);
  const CalibImage image = image_over(black);
  const TempDir dir;
  const std::string lens = dir.write("nominal.lens", lens_text());
  const std::string broken = dir.write("broken.yaml", "a: [\n b: \"\n");
  const std::string converted = "Convert using std::thread \n";
  struct Case {
    const char* what;
    std::string lens;
    std::string params;
    bool ignore;
    std::int32_t status;
    std::string says;  // last on standard output
  };
  const Case cases[] = {
      {"no lens file", dir.file("none.lens"), kPreset, false, TWINTRUE_LENS_UNREADABLE,
       "read error lens ini path\n"},
      {"a lens file of no version", dir.write("x.lens", "[OPTRA]\na = 1;\n"), kPreset, false,
       TWINTRUE_LENS_UNREADABLE, "read error lens ini path\n"},
      {"a lens without size", dir.write("y.lens", "[OPTRA]\nversion = 1.0;\n"), kPreset, false,
       TWINTRUE_LENS_UNREADABLE, "read error lens ini path\n"},
      {"an impossible table", dir.write("z.lens", lens_text() + "ideal_height_precision_bit = 0;\n"), kPreset,
       false, TWINTRUE_LENS_UNREADABLE, "read error lens ini path\n"},
      {"no parameter file", lens, dir.file("none.yaml"), false, TWINTRUE_FAILED, "invalid param file\n"},
      {"a parameter file that doesn't parse", lens, broken, false, TWINTRUE_FAILED, "invalid param file\n"},
      {"a missing retry", lens, dir.write("retry.yaml", read_file(kPreset) + "\ncalib:\n  retry_count: 19\n"),
       false, TWINTRUE_FAILED, "invalid param file\n"},
      {"a black frame", lens, kPreset, false, TWINTRUE_TOO_FEW_MATCHES,
       "Left image detection is failed(0)\n"},
      {"a black frame, thresholds ignored", lens, kPreset, true, TWINTRUE_QUALITY_FAILED,
       "Left image detection is failed(0)\nRight image detection is failed(0)\nMatching is failed(0)\n"},
  };
  for (const Case& one : cases) {
    CalibResult result = kUntouched;
    const Outcome outcome = run(&image, one.lens, one.params, "", one.ignore, &result);
    EXPECT_EQ(outcome.status, one.status) << one.what;
    EXPECT_TRUE(outcome.out.starts_with(converted) && outcome.out.ends_with(one.says))
        << one.what << ": " << outcome.out;
    if (one.status != TWINTRUE_QUALITY_FAILED) {
      EXPECT_TRUE(is_starting(result)) << one.what;
    }
  }
}

TEST(Calib, RefusesFramesThatItCannotRead) {
  const std::vector<std::uint8_t> bytes(std::size_t{3} * kWidth * kHeight);
  const TempDir dir;
  const std::string lens = dir.write("nominal.lens", lens_text());
  const CalibImage good = image_over(bytes);
  const auto status = [&](CalibImage image) {
    CalibResult result = kUntouched;
    const Outcome outcome = run(&image, lens, kPreset, "", false, &result);
    EXPECT_TRUE(outcome.status != TWINTRUE_FAILED || result.score == 7 || image.width * image.height == 0);
    return outcome.status;
  };
  CalibImage image = good;
  image.pixels = nullptr;
  EXPECT_EQ(status(image), TWINTRUE_FAILED);
  image = good;
  image.stride = 3 * kWidth - 1;
  EXPECT_EQ(status(image), TWINTRUE_FAILED);
  image = good;
  image.width = 0;
  EXPECT_EQ(status(image), TWINTRUE_FAILED);
  image = good;
  image.width = image.height = 0xffffffffu;
  image.stride = -0x7fffffff;
  EXPECT_EQ(status(image), TWINTRUE_FAILED);
  EXPECT_EQ(calib(nullptr, lens.c_str(), kPreset.c_str(), "", 0, nullptr), TWINTRUE_FAILED);
  EXPECT_EQ(calib(&good, nullptr, kPreset.c_str(), "", 0, nullptr), TWINTRUE_FAILED);
}

TEST(Calib, PixelsThatTheFrameLacksCountAsBlack) {
  // The frame ends in the middle of the left eye's picture. What is missing must read as black: the same
  // numbers as for the whole frame with that part blackened.
  auto bytes = take_frame({}, {});
  const TempDir dir;
  const std::string lens = dir.write("nominal.lens", lens_text());
  constexpr std::uint32_t kCutWidth = 850, kCutHeight = 430;
  for (std::uint32_t y = 0; y < kHeight; ++y) {
    for (std::uint32_t x = 0; x < kWidth; ++x) {
      if (x < kCutWidth && y < kCutHeight) continue;
      for (std::size_t i = 0; i < 3; ++i) bytes[3 * (std::size_t{y} * kWidth + x) + i] = 0;
    }
  }
  CalibImage image = image_over(bytes);
  CalibResult whole = kUntouched, cut = kUntouched;
  const auto status = run(&image, lens, kPreset, "", true, &whole).status;
  image.width = kCutWidth;
  image.height = kCutHeight;
  EXPECT_EQ(run(&image, lens, kPreset, "", true, &cut).status, status);
  EXPECT_EQ(cut.score, whole.score);
  EXPECT_EQ(cut.right_tilt, whole.right_tilt);
  EXPECT_GT(cut.score, 0);
}

TEST(Calib, WritesALensFileAfterAFailedQualityTestToo) {
  const std::vector<std::uint8_t> black(std::size_t{3} * kWidth * kHeight);
  const CalibImage image = image_over(black);
  const TempDir dir;
  const std::string lens = dir.write("nominal.lens", lens_text());
  EXPECT_EQ(run(&image, lens, kPreset, dir.file("out.lens"), true, nullptr).status, TWINTRUE_QUALITY_FAILED);
  EXPECT_TRUE(std::filesystem::exists(dir.file("out.lens")));
  EXPECT_EQ(run(&image, lens, kPreset, dir.file("none.lens"), false, nullptr).status,
            TWINTRUE_TOO_FEW_MATCHES);
  EXPECT_FALSE(std::filesystem::exists(dir.file("none.lens")))
      << "a run that ends before the search writes none";
}

}  // namespace
