#include "apps/TwinTrue/RunDriver.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "apps/TwinTrue/ImageFormatConverter.h"
#include "lens/LensParameters.h"
#include "search/RenderedRoom.h"
#include "support/TempDir.h"

namespace twintrue {
namespace {

using namespace testing_support::room;
using testing_support::read_file;
using testing_support::TempDir;

RigState rig_of_size(std::int32_t width, std::int32_t height) {
  RigState rig;
  rig.frame_width = width;
  rig.half_width = width / 2;
  rig.frame_height = height;
  return rig;
}

// An image whose pixels say where they stand.
cve::XMat_<float> numbered(std::int32_t rows, std::int32_t cols) {
  cve::XMat_<float> image;
  image.create(rows, cols);
  for (std::int32_t y = 0; y < rows; ++y) {
    for (std::int32_t x = 0; x < cols; ++x) image.at(y, x) = static_cast<float>(1000 * y + x);
  }
  return image;
}

TEST(HalfFrames, AreCutOnTheirRightAndTheSecondStartsAtHalfTheWidth) {
  const RigState rig = rig_of_size(116, 78);
  cve::XMat_<float> frame = numbered(80, 120);
  const void* const pixels = frame.data;
  const HalfFrames halves = half_frames(frame, rig);
  EXPECT_EQ(halves.left.data, pixels) << "a frame that is large enough is not copied";
  for (const cve::XMat_<float>* half : {&halves.left, &halves.right}) {
    EXPECT_EQ(half->cols, 48);
    EXPECT_EQ(half->rows, 64);
    EXPECT_EQ(half->at(63, 47), 63047 + (half == &halves.right ? 58 : 0));
  }
}

TEST(HalfFrames, OfASmallFrameEndInZeros) {
  const RigState rig = rig_of_size(116, 78);
  for (const cve::Size given : {cve::Size{120, 40}, cve::Size{60, 70}, cve::Size{1, 1}}) {
    cve::XMat_<float> frame = numbered(given.rows, given.cols);
    const HalfFrames halves = half_frames(frame, rig);
    for (std::int32_t y = 0; y < 64; ++y) {
      for (std::int32_t x = 0; x < 48; ++x) {
        const auto expected = [&](std::int32_t at) {
          return y < given.rows && at < given.cols ? static_cast<float>(1000 * y + at) : 0.0f;
        };
        ASSERT_EQ(halves.left.at(y, x), expected(x)) << given.cols << ' ' << given.rows;
        ASSERT_EQ(halves.right.at(y, x), expected(x + 58)) << given.cols << ' ' << given.rows;
      }
    }
  }
}

TEST(CountTest, WantsSoManyRanksOfEachCell) {
  CalibContext context;
  context.rank_last = 2;
  context.detection_ratio_th = 0.5;
  const CountTest test(context, 40);
  testing::internal::CaptureStdout();
  EXPECT_TRUE(test.passes(60, kFewMatches));
  EXPECT_FALSE(test.passes(59, kFewMatches));
  EXPECT_FALSE(test.passes(-4, kFewRightKeypoints));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Matching is failed(59)\nRight image detection is failed(-4)\n");
}

// Runs of one rendered room under settings that differ from the preset's.
class RunDriver : public testing::Test {
 protected:
  struct Outcome {
    std::int32_t status;
    std::string out;
    CalibResult result;
  };

  Outcome run(const std::string& more_settings, bool ignore = false) {
    cve::XMat_<float> frame;
    testing::internal::CaptureStdout();
    convert_frame(frame, image_over(bytes));
    testing::internal::GetCapturedStdout();
    const std::string params = dir.write("run.yaml", read_file(kSettings) + more_settings);
    Outcome outcome{0, "", starting_result()};
    testing::internal::CaptureStdout();
    outcome.status = run_driver(frame, {lens, params, out_lens}, ignore, outcome.result);
    std::fflush(stdout);
    outcome.out = testing::internal::GetCapturedStdout();
    // Reading the lens and the settings says one line each.
    const std::string before = "format_version: 1.0\n\n";
    EXPECT_EQ(outcome.out.rfind(before, 0), 0u) << outcome.out;
    outcome.out.erase(0, before.size());
    return outcome;
  }

  static bool is_starting(const CalibResult& result) {
    const CalibResult start = starting_result();
    return std::equal(&result.right_pan, &result.error16 + 1, &start.right_pan);
  }

  std::vector<std::uint8_t> bytes = take_frame({}, {});
  TempDir dir;
  std::string lens = dir.write("nominal.lens", lens_text());
  std::string out_lens = dir.file("out.lens");
};

TEST_F(RunDriver, EndsAtTheFirstCountThatIsTooLow) {
  // Few keypoints have a partner within a pixel or two. No count reaches the share that is asked for here, so
  // a run that goes on all the same says all three.
  const std::string near_partners = "matching:\n  max_vector_ratio_h: 0.004\n  max_vector_ratio_v: 0.004\n";
  const Outcome all = run(near_partners + "calib:\n  detection_ratio_th: 1e9\n  num_levels: 0\n", true);
  int left = 0, right = 0, matches = 0;
  ASSERT_EQ(std::sscanf(all.out.c_str(),
                        "Left image detection is failed(%d)\nRight image detection is failed(%d)\n"
                        "Matching is failed(%d)\n",
                        &left, &right, &matches),
            3)
      << all.out;
  ASSERT_GT(std::min(left, right), matches + 1);
  ASSERT_TRUE(std::filesystem::remove(out_lens));
  ASSERT_GT(matches, 0);

  const auto unit = fpu::createFeatureUnit(kSettings, kWidth / 2, kHeight);
  std::int32_t rows = 0, columns = 0;
  ASSERT_EQ(unit->getParam("num_vert_cell", &rows), 0);
  ASSERT_EQ(unit->getParam("num_horz_cell", &columns), 0);
  const double wanted = 2.0 * rows * columns;  // the preset's two ranks of each cell
  const Outcome few_matches =
      run(near_partners + "calib:\n  detection_ratio_th: " + std::to_string((matches + 0.5) / wanted) + "\n");
  EXPECT_EQ(few_matches.status, TWINTRUE_TOO_FEW_MATCHES);
  EXPECT_EQ(few_matches.out, "Matching is failed(" + std::to_string(matches) + ")\n");
  EXPECT_TRUE(is_starting(few_matches.result));

  for (std::uint32_t y = 0; y < kHeight; ++y) {
    std::fill_n(&bytes[3 * (std::size_t{y} * kWidth + kWidth / 2)], 3 * kWidth / 2, std::uint8_t{0});
  }
  const Outcome right_black = run("");
  EXPECT_EQ(right_black.status, TWINTRUE_TOO_FEW_MATCHES);
  EXPECT_EQ(right_black.out, "Right image detection is failed(0)\n");
  EXPECT_TRUE(is_starting(right_black.result));
  EXPECT_FALSE(std::filesystem::exists(out_lens)) << "a run that ends before the search writes no lens file";
}

TEST_F(RunDriver, WritesTheLensFileAnewWhereTheRatioFails) {
  const Outcome outcome = run("calib:\n  removing_outer_feat_rratio: -1\n");
  EXPECT_EQ(outcome.status, TWINTRUE_TOO_FEW_MATCHES);
  EXPECT_EQ(outcome.out, "format_version: 1.0\n") << "of the second reading of the lens";
  CalibResult expected = starting_result();
  expected.detection_ratio = 0.0;
  EXPECT_TRUE(std::equal(&expected.right_pan, &expected.error16 + 1, &outcome.result.right_pan));

  RigState given, written;
  testing::internal::CaptureStdout();
  ASSERT_EQ(load_lens_description(given, lens, kLensSection), 1);
  ASSERT_EQ(load_lens_description(written, out_lens, kLensSection), 1);
  testing::internal::GetCapturedStdout();
  for (const auto& [a, b] : {std::pair{&given.current.left, &written.current.left},
                             std::pair{&given.current.right, &written.current.right}}) {
    EXPECT_EQ(a->rotation, b->rotation);
    EXPECT_EQ(a->offset_x, b->offset_x);
    EXPECT_EQ(a->center_x, b->center_x);
    EXPECT_EQ(a->scale, b->scale);
  }
}

TEST_F(RunDriver, UnknownModesEndTheProcessWhereTheyAreMet) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(run("matching:\n  out_mode: 1\n"), "");
  EXPECT_DEATH(run("calib:\n  mode: 27\n  num_levels: 0\n"), "");
  std::fill(bytes.begin(), bytes.end(), std::uint8_t{0});
  EXPECT_EQ(run("calib:\n  mode: 27\n").status, TWINTRUE_TOO_FEW_MATCHES) << "the mode isn't met before";
}

}  // namespace
}  // namespace twintrue
