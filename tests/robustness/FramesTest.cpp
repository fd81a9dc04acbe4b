// Frames of any shape, and what a frame and its lens file disagree about.

#include <gtest/gtest.h>

#include "SmallRun.h"

namespace {

using namespace testing_support;

TEST(Frames, TheSmallRunGoesThroughEveryStage) {
  const SmallFrame frame;
  const SmallRun run;
  const Outcome outcome = run.run(frame.image);
  EXPECT_EQ(outcome.status, TWINTRUE_CALIBRATED);
  EXPECT_GT(outcome.result.detection_ratio, 0.2);
  EXPECT_GT(outcome.result.quality, 0.0);
  EXPECT_TRUE(outcome.lens.starts_with("[OPTRA]\n"));
}

// The lens file decides on the size; the frame may have any other one.
TEST(Frames, AnySizeGivesAStatus) {
  const struct {
    std::uint32_t width, height;   // of the frame
    std::uint32_t lens_w, lens_h;  // 0: those of the frame
    std::int32_t status;
  } cases[] = {
      {0, 0, kSmallWidth, kSmallHeight, TWINTRUE_FAILED},
      {0, 300, kSmallWidth, kSmallHeight, TWINTRUE_FAILED},
      {300, 0, kSmallWidth, kSmallHeight, TWINTRUE_FAILED},
      {1, 1, kSmallWidth, kSmallHeight, TWINTRUE_QUALITY_FAILED},
      {1, 300, kSmallWidth, kSmallHeight, TWINTRUE_QUALITY_FAILED},
      {300, 1, kSmallWidth, kSmallHeight, TWINTRUE_QUALITY_FAILED},
      {255, 127, kSmallWidth, kSmallHeight, TWINTRUE_CALIBRATED},
      {257, 129, kSmallWidth, kSmallHeight, TWINTRUE_CALIBRATED},
      {400, 300, kSmallWidth, kSmallHeight, TWINTRUE_CALIBRATED},
      {256, 65, kSmallWidth, kSmallHeight, TWINTRUE_CALIBRATED},
      {257, 129, 0, 0, TWINTRUE_CALIBRATED},  // no half is a multiple of 16
      {281, 143, 0, 0, TWINTRUE_CALIBRATED},
      {100, 100, 0, 0, TWINTRUE_QUALITY_FAILED},  // no room for cells
      {64, 31, 0, 0, TWINTRUE_QUALITY_FAILED},    // nor here
      {31, 64, 0, 0, TWINTRUE_FAILED},            // half a frame of no width
      {1, 1, 0, 0, TWINTRUE_LENS_UNREADABLE},
      {256, 128, 65536, 1, TWINTRUE_FAILED},  // no height that is a multiple of 16
      {256, 128, 65537, 128, TWINTRUE_LENS_UNREADABLE},
      {256, 128, 256, 2147483647, TWINTRUE_LENS_UNREADABLE},
      {256, 128, 65536, 65536, TWINTRUE_FAILED},  // an image of 16 GiB
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(testing::Message() << test.width << "x" << test.height << ", lens " << test.lens_w << "x"
                                    << test.lens_h);
    const SmallRun run(small_lens(test.lens_w != 0 ? test.lens_w : test.width,
                                  test.lens_h != 0 ? test.lens_h : test.height));
    const SmallFrame frame(0, test.width, test.height);
    CalibResult result{};
    EXPECT_EQ(run.status(frame.image, "", &result), test.status);
  }
}

// No pixel of them is read, and no time is spent on billions of empty rows.
TEST(Frames, RowsWithoutPixelsAreNoWork) {
  const SmallRun run;
  CalibImage image{0, 0x7fffffff, 0x7fffffff, nullptr, 0};
  EXPECT_EQ(run.status(image), TWINTRUE_FAILED);
}

}  // namespace
