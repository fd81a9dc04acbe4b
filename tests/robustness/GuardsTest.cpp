// What files may ask for, as a host meets it: everything beyond the limits is refused with a status, and what
// is just within them is carried out.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <vector>

#include "SmallRun.h"

namespace {

using namespace testing_support;

std::string repeated(const std::string& text, std::size_t count) {
  std::string all;
  all.reserve(text.size() * count);
  for (std::size_t i = 0; i < count; ++i) all += text;
  return all;
}

// Sections of one key inside one another, and a value.
std::string nested_sections(int levels) {
  std::string text;
  for (int i = 0; i < levels; ++i) text += std::string(static_cast<std::size_t>(i), ' ') + "a:\n";
  return text + std::string(static_cast<std::size_t>(levels), ' ') + "1\n";
}

constexpr std::int32_t kDone = TWINTRUE_CALIBRATED;
constexpr std::int32_t kRefused = TWINTRUE_FAILED;
constexpr std::int32_t kNoLens = TWINTRUE_LENS_UNREADABLE;

// Of what the loaders refuse, a line for each section: their own tests have them all.
TEST(Guards, OfSettings) {
  const struct {
    std::string lines;  // behind a file that is complete
    std::int32_t status;
  } cases[] = {
      {"calib:\n  retry_count: 19\n", kRefused},       // sections missing
      {"calib:\n  num_levels: -2147483648\n", kDone},  // runs no level
      {"calib:\n  score_tbl_size: 16777216\n  score_weight_mode: 7\n", kDone},
      {"calib:\n  score_tbl_size: 64\n  score_tbl_coeff: nan\n  score_weight_mode: 11\n", kDone},
      {"calib:\n  right:\n    roll:\n      div: 2147483646\n    pan:\n      div: 2147483646\n", kRefused},
      {"calib:\n  right:\n    roll:\n      div: -2147483648\n", kDone},
      {"calib:\n  num_using_feat_last: -2147483648\n  num_of_using_feat: [-1, -2147483648]\n", kDone},
      {"calib:\n  sigma: nan\n  sigma_org_last: 0\n", kDone},
      {"grid:\n  num_kps_in_cell: 100000000\n", kRefused},
      {"grid:\n  num_kps_in_cell: 20000\n  vert_margin: -2147483648\n", kDone},
      {"RENO:\n  patchSize: 2147483647\n", kRefused},
      {"RENO:\n  rnd_mode: 1\n  rSigma: nan\n", kRefused},
      {"RENO:\n  filter_type: -2147483648\n  res_th: nan\n", kDone},
      {"mvc:\n  bin_width: 0\n", kRefused},
      {"mvc:\n  th: 1e38\n  th2: nan\n  normalizing_coeff: -2147483648\n", kDone},
      {"matching:\n  dist_ratio_offset: -2147483648\n  max_vector_ratio_h: 1e300\n", kDone},
      // Texts.
      {nested_sections(1000), kDone},
      {nested_sections(1001), kRefused},
      {"a: " + std::string(1 << 20, '[') + "\n", kDone},
      {"a: [" + repeated("1,", 1 << 18) + "]\n", kDone},
      {"  " + std::string(1 << 20, ' ') + "# far to the right\n", kDone},
      {std::string(1 << 20, 'k') + ": v\n", kDone},
      {"a: [" + repeated("1,", (1 << 20) + 1) + "]\n", kRefused},
      {"a: |\n" + repeated(" line\n", 1 << 16), kDone},
      {"a: |\n" + repeated(" line\n", 1 << 20), kRefused},
      {"a: \"\n", kRefused},
  };
  const SmallFrame frame;
  for (const auto& test : cases) {
    const SmallRun run(small_lens(), small_settings() + test.lines);
    CalibResult result{};
    const std::int32_t status = run.status(frame.image, "", &result);
    // A search without levels, matches or sense ends with the quality test.
    if (test.status == kDone && status == TWINTRUE_QUALITY_FAILED) continue;
    EXPECT_EQ(status, test.status) << test.lines.substr(0, 100);
    if (status != kDone) {
      EXPECT_EQ(result.score, -1.0) << test.lines.substr(0, 100);
    }
  }
}

TEST(Guards, OfLensFiles) {
  const struct {
    std::string statements;  // behind a file that is complete
    std::int32_t status;
  } cases[] = {
      {"input_width = 0;", kNoLens},
      {"input_width = 18446744073709551615;", kNoLens},
      {"ideal_height_precision_bit = 0;", kNoLens},
      {"ideal_height_lut_max = 1.0 / 0.0;", kDone},  // leaves the float part of the left side
      {"left_eye_lambda = " + std::string(400, '9') + ".0;", kNoLens},
      {"distortion_coeff3 = -" + std::string(400, '9') + ".0;", kNoLens},
      {"ideal_height_precision_bit = 18; distortion_coeff2 = -200.0; format_version = 0; version = 2.3;",
       kNoLens},
      {"baseline = " + repeated("(", 1000) + "0.07" + repeated(")", 1000) + ";", kDone},
      {"x = -9223372036854775807 - 1; y = x / -1; z = x % -1; w = int(1" + std::string(300, '0') + ".0);",
       kDone},
      {"s = \"0123456789abcdef\"; " + repeated("s = s + s;", 60), kNoLens},
      {repeated("print(\"x\" -> ", 3000), kDone},
      {std::string(1 << 20, 'k') + " = 1;", kDone},
      {"s = \"" + std::string(1 << 20, 's') + "\";", kDone},
      {"x = 1 -> ", kDone},
      {"/* no end", kDone},
      {"\"no end", kDone},
      {std::string("\0\0\0", 3), kDone},
  };
  const SmallFrame frame;
  for (const auto& test : cases) {
    const SmallRun run(small_lens() + test.statements);
    EXPECT_EQ(run.status(frame.image), test.status) << test.statements.substr(0, 100);
  }
}

TEST(Guards, OfFilesWithoutBytesAndOfVeryMany) {
  const SmallFrame frame;
  const SmallRun good;
  const TempDir dir;
  const std::string lens = dir.write("good.lens", small_lens());
  const std::string settings = dir.write("good.yaml", small_settings());
  const auto status = [&](const std::string& lens_path, const std::string& settings_path) {
    return calib(&frame.image, lens_path.c_str(), settings_path.c_str(), "", 1, nullptr);
  };
  EXPECT_EQ(status(lens, settings), kDone);

  const std::string empty = dir.write("empty", "");
  EXPECT_EQ(status(empty, settings), kNoLens);
  EXPECT_EQ(status(lens, empty), kRefused);

  // 64 MiB of no bytes at all, then of lines that say nothing behind settings that do.
  constexpr std::uintmax_t kLarge = std::uintmax_t{64} << 20;
  std::filesystem::resize_file(empty, kLarge);
  EXPECT_EQ(status(empty, settings), kNoLens);
  EXPECT_EQ(status(lens, empty), kRefused);
  const std::string full =
      dir.write("full.yaml", small_settings() + std::string(kLarge - small_settings().size(), '\n'));
  EXPECT_EQ(status(lens, full), kDone);
  std::ofstream(full, std::ios::app) << '\n';
  EXPECT_EQ(status(lens, full), kRefused);

  // A folder is no file, and neither is a device without end.
  EXPECT_EQ(status(dir.path().string(), settings), kNoLens);
  EXPECT_EQ(status(lens, dir.path().string()), kRefused);
  EXPECT_EQ(status(lens, "/dev/zero"), kRefused);
}

}  // namespace
