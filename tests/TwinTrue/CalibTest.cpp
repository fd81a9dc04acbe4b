// The export as a host calls it.

#include <omp.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "lens/LensParameters.h"
#include "search/RenderedRoom.h"
#include "support/TempDir.h"
#include "twintrue/calib.h"

namespace {

using testing_support::read_file;
using testing_support::TempDir;
using namespace testing_support::room;

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
  const Outcome outcome = run(&image, lens, kSettings, dir.file("out.lens"), false, &result);
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

  EXPECT_EQ(run(&image, lens, kSettings, "", false, nullptr).status, TWINTRUE_CALIBRATED)
      << "no result wanted";
}

TEST(Calib, TheSameBytesForEveryThreadCount) {
  const auto bytes = take_frame({0.4 * kDegree, -0.3 * kDegree, 0.5 * kDegree}, {});
  const CalibImage image = image_over(bytes);
  const TempDir dir;
  const std::string lens = dir.write("nominal.lens", lens_text());
  const int before = omp_get_max_threads();
  CalibResult first{};
  std::string first_lens;
  for (int threads : {1, 2}) {
    omp_set_num_threads(threads);
    CalibResult result = kUntouched;
    EXPECT_EQ(run(&image, lens, kSettings, dir.file("out.lens"), false, &result).status, TWINTRUE_CALIBRATED);
    const std::string written = read_file(dir.file("out.lens"));
    if (threads == 1) {
      first = result;
      first_lens = written;
    }
    EXPECT_EQ(std::memcmp(&result, &first, sizeof result), 0) << threads;
    EXPECT_EQ(written, first_lens) << threads;
  }
  omp_set_num_threads(before);
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
      {"no lens file", dir.file("none.lens"), kSettings, false, TWINTRUE_LENS_UNREADABLE,
       "read error lens ini path\n"},
      {"a lens file of no version", dir.write("x.lens", "[OPTRA]\na = 1;\n"), kSettings, false,
       TWINTRUE_LENS_UNREADABLE, "read error lens ini path\n"},
      {"a lens without size", dir.write("y.lens", "[OPTRA]\nversion = 1.0;\n"), kSettings, false,
       TWINTRUE_LENS_UNREADABLE, "read error lens ini path\n"},
      {"an impossible table", dir.write("z.lens", lens_text() + "ideal_height_precision_bit = 0;\n"),
       kSettings, false, TWINTRUE_LENS_UNREADABLE, "read error lens ini path\n"},
      {"no parameter file", lens, dir.file("none.yaml"), false, TWINTRUE_FAILED, "invalid param file\n"},
      {"a parameter file that doesn't parse", lens, broken, false, TWINTRUE_FAILED, "invalid param file\n"},
      {"a missing retry", lens,
       dir.write("retry.yaml", read_file(kSettings) + "\ncalib:\n  retry_count: 19\n"), false,
       TWINTRUE_FAILED, "invalid param file\n"},
      {"a black frame", lens, kSettings, false, TWINTRUE_TOO_FEW_MATCHES,
       "Left image detection is failed(0)\n"},
      {"a black frame, thresholds ignored", lens, kSettings, true, TWINTRUE_QUALITY_FAILED,
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
    const Outcome outcome = run(&image, lens, kSettings, "", false, &result);
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
  EXPECT_EQ(calib(nullptr, lens.c_str(), kSettings.c_str(), "", 0, nullptr), TWINTRUE_FAILED);
  EXPECT_EQ(calib(&good, nullptr, kSettings.c_str(), "", 0, nullptr), TWINTRUE_FAILED);
}

TEST(Calib, WritesALensFileAfterAFailedQualityTestToo) {
  const std::vector<std::uint8_t> black(std::size_t{3} * kWidth * kHeight);
  const CalibImage image = image_over(black);
  const TempDir dir;
  const std::string lens = dir.write("nominal.lens", lens_text());
  EXPECT_EQ(run(&image, lens, kSettings, dir.file("out.lens"), true, nullptr).status,
            TWINTRUE_QUALITY_FAILED);
  EXPECT_TRUE(std::filesystem::exists(dir.file("out.lens")));
  EXPECT_EQ(run(&image, lens, kSettings, dir.file("none.lens"), false, nullptr).status,
            TWINTRUE_TOO_FEW_MATCHES);
  EXPECT_FALSE(std::filesystem::exists(dir.file("none.lens")))
      << "a run that ends before the search writes none";
}

}  // namespace
