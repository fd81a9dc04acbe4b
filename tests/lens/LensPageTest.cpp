// The page on lens files against the code: its examples are lens files, and its tables hold the keys.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "lens/LensParameters.h"
#include "lens/LensParametersV1.h"
#include "lens/LensParametersV2.h"
#include "support/TempDir.h"

namespace twintrue {
namespace {

using Keys = std::set<std::string>;

std::string page() { return testing_support::read_file(TWINTRUE_SOURCE_DIR "/docs/lens-files.md"); }

// All first groups of a pattern in a text.
Keys found(const std::string& text, const std::string& pattern) {
  const std::regex expression(pattern);
  Keys keys;
  for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at) {
    keys.insert((*at)[1]);
  }
  return keys;
}

// Keys that files are written with, and those that the readers name by themselves.
Keys keys_of_the_code() {
  Keys keys = found(LensParametersV1().text("S") + LensParametersV2().text("S"), R"((\w+) = )");
  for (const auto& entry : std::filesystem::directory_iterator(TWINTRUE_SOURCE_DIR "/lens")) {
    keys.merge(found(testing_support::read_file(entry.path()),
                     R"((?:ini_get|ini_get_double|ini_find_item)\([^"\n;]*"(\w+)\"\))"));
  }
  return keys;
}

// Keys in the first column of the page's tables; `left_eye_x0`, `..._y0` stand in full.
Keys keys_of_the_page() {
  Keys keys;
  std::istringstream lines(page());
  bool key_table = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("| Key", 0) == 0) key_table = true;
    if (line.empty()) key_table = false;
    if (!key_table || line.rfind("| `", 0) != 0) continue;
    keys.merge(found(line.substr(0, line.find('|', 1)), "`([A-Za-z_0-9]+)`"));
  }
  return keys;
}

TEST(LensPage, HasEveryKeyAndNoOther) {
  const Keys code = keys_of_the_code();
  ASSERT_THAT(code, testing::IsSupersetOf({"format_version", "version", "FOV", "left_eye_roll",
                                           "ideal_height_lut_max", "ideal_height_precision_bit"}));
  EXPECT_EQ(keys_of_the_page(), code);
}

TEST(LensPage, HasAnExampleOfEachFormatThatDescribesTheSameLens) {
  const std::string text = page();
  const std::regex block("```ini\n([^`]*)```");
  const testing_support::TempDir dir;
  std::vector<RigState> rigs;
  for (std::sregex_iterator at(text.begin(), text.end(), block), end; at != end; ++at) {
    RigState rig;
    testing::internal::CaptureStdout();
    const int loaded = load_lens_description(rig, dir.write("page.lens", (*at)[1]), kLensSection);
    const std::string said = testing::internal::GetCapturedStdout();
    ASSERT_EQ(loaded, 1) << (*at)[1];
    EXPECT_TRUE(rig_is_usable(rig));
    EXPECT_THAT(said, testing::Not(testing::AnyOf(testing::HasSubstr("ERROR"), testing::HasSubstr("WARN"),
                                                  testing::HasSubstr("set "))));
    rigs.push_back(std::move(rig));
  }
  ASSERT_EQ(rigs.size(), 2u);
  EXPECT_EQ(rigs[0].current.left.distortion.kind, 1u);
  EXPECT_EQ(rigs[1].current.left.distortion.kind, 2u);
  constexpr double kSamePx = 0.01;
  for (const auto eye : {&RigModel::left, &RigModel::right}) {
    for (double angle = 0.0; angle < 6.3; angle += 0.3) {
      const double x = 0.6 * std::cos(angle);
      const double y = 0.6 * std::sin(angle);
      double px[2], py[2];
      for (std::size_t i = 0; i < 2; ++i) {
        ASSERT_TRUE(eye_ray_to_image(rigs[i].current.*eye, &px[i], &py[i], x, y, -0.8));
      }
      EXPECT_NEAR(px[0], px[1], kSamePx);
      EXPECT_NEAR(py[0], py[1], kSamePx);
    }
  }
}

}  // namespace
}  // namespace twintrue
