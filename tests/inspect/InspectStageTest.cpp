// Images between the steps of detection.

#include <OpenImageIO/imageio.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "cli/Fixtures.h"
#include "inspect/Inspection.h"
#include "support/TempDir.h"

namespace {

using cli_test::kSmallHeight;
using cli_test::kSmallWidth;
using inspect_test::run_inspect;
using testing_support::TempDir;

struct Picture {
  int width = 0;
  int height = 0;
  std::vector<float> pixels;
  float at(int x, int y) const { return pixels.at(static_cast<std::size_t>(y * width + x)); }
};

Picture read_tiff(const std::string& path) {
  const std::unique_ptr<OIIO::ImageInput> input = OIIO::ImageInput::open(path);
  Picture picture;
  if (!input) return picture;
  const OIIO::ImageSpec spec = input->spec();
  EXPECT_STREQ(input->format_name(), "tiff");
  EXPECT_EQ(spec.nchannels, 1);
  EXPECT_EQ(spec.format, OIIO::TypeFloat);
  picture.width = spec.width;
  picture.height = spec.height;
  picture.pixels.resize(static_cast<std::size_t>(spec.width) * static_cast<std::size_t>(spec.height));
  EXPECT_TRUE(input->read_image(0, 0, 0, 1, OIIO::TypeFloat, picture.pixels.data()));
  return picture;
}

class InspectStage : public testing::Test {
 protected:
  static constexpr int kHalf = kSmallWidth / 2;
  static constexpr int kMargin = 40;  // of the settings' grid
  static constexpr int kCell = 64;

  static void SetUpTestSuite() {
    dir_ = std::make_unique<TempDir>();
    dir_->write("small.lens", cli_test::small_lens());
    // Soft spots, so that no step runs out of its range.
    std::mt19937 engine(3);
    samples_.resize(static_cast<std::size_t>(kSmallWidth) * kSmallHeight * 3);
    for (float& sample : samples_) sample = static_cast<float>(64 + engine() % 128) / 255.0f;
    cli_test::write_picture(dir_->file("frame.png"), kSmallWidth, kSmallHeight, 3, OIIO::TypeUInt8, samples_);
  }

  static void TearDownTestSuite() {
    dir_.reset();
    stages_.clear();
  }

  // The image of that name, made when a test first asks for it.
  static const Picture& stage(const std::string& name) {
    const auto known = stages_.find(name);
    if (known != stages_.end()) return known->second;
    const std::string path = dir_->file(name + ".tif");
    const cli_test::Outcome outcome =
        run_inspect({"stage", name, dir_->file("frame.png"), "--lens", dir_->file("small.lens"), "--params",
                     TWINTRUE_SOURCE_DIR "/tests/support/settings.yaml", "--side", "right", "-o", path});
    EXPECT_EQ(outcome.exit_code, 0) << name << outcome.error;
    EXPECT_EQ(outcome.out, "");
    return stages_[name] = read_tiff(path);
  }

  static inline std::unique_ptr<TempDir> dir_;
  static inline std::vector<float> samples_;
  static inline std::map<std::string, Picture> stages_;
};

// That each step is carried out right is for the tests of detection. Here each name has to bring its own
// image, of the half that is asked for, whatever the type of its pixels.
TEST_F(InspectStage, EachNameBringsItsImage) {
  for (const char* name : {"linear", "filtered", "fixed", "working", "smoothed"}) {
    ASSERT_EQ(stage(name).width, kHalf) << name;
    ASSERT_EQ(stage(name).height, kSmallHeight) << name;
  }
  const int cells = (kHalf - 2 * kMargin) / kCell;
  for (const char* name : {"gx", "gy", "lxx", "lxy", "lyy", "det", "response"}) {
    ASSERT_EQ(stage(name).width, cells * kCell) << name;
    ASSERT_EQ(stage(name).height, cells * kCell) << name;
  }
  // The linear light of the half that is asked for, and what the steps make of it.
  for (int x = 0; x < kHalf; x += 5) {
    const std::size_t at = (std::size_t{9} * kSmallWidth + static_cast<std::size_t>(kHalf + x)) * 3;
    const auto byte = [&](std::size_t c) {
      return std::round(static_cast<double>(samples_[at + c]) * 255.0);
    };
    const double luminance = (0.299 * byte(0) + 0.587 * byte(1) + 0.114 * byte(2)) / 255.0;
    ASSERT_NEAR(stage("linear").at(x, 9), std::pow((luminance + 0.055) / 1.055, 2.4), 1e-5) << x;
    ASSERT_EQ(stage("working").at(x, 9), std::floor(stage("fixed").at(x, 9) / 4.0f));
    const int column = x % (cells * kCell);
    const auto derivative = [&](const char* name) { return double{stage(name).at(column, 9)}; };
    const double xx = derivative("lxx"), xy = derivative("lxy"), yy = derivative("lyy");
    ASSERT_NEAR(derivative("det"), xx * yy - xy * xy, 1e-6 * (xx * xx + yy * yy + 2 * xy * xy));
  }
  for (const auto& [one, other] :
       {std::pair{"gx", "gy"}, {"lxx", "lyy"}, {"filtered", "linear"}, {"smoothed", "working"}}) {
    EXPECT_NE(stage(one).pixels, stage(other).pixels) << one;
  }
  const auto& response = stage("response").pixels;
  EXPECT_EQ(*std::min_element(response.begin(), response.end()), 0.0f);
}

TEST_F(InspectStage, TellsWhenThereIsNoImage) {
  const std::string black = dir_->file("black.png");
  cli_test::write_black_frame(black);
  const std::string out = dir_->file("none.tif");
  const auto run = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "stage");
    arguments.insert(arguments.end(), {"--lens", dir_->file("small.lens"), "--side", "left", "-o", out});
    return run_inspect(arguments).exit_code;
  };
  EXPECT_EQ(run({"smoothed", black}), 5);
  EXPECT_EQ(run({"working", black, "--params", cli_test::settings_with("  det_type: 6", "  det_type: 0")}),
            4);
  EXPECT_EQ(run({"smoothed", dir_->file("frame.png"), "--params",
                 cli_test::settings_with("  desc_gaus_size: 7", "  desc_gaus_size: 0")}),
            4);
  EXPECT_EQ(run({"blurred", black}), 2);
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_EQ(run({"response", black}), 0);
  EXPECT_EQ(read_tiff(out).pixels, std::vector<float>(read_tiff(out).pixels.size(), 0.0f));
}

}  // namespace
