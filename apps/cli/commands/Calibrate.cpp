#include "apps/cli/commands/Calibrate.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/TwinTrue/Calibration.h"
#include "apps/cli/ChatterCapture.h"
#include "apps/cli/InputFile.h"
#include "apps/cli/LensCheck.h"
#include "apps/cli/OutputFile.h"
#include "apps/cli/PictureFiles.h"
#include "apps/cli/Preset.h"
#include "apps/cli/Problem.h"
#include "apps/cli/Progress.h"
#include "apps/cli/RunReport.h"
#include "apps/cli/SettingsCheck.h"
#include "apps/cli/SettingsSource.h"
#include "twintrue/calib.h"
#include "verdict/Evidence.h"

namespace twintrue::cli {
namespace {

constexpr const char* kStandardOutput = "-";  // as the name of the JSON file

struct CalibrateArguments {
  std::string frame;
  std::string lens;
  std::optional<std::string> params;
  std::optional<std::string> preset;
  std::optional<std::string> out_lens;
  std::optional<std::string> json;
  bool ignore_thresholds = false;
  bool verbose = false;

  bool json_to_output() const { return json == kStandardOutput; }
};

// The files to write.
struct Outputs {
  std::unique_ptr<OutputFile> lens;
  std::unique_ptr<OutputFile> json;
};

// Files that no output may replace.
std::vector<NamedPath> inputs_of(const CalibrateArguments& arguments) {
  std::vector<NamedPath> inputs{{"FRAME", arguments.frame}, {"--lens", arguments.lens}};
  const bool is_text = arguments.params && arguments.params->find('\n') != std::string::npos;
  if (arguments.params && !is_text) inputs.push_back({"--params", *arguments.params});
  return inputs;
}

void check_json(const CalibrateArguments& arguments, Outputs& outputs) {
  if (!arguments.json || arguments.json_to_output()) return;
  outputs.json = std::make_unique<OutputFile>(NamedPath{"--json", *arguments.json}, inputs_of(arguments));
}

void check_out_lens(const CalibrateArguments& arguments, Outputs& outputs) {
  if (!arguments.out_lens) return;
  std::vector<NamedPath> taken = inputs_of(arguments);
  if (outputs.json) taken.push_back({"--json", *arguments.json});
  const NamedPath target{"-o", *arguments.out_lens};
  refuse_scrambled_name(target);
  outputs.lens = std::make_unique<OutputFile>(target, taken);
}

class EvidenceGatherer final : public RunObserver {
 public:
  void on_searched(const CalibContext& context, const RigState& rig, const std::vector<RayMatch>& matches,
                   const CalibResult& result) override {
    evidence_ = gather_evidence(context, rig, matches, result);
  }
  std::optional<Evidence> take() { return std::move(evidence_); }

 private:
  std::optional<Evidence> evidence_;
};

// Puts the corrected file in its place if there is one that is worth it.
void keep_out_lens(const LensFacts& lens, Outputs& outputs, RunReport& report) {
  const ExitCode code = exit_code_of(report);
  const bool searched = code == ExitCode::kCalibrated || code == ExitCode::kQualityFailed;
  // With too few matches the library may write the lens file as it was, which would pass for a corrected one.
  if (!outputs.lens || !searched) return;
  if (!is_whole_lens(outputs.lens->temporary().string(), lens)) {
    throw Failure(ExitCode::kOther,
                  Problem{fmt::format("-o: {}", outputs.lens->target().string()),
                          "the corrected lens file could not be written whole", "room for it on the disk",
                          "free some space or choose another folder"});
  }
  outputs.lens->commit();
  report.out_lens = outputs.lens->target().string();
}

RunReport run(const CalibrateArguments& arguments, Outputs& outputs) {
  check_out_lens(arguments, outputs);
  require_readable_file({"FRAME", arguments.frame});
  const LensFacts lens = check_lens(arguments.lens);
  const SettingsSource source =
      arguments.preset ? SettingsSource(*find_preset(*arguments.preset)) : SettingsSource(arguments.params);
  const Frame frame = read_frame(arguments.frame);
  check_frame_size(lens, arguments.lens, frame.width, frame.height);

  RunReport report;
  report.settings = check_settings(source, lens);
  report.frame_path = arguments.frame;
  report.frame_width = frame.width;
  report.frame_height = frame.height;
  report.lens_path = arguments.lens;
  report.settings_name = source.name();
  report.ignore_thresholds = arguments.ignore_thresholds;

  const CalibImage image{frame.width, frame.height, static_cast<std::int32_t>(frame.width * 3),
                         frame.pixels.data(), 0};
  const std::string out_path = outputs.lens ? outputs.lens->temporary().string() : "";
  std::string chatter;
  EvidenceGatherer gatherer;
  RunOptions options;
  options.ignore_thresholds = arguments.ignore_thresholds;
  options.team_converts = true;
  options.observer = &gatherer;
  const auto start = std::chrono::steady_clock::now();
  {
    const Progress progress("calibrating");
    ChatterCapture capture(ChatterCapture::Streams::kOutput);
    report.status = twintrue::calibrate(&image, arguments.lens.c_str(), source.path().c_str(),
                                        out_path.c_str(), options, &report.result);
    chatter = capture.finish();
  }
  report.evidence = gatherer.take();
  report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  if (arguments.verbose) {
    std::cerr << chatter;
    fmt::print(stderr, "calib() returned {} after {:.2f} s\n", report.status, report.seconds);
  }
  read_counts(chatter, report);
  keep_out_lens(lens, outputs, report);
  return report;
}

void write_json(const CalibrateArguments& arguments, Outputs& outputs, const std::string& text) {
  if (arguments.json_to_output()) {
    std::cout << text;
  } else if (outputs.json) {
    outputs.json->write(text);
    outputs.json->commit();
  }
}

ExitCode calibrate(const CalibrateArguments& arguments) {
  Outputs outputs;
  // The JSON file first, so that all else that goes wrong can be told in it.
  check_json(arguments, outputs);
  try {
    const RunReport report = run(arguments, outputs);
    write_json(arguments, outputs, format_json(report));
    if (!arguments.json_to_output()) std::cout << format_table(report);
    return exit_code_of(report);
  } catch (const Failure& failure) {
    try {
      write_json(arguments, outputs, format_json(failure));
    } catch (const Failure& second) {
      // The first one decides what the program ends with.
      std::cerr << "twintrue: " << second.what();
    }
    throw;
  }
}

}  // namespace

void add_calibrate(CLI::App& program, ExitCode* code) {
  CLI::App* command = program.add_subcommand(
      "calibrate", "Measure how far the two eyes stand from what the lens file says, from one frame");
  const auto arguments = std::make_shared<CalibrateArguments>();
  command
      ->add_option(
          "FRAME", arguments->frame,
          "Picture with both fisheye pictures side by side, as captured (PNG, JPEG, TIFF, BMP, PPM, ...)")
      ->required()
      ->type_name("");
  command->add_option("--lens", arguments->lens, "Lens description file")->required()->type_name("LENS");
  command
      ->add_option("--params", arguments->params,
                   "Parameter file, or its text in more than one line (default: the preset default)")
      ->type_name("PARAMS");
  command
      ->add_option("--preset", arguments->preset,
                   "Built-in parameter file of this name; `twintrue presets` lists them")
      ->excludes("--params")
      ->check(CLI::IsMember(preset_names()))
      ->type_name("NAME");
  command->add_option("-o,--out", arguments->out_lens, "Write the corrected lens file here")
      ->type_name("OUT_LENS");
  command->add_flag("--ignore-thresholds", arguments->ignore_thresholds,
                    "Go on with fewer keypoints and matches than the settings ask for");
  command->add_option("--json", arguments->json, "Write the result as JSON to this file (-: standard output)")
      ->type_name("FILE");
  command->add_flag("-v,--verbose", arguments->verbose, "Show the library's messages on standard error");
  command->callback([arguments, code] { *code = calibrate(*arguments); });
}

}  // namespace twintrue::cli
