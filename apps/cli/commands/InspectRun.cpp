#include "apps/cli/commands/InspectRun.h"

#include <fmt/format.h>

#include "apps/TwinTrue/ImageFormatConverter.h"
#include "apps/cli/InputFile.h"
#include "apps/cli/LensCheck.h"
#include "apps/cli/PictureFiles.h"
#include "apps/cli/Problem.h"
#include "apps/cli/commands/InspectOutput.h"
#include "matching/MatchPipeline.h"
#include "twintrue/calib.h"

namespace twintrue::cli {
namespace {

[[noreturn]] void fail_changed(const std::string& file) {
  throw Failure(ExitCode::kOther, Problem{file, "a file that changed while it was read",
                                          "the same contents throughout", "start again"});
}

}  // namespace

void add_frame(CLI::App& command, RunArguments& arguments) {
  command.add_option("FRAME", arguments.frame, "Picture with both fisheye pictures side by side")
      ->required()
      ->type_name("");
}

void add_lens_and_params(CLI::App& command, RunArguments& arguments) {
  command.add_option("--lens", arguments.lens, "Lens description file")->required()->type_name("LENS");
  command
      .add_option("--params", arguments.params,
                  "Parameter file, or its text in more than one line (default: the preset default)")
      ->type_name("PARAMS");
}

void add_side(CLI::App& command, RunArguments& arguments) {
  command
      .add_option("--side", arguments.side,
                  "Half of the frame: left (the right eye's picture) or right (the left eye's)")
      ->required()
      ->check(CLI::IsMember({"left", "right"}))
      ->type_name("SIDE");
}

std::vector<NamedPath> inputs_of(const RunArguments& arguments) {
  std::vector<NamedPath> inputs;
  if (!arguments.frame.empty()) inputs.push_back({"FRAME", arguments.frame});
  inputs.push_back({"--lens", arguments.lens});
  add_input(inputs, "--params", arguments.params);
  return inputs;
}

std::unique_ptr<FrameRun> open_frame_run(const RunArguments& arguments, Reach reach) {
  require_readable_file({"FRAME", arguments.frame});
  const LensFacts lens = check_lens(arguments.lens);
  auto run = std::make_unique<FrameRun>();
  run->settings = std::make_unique<SettingsSource>(arguments.params);
  const Frame picture = read_frame(arguments.frame);
  check_frame_size(lens, arguments.lens, picture.width, picture.height);
  require_stages(*run->settings, lens, reach);

  const MessagesToErrors redirected;
  convert_frame_by_team(run->frame,
                CalibImage{picture.width, picture.height, static_cast<std::int32_t>(picture.width * 3),
                           picture.pixels.data(), 0});
  if (!read_lens(run->rig, arguments.lens)) fail_changed(arguments.lens);
  const cve::Size size = half_frame_size(run->rig);
  run->unit = fpu::createFeatureUnit(run->settings->path(), size.cols, size.rows);
  if (!run->unit) fail_changed(run->settings->name());
  run->halves = half_frames(run->frame, run->rig);
  return run;
}

MatchedHalves::MatchedHalves(FrameRun& run)
    : left(*run.unit), right(*run.unit), set(make_match_set(*run.unit)) {
  const MessagesToErrors redirected;
  left_keypoints = detect_half(run.halves.left, left);
  right_keypoints = detect_half(run.halves.right, right);
  records = fpu::match_frames(left, right, &set, false);
}

}  // namespace twintrue::cli
