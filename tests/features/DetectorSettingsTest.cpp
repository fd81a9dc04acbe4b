#include "features/DetectorSettings.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>

#include "FeatureTestSupport.h"

namespace {

fpu::DetectorSettings settings_of(const std::string& keys) {
  auto document = testing_support::document_of("RENO:\n  any: 1\n" + keys);
  fpu::DetectorSettings settings;
  settings.read(twintrue::param_root_child(document, "RENO"));
  return settings;
}

TEST(DetectorSettingsTest, EveryKeyReachesItsFieldAndNeedNotBeThere) {
  using S = fpu::DetectorSettings;
  const struct {
    const char* key;
    std::int32_t S::*field;
    std::int32_t otherwise;  // where the file says nothing
  } keys[] = {
      {"nfeatures", &S::nfeatures, 0},
      {"nlevels", &S::nlevels, 1},
      {"edgeThreshold", &S::edgeThreshold, 15},
      {"firstLevel", &S::firstLevel, 0},
      {"wta_k", &S::wta_k, 1},
      {"scoreType", &S::scoreType, 1},
      {"patchSize", &S::patchSize, 13},
      {"refining", &S::refining, 1},
      {"ds_mode", &S::ds_mode, 2},
      {"gamma_mode", &S::gamma_mode, 2},
      {"desc_gaus_size", &S::desc_gaus_size, 7},
      {"filter_mode", &S::filter_mode, 7},
      {"det_type", &S::det_type, 0},
      {"no_extrema_suppression", &S::no_extrema_suppression, 0},
      {"desc_image_mode", &S::desc_image_mode, 0},
      {"lpf_bit", &S::lpf_bit, 0},
      {"shift_abd", &S::shift_abd, 0},
      {"shift_det", &S::shift_det, 0},
      {"shift_res", &S::shift_res, 0},
      {"mul_subpixel", &S::mul_subpixel, 32},
      {"rnd_mode", &S::rnd_mode, 0},
      {"weightDist", &S::weightDist, 0},
      {"posLimit", &S::posLimit, 0},
      {"patchIntCalcPattern", &S::patchIntCalcPattern, 0},
  };
  std::string text =
      "  scaleFactor: 1.5\n  rotating: 1\n  h_sigma: 2.5\n  rSigma: 3.5\n  rndSeedMake: 4\n  rndSeedSelect: "
      "5\n";
  std::int32_t value = 101;
  for (const auto& [key, field, otherwise] : keys)
    text += std::string("  ") + key + ": " + std::to_string(value++) + "\n";
  auto document = testing_support::document_of("RENO:\n" + text);
  S settings;
  settings.read(twintrue::param_root_child(document, "RENO"));
  value = 101;
  for (const auto& [key, field, otherwise] : keys) {
    EXPECT_EQ(settings.*field, value++) << key;
    EXPECT_EQ(settings_of("").*field, otherwise) << key;
  }
  EXPECT_EQ(settings_of("").scaleFactor, 2.0);
  EXPECT_EQ(settings_of("").h_sigma, 1.0f);
  EXPECT_EQ(settings.scaleFactor, 1.5);
  EXPECT_TRUE(settings.rotating);
  EXPECT_EQ(settings.h_sigma, 2.5f);
  EXPECT_EQ(settings.rSigma, 3.5f);
  EXPECT_EQ(settings.seedMake, 4u);
  EXPECT_EQ(settings.seedSelect, 5u);
}

TEST(DetectorSettingsTest, DescriptorLength) {
  const struct {
    std::string keys;
    std::int32_t bytes;
  } cases[] = {
      {"", 8},
      {"  desc_bytes: 16\n", 8},
      {"  desc_bytes: 32\n", 16},
      {"  desc_bytes: many\n", 8},
      {"  desc_bits: 256\n", 32},
      {"  desc_bytes: 5\n  desc_bits: 256\n", 32},
      {"  desc_bytes: 5\n  desc_bits: many\n", 2},
      {"  desc_bits: 127\n", 15},
      {"  desc_bits: 7\n", 0},
  };
  for (const auto& test : cases) EXPECT_EQ(settings_of(test.keys).desc_bytes, test.bytes) << test.keys;
}

TEST(DetectorSettingsTest, ValuesByLevel) {
  const struct {
    std::string keys;
    std::array<std::int32_t, 3> filters;
    std::array<float, 3> thresholds;
  } cases[] = {
      {"", {0, 0, 0}, {0, 0, 0}},
      {"  nlevels: 2\n  filter_type: 3\n  filter_types: [5]\n", {5, 3, 0}, {0, 0, 0}},
      {"  nlevels: 2\n  filter_types: [5.9, -7.9, 4]\n", {5, -7, 0}, {0, 0, 0}},
      {"  filter_type: 3\n  filter_types: [5, 6]\n", {5, 0, 0}, {0, 0, 0}},
      {"  nlevels: 3\n  filter_type: 3\n  filter_types: [x, 1e30]\n",
       {0, std::numeric_limits<std::int32_t>::min(), 3},
       {0, 0, 0}},
      {"  nlevels: 2\n  res_th: 10\n  fastThreshold: 5\n", {0, 0, 0}, {10, 10, 0}},
      {"  nlevels: 2\n  fastThreshold: 5.5\n", {0, 0, 0}, {5.5f, 5.5f, 0}},
      {"  nlevels: 2\n  fastThresholds: [5, 6]\n", {0, 0, 0}, {0, 0, 0}},
      {"  nlevels: 2\n  fastThreshold:\n  fastThresholds: [5, 6]\n", {0, 0, 0}, {5, 6, 0}},
      {"  nlevels: 3\n  fastThreshold: 2\n  res_ths: [5, 6]\n", {0, 0, 0}, {5, 6, 2}},
      {"  nlevels: 3\n  fastThreshold: 2\n  fastThresholds: [3, 4]\n  res_th: x\n", {0, 0, 0}, {3, 4, 2}},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.keys);
    const fpu::DetectorSettings settings = settings_of(test.keys);
    for (std::size_t level = 0; level < 3; ++level) {
      EXPECT_EQ(settings.filter_type[level], test.filters[level]) << level;
      EXPECT_EQ(settings.threshold[level], test.thresholds[level]) << level;
    }
  }
}

TEST(DetectorSettingsTest, Seeds) {
  const struct {
    std::string text;
    std::uint64_t value;
  } cases[] = {
      {"5", 5},
      {"18446744073709551615", 18446744073709551615u},
      {"-1", 18446744073709551615u},
      {"+7up", 7},
      {"0x10", 0},
      {"", 2520318559576078924u},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(settings_of("  rndSeedMake: " + test.text + "\n").seedMake, test.value) << test.text;
  }
  EXPECT_EQ(settings_of("").seedSelect, 8247538000375353181u);
  EXPECT_EQ(settings_of("  rndSeedSelect: \" 12\"\n").seedSelect, 12u);
}

TEST(DetectorSettingsTest, AbsentAndUnreadableKeysKeepTheirValue) {
  const fpu::DetectorSettings settings = settings_of(
      "  patchSize: big\n  rotating: yes\n  rSigma: 1e99\n  scaleFactor: 1.25x\n  refining: 2.7\n");
  EXPECT_EQ(settings.patchSize, 13);
  EXPECT_FALSE(settings.rotating);
  EXPECT_EQ(settings.rSigma, 1.0f);
  EXPECT_EQ(settings.scaleFactor, 1.25);
  EXPECT_EQ(settings.refining, 2);
  EXPECT_TRUE(settings_of("  rotating: 1\n").rotating);
}

TEST(DetectorSettingsTest, RefusesWhatLeavesTheArrays) {
  const struct {
    std::string keys;
    bool usable;
  } cases[] = {
      {"", true},
      {"  nlevels: 0\n", false},
      {"  nlevels: 20\n", true},
      {"  nlevels: 21\n  filter_type: 3\n  filter_types: [1, 2]\n", false},
      {"  nlevels: -2147483648\n", false},
      {"  patchSize: 0\n", false},
      {"  patchSize: 60\n", true},
      {"  patchSize: 61\n", false},
      {"  desc_bits: 7\n", false},
      {"  desc_bits: -8\n", false},
      {"  desc_bits: 512\n", true},
      {"  desc_bits: 520\n", false},
      {"  desc_bytes: 2147483647\n", false},
      {"  desc_bytes: -2147483648\n", false},
      {"  filter_type: 23\n", true},
      {"  filter_type: 24\n", false},
      {"  filter_type: -5\n", true},
      {"  filter_types: [1, 99]\n", true},
      {"  nlevels: 2\n  filter_types: [1, 99]\n", false},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(settings_of(test.keys).usable(80, 60), test.usable) << test.keys;
    EXPECT_EQ(settings_of(test.keys).usable(60, 80), test.usable) << test.keys;
  }
}

}  // namespace
