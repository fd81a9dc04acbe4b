#include "features/DetectorSettings.h"

#include <gtest/gtest.h>

#include <limits>
#include <string>
#include <utility>

#include "FeatureTestSupport.h"

namespace {

fpu::DetectorSettings settings_of(const std::string& keys) {
  auto document = testing_support::document_of("RENO:\n  ds_mode: 2\n" + keys);
  fpu::DetectorSettings settings;
  settings.read(twintrue::param_root_child(document, "RENO"));
  return settings;
}

TEST(DetectorSettingsTest, EveryKeyReachesItsField) {
  using S = fpu::DetectorSettings;
  const std::pair<const char*, std::int32_t S::*> keys[] = {
      {"nfeatures", &S::nfeatures},
      {"nlevels", &S::nlevels},
      {"edgeThreshold", &S::edgeThreshold},
      {"firstLevel", &S::firstLevel},
      {"wta_k", &S::wta_k},
      {"scoreType", &S::scoreType},
      {"patchSize", &S::patchSize},
      {"refining", &S::refining},
      {"ds_mode", &S::ds_mode},
      {"gamma_mode", &S::gamma_mode},
      {"desc_gaus_size", &S::desc_gaus_size},
      {"filter_mode", &S::filter_mode},
      {"det_type", &S::det_type},
      {"no_extrema_suppression", &S::no_extrema_suppression},
      {"desc_image_mode", &S::desc_image_mode},
      {"lpf_bit", &S::lpf_bit},
      {"shift_abd", &S::shift_abd},
      {"shift_det", &S::shift_det},
      {"shift_res", &S::shift_res},
      {"mul_subpixel", &S::mul_subpixel},
      {"rnd_mode", &S::rnd_mode},
      {"weightDist", &S::weightDist},
      {"posLimit", &S::posLimit},
      {"patchIntCalcPattern", &S::patchIntCalcPattern},
  };
  std::string text =
      "  scaleFactor: 1.5\n  rotating: 1\n  h_sigma: 2.5\n  rSigma: 3.5\n  rndSeedMake: 4\n  rndSeedSelect: "
      "5\n";
  std::int32_t value = 101;
  for (const auto& [key, field] : keys)
    text += std::string("  ") + key + ": " + std::to_string(value++) + "\n";
  auto document = testing_support::document_of("RENO:\n" + text);
  S settings;
  settings.read(twintrue::param_root_child(document, "RENO"));
  value = 101;
  for (const auto& [key, field] : keys) EXPECT_EQ(settings.*field, value++) << key;
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
