#include "apps/cli/commands/InspectRun.h"

#include <fmt/format.h>

#include <utility>

#include "apps/TwinTrue/ImageFormatConverter.h"
#include "apps/cli/ChatterCapture.h"
#include "apps/cli/InputFile.h"
#include "apps/cli/PictureFiles.h"
#include "apps/cli/Problem.h"
#include "apps/cli/checks/LensCheck.h"
#include "apps/cli/checks/SettingsCheck.h"
#include "matching/MatchPipeline.h"
#include "twintrue/calib.h"

namespace twintrue::cli {
namespace {

[[noreturn]] void fail_changed(const std::string& file) {
  throw Failure(ExitCode::kOther, Problem{file, "a file that changed while it was read",
                                          "the same contents throughout", "start again"});
}

}  // namespace

std::vector<NamedPath> inputs_of(const RunArguments& arguments) {
  std::vector<NamedPath> inputs;
  if (!arguments.frame.empty()) inputs.push_back({"FRAME", arguments.frame});
  inputs.push_back({"--lens", arguments.lens});
  add_input(inputs, "--params", arguments.settings.params);
  return inputs;
}

std::unique_ptr<FrameRun> open_frame_run(const RunArguments& arguments, Reach reach) {
  require_readable_file({"FRAME", arguments.frame});
  const LensFacts lens = check_lens(arguments.lens);
  auto run = std::make_unique<FrameRun>(arguments.threads);
  run->settings = arguments.settings.open();
  const Frame picture = read_frame(arguments.frame);
  if (const auto note = check_frame_size(lens, arguments.lens, picture.width, picture.height)) {
    fmt::print(stderr, "twintrue: note: {}\n", *note);
  }
  ParamDocument settings = open_settings(*run->settings);
  check_settings(*run->settings, settings, lens, reach);

  const MessagesToErrors redirected;
  convert_frame_by_team(
      run->frame, CalibImage{picture.width, picture.height, static_cast<std::int32_t>(picture.width * 3),
                             picture.pixels.data(), 0});
  if (!read_lens(run->rig, arguments.lens)) fail_changed(arguments.lens);
  const cve::Size size = half_frame_size(run->rig);
  run->unit = fpu::createFeatureUnit(std::move(settings), size.cols, size.rows);
  if (!run->unit) fail_changed(run->settings->name());
  run->halves = half_frames(run->frame, run->rig);
  return run;
}

MatchedHalves::MatchedHalves(FrameRun& run)
    : left_half(*run.unit), right_half(*run.unit), set(make_match_set(*run.unit)) {
  const MessagesToErrors redirected;
  left_half_keypoints = detect_half(run.halves.left, left_half);
  right_half_keypoints = detect_half(run.halves.right, right_half);
  records = fpu::match_frames(left_half, right_half, &set, false);
}

}  // namespace twintrue::cli
