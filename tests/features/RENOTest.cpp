#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "FeatureTestSupport.h"
#include "PlainDescription.h"
#include "PlainDetection.h"
#include "features/RENO_Impl.h"
#include "features/Response.h"

namespace {

using testing_support::grid_of;
using testing_support::live_records;
using testing_support::pixels_of;
using testing_support::same_records;
using testing_support::store_for;

constexpr std::int32_t kCols = 120;
constexpr std::int32_t kRows = 100;

std::unique_ptr<fpu::RENO_Impl> detector_of(const std::string& keys) {
  auto detector = std::make_unique<fpu::RENO_Impl>();
  auto document = testing_support::document_of("RENO:\n  det_type: 6\n  filter_type: 14\n" + keys);
  testing::internal::CaptureStdout();
  detector->read(twintrue::param_root_child(document, "RENO"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\n");
  return detector;
}

fpu::Grid test_grid() { return grid_of(16, 15, 17, 23, 5, 3, 12); }

struct Outcome {
  fpu::KeyPointStore store;
  cve::XMat_<unsigned char> descriptors;
};

Outcome run(fpu::RENO_Impl& detector, const cve::XMat& image, const fpu::Grid& grid) {
  Outcome outcome{store_for(grid), {}};
  detector.detect(1, image, outcome.store);
  detector.compute(1, outcome.store, outcome.descriptors);
  return outcome;
}

class Onlooker final : public fpu::StageTap {
 public:
  void image(std::string_view name, const cve::XMat& image, std::int32_t, std::int32_t) override {
    if (name == "working") working = pixels_of(dynamic_cast<const cve::XMat_<unsigned char>&>(image));
    names.emplace_back(name);
  }
  std::vector<std::string> names;
  std::vector<unsigned char> working;
};

// Somebody who looks on makes detection go through whole images. It must not matter, whatever the settings,
// the number of threads and the place of the image in memory.
TEST(RENOTest, LookingOnChangesNothing) {
  const cve::XMat_<float> wide = testing_support::random_light(3 * kCols, kRows, 1);
  const cve::XMat_<float> image = wide.view(kCols, 0, kCols, kRows);
  for (const fpu::Grid& grid : {test_grid(), grid_of(15, 14, 30, 35, 3, 2, 500)}) {
    for (const char* keys :
         {"", "  filter_mode: 3\n  filter_type: 23\n", "  refining: 0\n", "  refining: 2\n  filter_mode: 6\n",
          "  filter_mode: 1\n  filter_type: 9\n  gamma_mode: 1\n",
          "  desc_gaus_size: 205\n  filter_mode: 9\n"}) {
      SCOPED_TRACE(keys);
      const auto detector = detector_of(keys);
      ASSERT_TRUE(detector->usable(kCols, kRows));
      const twintrue::ThreadTeam alone(1);
      const Outcome outcome = run(*detector, image, grid);
      // Describing once more doesn't smooth once more.
      fpu::KeyPointStore again = outcome.store;
      cve::XMat_<unsigned char> twice;
      detector->compute(1, again, twice);
      EXPECT_EQ(pixels_of(outcome.descriptors), pixels_of(twice));
      detector->detect(1, image, again);
      fpu::LevelImages levels;
      detector->levelImages(levels);
      Onlooker onlooker;
      detector->setTap(&onlooker);
      const twintrue::ThreadTeam shared(7);
      const Outcome watched = run(*detector, image, grid);
      EXPECT_TRUE(same_records(outcome.store, watched.store));
      EXPECT_EQ(pixels_of(outcome.descriptors), pixels_of(watched.descriptors));
      EXPECT_EQ(pixels_of(levels.levelImage(0)), onlooker.working);
      EXPECT_EQ(onlooker.names.size(), outcome.store.count > 0 ? 12u : 11u);
    }
  }
}

// Unsmoothed, so that the working image is still there.
TEST(RENOTest, RefiningMovesKeepsOrDrops) {
  const fpu::Grid grid = test_grid();
  const cve::XMat_<float> image = testing_support::random_light(kCols, kRows, 1);
  const std::string keys = "  desc_gaus_size: 0\n  refining: ";
  const auto detector = detector_of(keys + "0\n");
  const Outcome whole = run(*detector, image, grid);
  fpu::LevelImages levels;
  detector->levelImages(levels);
  const auto images = fpu::computeResponse(
      levels.levelImage(0), {grid.left, grid.top, grid.areaWidth(), grid.areaHeight()}, nullptr);
  for (const std::int32_t refining : {1, 2, 3}) {
    SCOPED_TRACE(refining);
    fpu::KeyPointStore expected = whole.store;
    plain::refine(images.det, refining == 1, expected);
    const Outcome found = run(*detector_of(keys + std::to_string(refining) + "\n"), image, grid);
    EXPECT_TRUE(same_records(found.store, expected));

    // Indices and rows are those before the drop; rows of dropped points stay empty.
    std::set<std::int32_t> live;
    for (const auto& record : live_records(found.store)) live.insert(record.index);
    EXPECT_EQ(live.size() < static_cast<std::size_t>(whole.store.count), refining == 1);
    ASSERT_EQ(found.descriptors.rows, whole.store.count);
    for (std::int32_t row = 0; row < found.descriptors.rows; ++row) {
      const unsigned char* bytes = found.descriptors.row(row);
      const bool empty =
          std::all_of(bytes, bytes + found.descriptors.cols, [](unsigned char b) { return b == 0; });
      EXPECT_EQ(empty, live.count(row) == 0) << row;
    }
  }
}

// The chain of the settings on the unsmoothed working image.
TEST(RENOTest, DescribesTheWorkingImage) {
  const fpu::Grid grid = test_grid();
  const auto detector = detector_of("  desc_gaus_size: 0\n  desc_bits: 72\n  refining: 2\n");
  const Outcome outcome = run(*detector, testing_support::random_light(kCols, kRows, 1), grid);
  fpu::LevelImages levels;
  detector->levelImages(levels);
  const auto chain = fpu::selectPattern(detector->candidates(), detector->settings());
  EXPECT_EQ(pixels_of(outcome.descriptors),
            pixels_of(plain::describe(levels.levelImage(0), chain, 9, outcome.store)));
}

TEST(RENOTest, BytesAndTheirLightGiveTheSameKeypoints) {
  const fpu::Grid grid = test_grid();
  const cve::XMat_<unsigned char> bytes = testing_support::random_bytes(kCols, kRows, 6);
  cve::XMat_<float> light;
  light.create(kRows, kCols);
  for (std::int32_t y = 0; y < kRows; ++y) {
    for (std::int32_t x = 0; x < kCols; ++x) {
      light.at(y, x) = std::pow(static_cast<float>(bytes.at(y, x)) * 0.003921569f, 2.2f);
    }
  }
  const auto detector = detector_of("  refining: 0\n");
  const Outcome from_bytes = run(*detector, bytes, grid);
  const Outcome from_light = run(*detector, light, grid);
  EXPECT_GT(from_light.store.count, 20);
  EXPECT_TRUE(same_records(from_bytes.store, from_light.store));
  EXPECT_EQ(pixels_of(from_bytes.descriptors), pixels_of(from_light.descriptors));

  // The 12-bit path works on bytes alone and pads by the larger of edgeThreshold and the (turned) patch.
  const auto pyramid =
      detector_of("  refining: 0\n  lpf_bit: 12\n  filter_type: -1\n  patchSize: 25\n  rotating: 1\n");
  const Outcome filtered = run(*pyramid, bytes, grid);
  EXPECT_EQ(live_records(filtered.store).size(), static_cast<std::size_t>(filtered.store.count));
  fpu::LevelImages levels;
  pyramid->levelImages(levels);
  EXPECT_TRUE(levels.external);
  // Described from a smoothed copy; the padded level itself is ceil(12 * sqrt(2)) + 1 wide on each side.
  fpu::KeyPointStore store = store_for(grid);
  pyramid->detect(0, bytes, store);
  pyramid->levelImages(levels);
  EXPECT_EQ(levels.images[0].stride, kCols + 2 * 18);
  const auto wide = detector_of("  lpf_bit: 12\n  filter_type: -1\n  patchSize: 25\n  edgeThreshold: 20\n");
  wide->detect(0, bytes, store);
  wide->levelImages(levels);
  EXPECT_EQ(levels.images[0].stride, kCols + 2 * 21);
}

TEST(RENOTest, WithoutKeypointsOrPixelsNothingIsMade) {
  const fpu::Grid grid = test_grid();
  const cve::XMat_<float> image = testing_support::random_light(kCols, kRows, 1);
  const auto detector = detector_of("");
  Outcome outcome = run(*detector, image, grid);
  const Outcome before = outcome;
  detector->detect(1, cve::XMat(), outcome.store);
  EXPECT_TRUE(same_records(before.store, outcome.store));

  const auto idle = detector_of("  det_type: 0\n");
  idle->detect(1, image, outcome.store);
  EXPECT_TRUE(same_records(before.store, outcome.store));

  const auto picky = detector_of("  res_th: 1e9\n");
  outcome.descriptors.create(3, 3);
  picky->detect(1, image, outcome.store);
  EXPECT_EQ(outcome.store.count, 0);
  picky->compute(1, outcome.store, outcome.descriptors);
  EXPECT_EQ(outcome.descriptors.data, nullptr);

  // A threshold below 0 doesn't make keypoints of pixels without a response.
  const auto eager = detector_of("  res_th: -5\n");
  cve::XMat_<float> dark;
  dark.create(kRows, kCols);
  eager->detect(1, dark, outcome.store);
  EXPECT_EQ(outcome.store.count, 0);
}

// Keypoints that the sub-pixel step dropped still have rows, and still make the chain and its file. All
// candidates in their order are no chain: they leave the file alone, and stop at the first keypoint only.
TEST(RENOTest, DroppedKeypointsLeaveEmptyRowsAndTheHistogram) {
  const testing_support::TempDir folder;
  const testing_support::ScopedFolder here(folder.path());
  std::filesystem::create_directory("histgram");
  const fpu::Grid grid = test_grid();
  for (const bool chain : {false, true}) {
    const auto detector = detector_of(chain ? "" : "  wta_k: 2\n");
    fpu::KeyPointStore store = store_for(grid);
    detector->detect(1, testing_support::random_light(kCols, kRows, 1), store);
    const std::int32_t count = store.count;
    ASSERT_GT(count, 20);
    std::fill(store.cellCounts.begin(), store.cellCounts.end(), 0);
    cve::XMat_<unsigned char> descriptors;
    detector->compute(1, store, descriptors);
    EXPECT_EQ(pixels_of(descriptors), std::vector<unsigned char>(static_cast<std::size_t>(8 * count)));
    EXPECT_EQ(std::filesystem::exists("histgram/hist_0.csv"), chain);
  }
}

// A grid that reaches the rim of the image would have the derivatives read outside it.
TEST(RENOTest, AGridAtTheRimFindsNothing) {
  const cve::XMat_<float> image = testing_support::random_light(60, 60, 1);
  for (const fpu::Grid& grid :
       {grid_of(2, 10, 10, 10, 2, 2, 5), grid_of(10, 10, 50, 10, 1, 1, 5), grid_of(10, 10, 10, 10, 2, 5, 5),
        grid_of(10, 10, 10, 10, 0, 0, 5), grid_of(-4, 10, 20, 20, 1, 1, 5)}) {
    const auto detector = detector_of("");
    EXPECT_EQ(run(*detector, image, grid).store.count, 0);
  }
}

TEST(RENODeathTest, WhatCantBeCarriedOutEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const fpu::Grid grid = test_grid();
  const cve::XMat_<float> light = testing_support::random_light(kCols, kRows, 1);
  cve::XMat_<double> other;
  other.create(kRows, kCols);
  struct Case {
    const char* keys;
    const cve::XMat& image;
  };
  for (const Case& c :
       {Case{"  det_type: 8\n", light}, Case{"  lpf_bit: 1\n", light}, Case{"  wta_k: 2\n", light},
        Case{"  wta_k: 3\n", light}, Case{"  desc_image_mode: 1\n", light}, Case{"", other}}) {
    EXPECT_EXIT(run(*detector_of(c.keys), c.image, grid), testing::KilledBySignal(SIGABRT), "") << c.keys;
  }
  for (const std::int32_t slot : {-1, 2}) {
    fpu::KeyPointStore store = store_for(grid);
    EXPECT_EXIT(detector_of("")->detect(slot, light, store), testing::KilledBySignal(SIGABRT), "") << slot;
  }
  EXPECT_EXIT(run(*detector_of("  rnd_mode: 7\n"), light, grid), testing::ExitedWithCode(1),
              "mode number 7 is invalid!\n");
}

}  // namespace
