#include "features/FeatureUnit.h"

#include <gtest/gtest.h>

#include <array>
#include <string_view>

#include "FeatureTestSupport.h"

namespace {

using testing_support::TempDir;

const std::string kGrid = "grid:\n  num_kps_in_cell: 9\n  horz_cell_size: 20\n  vert_cell_count: 3\n";
const std::string kDetector = "RENO:\n  det_type: 6\n  filter_type: 14\n  refining: 0\n";
const std::string kRest = "matching:\n  out_mode: 2\nvdet:\n  ch_bg: 1\n";

// A file under its name: texts of more than one line are no file names.
std::unique_ptr<fpu::FeatureUnit> unit_of(const std::string& text, std::int32_t width = 120,
                                          std::int32_t height = 100) {
  const TempDir folder;
  testing::internal::CaptureStdout();
  auto unit = fpu::createFeatureUnit(folder.write("params.yaml", text), width, height);
  testing::internal::GetCapturedStdout();
  return unit;
}

TEST(FeatureUnitTest, AnswersByName) {
  const auto unit = unit_of(kGrid + kDetector + kRest);
  ASSERT_NE(unit, nullptr);
  // Margin 13 / 2 + 8: 92 / 20 = 4 columns, 72 / 3 = 24 rows to a cell.
  const struct {
    const char* name;
    std::int32_t value;
  } cases[] = {
      {"horz_cell_size", 20}, {"cell_width", 20},          {"vert_cell_size", 24},
      {"cell_height", 24},    {"max_num_data_in_cell", 9}, {"max_num_kps_in_frame", 108},
      {"num_vert_cell", 3},   {"num_horz_cell", 4},        {"rel_match_count", -1},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    std::int32_t value = 12345;
    EXPECT_EQ(unit->getParam(test.name, &value), 0);
    EXPECT_EQ(value, test.value);
    double wide = 0.0;
    EXPECT_EQ(unit->getParam(test.name, fpu::kParamDouble, &wide, sizeof wide), 0);
    EXPECT_EQ(wide, test.value);
    char text[16];
    EXPECT_EQ(unit->getParam(test.name, fpu::kParamText, text, sizeof text), 0);
    EXPECT_EQ(std::to_string(test.value), text);
    EXPECT_EQ(unit->getParam(test.name, 3, text, sizeof text), fpu::kUnsuitableKind);
  }
  unit->relMatchCount = 77;
  std::int32_t value = 0;
  EXPECT_EQ(unit->getParam("rel_match_count", &value), 0);
  EXPECT_EQ(value, 77);

  for (const char* name : {"num_vert_celL", "num_vert_cel", "num_vert_cell ", ""}) {
    EXPECT_EQ(unit->getParam(name, &value), fpu::kUnknownName) << name;
  }
  EXPECT_EQ(unit->getParam("ver_str", &value), fpu::kUnsuitableKind);
  EXPECT_EQ(value, 77);
  std::array<char, 8> version{};
  EXPECT_EQ(unit->getParam("ver_str", fpu::kParamText, version.data(), version.size()), 0);
  EXPECT_STREQ(version.data(), "2.1.0.3");
  EXPECT_EQ(unit->getParam("ver_str", fpu::kParamText, version.data(), 4), 0);
  EXPECT_STREQ(version.data(), "2.1");
  EXPECT_EQ(unit->getParam("cell_width", fpu::kParamInt32, version.data(), 3), fpu::kUnsuitableKind);
}

TEST(FeatureUnitTest, IsOpenedThenReady) {
  fpu::FeatureUnit unit;
  std::int32_t value = 5;
  EXPECT_EQ(unit.init(), fpu::kNotOpened);
  EXPECT_EQ(unit.getParam("num_vert_cell", &value), fpu::kNotReady);
  unit.opened = true;
  EXPECT_EQ(unit.init(), fpu::kInitFailed);
  EXPECT_EQ(value, 5);
}

TEST(FeatureUnitTest, RefusesWhatItCantCarryOut) {
  const struct {
    const char* what;
    std::string text;
    bool made;
  } cases[] = {
      {"as it stands", kGrid + kDetector + kRest, true},
      {"no grid", kDetector + kRest, false},
      {"no vdet", kGrid + kDetector + "matching:\n  out_mode: 2\n", false},
      {"no matching", kGrid + kDetector + "vdet:\n  ch_bg: 1\n", true},
      {"no text", "", false},
      {"no levels", kGrid + kDetector + "  nlevels: 0\n" + kRest, false},
      {"no capacity",
       "grid:\n  horz_cell_size: 20\n" + kDetector + "  num_min_kps_in_cell_of_octave: [0]\n" + kRest, false},
      {"cells of no width", "grid:\n  horz_cell_size: 0\n" + kDetector + kRest, false},
      // 169 places of a patch of 13 don't hold 257 points.
      {"chain too long", kGrid + kDetector + "  desc_bits: 256\n" + kRest, false},
      {"chain too long for one point", kGrid + kDetector + "  patchSize: 1\n" + kRest, false},
      {"too few near the centre",
       kGrid + kDetector + "  weightDist: 1\n  patchSize: 25\n  desc_bits: 256\n" + kRest, false},
      {"enough near the centre",
       kGrid + kDetector + "  weightDist: 1\n  patchSize: 25\n  desc_bits: 64\n" + kRest, true},
      {"normal draws that crowd", kGrid + kDetector + "  rnd_mode: 1\n" + kRest, false},
      {"normal draws that spread", kGrid + kDetector + "  rnd_mode: 1\n  rSigma: 4\n" + kRest, true},
      // Description stops before a chain is made, so none has to end.
      {"no chain", kGrid + kDetector + "  wta_k: 2\n  desc_bits: 512\n" + kRest, true},
  };
  for (const auto& test : cases) EXPECT_EQ(unit_of(test.text) != nullptr, test.made) << test.what;

  testing::internal::CaptureStdout();
  EXPECT_EQ(fpu::createFeatureUnit("/", 0, 100), nullptr);
  EXPECT_EQ(fpu::createFeatureUnit("/", 120, 0), nullptr);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(unit_of(kGrid + kDetector + kRest, 2147483647, 2147483647), nullptr);
}

TEST(FeatureUnitTest, TellsTheStagesWhatTheyNeedOfEachOther) {
  for (const auto& [matching, candidates] :
       {std::pair{"  out_mode: 2\n", 1}, {"  k: 2\n", 2}, {"  k: 1\n", 1}}) {
    const auto unit = unit_of(kGrid + kDetector + "  patchSize: 15\n  weightDist: 3\nmatching:\n" + matching +
                              "vdet:\n  ch_bg: 1\n");
    ASSERT_NE(unit, nullptr);
    const fpu::MatchingSettings& m = unit->matchingSettings;
    EXPECT_EQ((std::array{m.image_width, m.image_height, m.patchSize, m.weightDist}),
              (std::array{120, 100, 15, 3}));
    const fpu::CorrectionSettings& c = unit->mvcSettings;
    EXPECT_EQ((std::array{c.image_width, c.image_height, c.max_num_data_in_cell, c.candidates}),
              (std::array{120, 100, 9, candidates}));
    EXPECT_EQ((std::array{unit->grid.frameWidth, unit->grid.frameHeight}), (std::array{120, 100}));
  }
}

TEST(FeatureUnitTest, ExceptionsOfTheLoadEndInItsMessage) {
  const struct {
    std::string text;
    const char* message;
  } cases[] = {
      {kGrid + kDetector + "  rndSeedMake: none\n" + kRest, "invalid stoull argument\n"},
      {kGrid + kDetector + "  rndSeedSelect: \"-\"\n" + kRest, "invalid stoull argument\n"},
      {kGrid + kDetector + "  rndSeedSelect: 18446744073709551616\n" + kRest,
       "stoull argument out of range\n"},
      {"grid: \"a\" \"b\"\n", "Invalid quote. Line 1: \"a\" \"b\"\n"},
  };
  for (const auto& test : cases) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(unit_of(test.text), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), test.message);
  }
}

TEST(FeatureUnitTest, FillsAFrameQuietly) {
  const auto unit = unit_of(kGrid + kDetector + kRest);
  ASSERT_NE(unit, nullptr);
  fpu::FeatureFrame frame(*unit);
  EXPECT_EQ(frame.store.records.size(), 108u);
  EXPECT_EQ(frame.store.cellCounts.size(), 108u);
  EXPECT_EQ(frame.store.count, 0);
  EXPECT_EQ(frame.store.records[5].refined, 1);

  const cve::XMat_<float> image = testing_support::random_light(120, 100, 2, 30);
  testing::internal::CaptureStdout();
  const std::int32_t count = unit->detectAndDescribe(image, frame.store, frame.descriptors);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(count, 108);
  EXPECT_EQ(frame.descriptors.rows, 108);

  // The lines that a verbose unit prints, with whole milliseconds.
  unit->verbose = true;
  unit->timer.printEnabled = true;
  testing::internal::CaptureStdout();
  unit->detectAndDescribe(image, frame.store, frame.descriptors);
  std::string printed = testing::internal::GetCapturedStdout();
  std::erase_if(printed, [](char c) { return c >= '0' && c <= '9'; });
  EXPECT_EQ(printed,
            "num of keypoints: \ndetection time for an image:  ms\ndescription time for an image:  ms\n");

  // An image of another size holds none of the unit's keypoints.
  EXPECT_EQ(
      unit->detectAndDescribe(testing_support::random_light(90, 100, 2), frame.store, frame.descriptors), 0);
  EXPECT_TRUE(testing_support::live_records(frame.store).empty());
  EXPECT_EQ(frame.descriptors.data, nullptr);

  cve::XMat_<float> dark;
  dark.create(100, 120);
  unit->verbose = unit->timer.printEnabled = false;
  EXPECT_EQ(unit->detectAndDescribe(dark, frame.store, frame.descriptors), 0);
  EXPECT_EQ(frame.descriptors.data, nullptr);
}

TEST(FeatureUnitDeathTest, UnknownOutModeAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(unit_of(kGrid + kDetector + "matching:\n  out_mode: 1\nvdet:\n  ch_bg: 1\n"),
              testing::KilledBySignal(SIGABRT), "");
}

TEST(TimerTest, CarryIsTakenOffOnce) {
  fpu::Timer timer;
  timer.carry = 1e6;
  const double first = timer.lap();
  EXPECT_LT(first, 0.0);
  EXPECT_EQ(first, std::trunc(first));
  EXPECT_EQ(timer.carry, 0.0);
  EXPECT_GE(timer.lap(), 0.0);
  timer.lastTick -= 25'000'000;
  const double late = timer.lap();
  EXPECT_GE(late, 2500.0);
  EXPECT_EQ(late, std::trunc(late));
}

TEST(TimerDeathTest, APausedTimerAborts) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  fpu::Timer timer;
  timer.paused = true;
  EXPECT_EXIT(timer.lap(), testing::KilledBySignal(SIGABRT), "");
}

}  // namespace
