#include "apps/cli/commands/InspectStage.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "apps/TwinTrue/RunDriver.h"
#include "apps/cli/ChatterCapture.h"
#include "apps/cli/OutputFile.h"
#include "apps/cli/PictureFiles.h"
#include "apps/cli/Problem.h"
#include "apps/cli/commands/InspectOutput.h"
#include "features/FeatureFrame.h"
#include "features/RENO_Impl.h"
#include "features/StageTap.h"

namespace twintrue::cli {
namespace {

// Keeps one image as floats.
class OneImage final : public fpu::StageTap {
 public:
  explicit OneImage(std::string name) : name_(std::move(name)) {}

  void image(std::string_view name, const cve::XMat& image, std::int32_t /*x*/, std::int32_t /*y*/) override {
    if (name != name_) return;
    cols = image.cols;
    rows = image.rows;
    pixels.clear();
    switch (image.type()) {
      case cve::kUint8:
        append<unsigned char>(image);
        break;
      case cve::kInt16:
        append<short>(image);
        break;
      default:
        append<float>(image);
    }
  }

  std::int32_t cols = 0;
  std::int32_t rows = 0;
  std::vector<float> pixels;

 private:
  template <typename T>
  void append(const cve::XMat& image) {
    pixels.reserve(static_cast<std::size_t>(cols) * static_cast<std::size_t>(rows));
    for (std::int32_t y = 0; y < rows; ++y) {
      const auto* const row = reinterpret_cast<const T*>(static_cast<const std::byte*>(image.data) +
                                                         std::ptrdiff_t{y} * image.stride);
      for (std::int32_t x = 0; x < cols; ++x) pixels.push_back(static_cast<float>(row[x]));
    }
  }

  std::string name_;
};

[[noreturn]] void fail_absent(const StageArguments& arguments, const fpu::FeatureFrame& frame) {
  const bool no_keypoints = arguments.stage == "smoothed" && frame.store.count == 0;
  if (no_keypoints) {
    throw Failure(ExitCode::kTooFewMatches,
                  Problem{fmt::format("FRAME: {}", arguments.frame),
                          "no keypoint in this half, so that nothing is smoothed for descriptors",
                          "a picture with detail", "look at `inspect stage response`"});
  }
  throw Failure(
      ExitCode::kFileUnusable,
      Problem{"PARAMS: section `RENO`", fmt::format("settings without an image `{}`", arguments.stage),
              "`det_type: 6`; for `smoothed` a `desc_gaus_size` above 0", "change these keys"});
}

}  // namespace

const std::vector<std::string>& stage_names() {
  static const std::vector<std::string> kNames{"linear", "filtered", "fixed",    "working",
                                               "gx",     "gy",       "lxx",      "lxy",
                                               "lyy",    "det",      "response", "smoothed"};
  return kNames;
}

void inspect_stage(const StageArguments& arguments) {
  OutputFile file({"-o", arguments.picture}, inputs_of(arguments));
  const auto run = open_frame_run(arguments, Reach::kDetection);
  fpu::FeatureFrame frame(*run->unit);
  OneImage image(arguments.stage);
  auto& detector = dynamic_cast<fpu::RENO_Impl&>(*run->unit->detector);
  {
    const MessagesToErrors redirected;
    detector.setTap(&image);
    detect_half(run->half(arguments.side), frame);
    detector.setTap(nullptr);
  }
  if (image.pixels.empty()) fail_absent(arguments, frame);
  write_float_picture(file, image.cols, image.rows, image.pixels);
  file.commit();
}

}  // namespace twintrue::cli
