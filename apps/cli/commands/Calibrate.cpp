#include "apps/cli/commands/Calibrate.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdint>
#include <exception>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "apps/TwinTrue/Calibration.h"
#include "apps/cli/ChatterCapture.h"
#include "apps/cli/OutputFile.h"
#include "apps/cli/Problem.h"
#include "apps/cli/Progress.h"
#include "apps/cli/RunReport.h"
#include "apps/cli/RunTrace.h"
#include "apps/cli/SettingsSource.h"
#include "apps/cli/checks/LensCheck.h"
#include "apps/cli/checks/SettingsCheck.h"
#include "apps/cli/frames/FrameSource.h"
#include "apps/cli/report/PageOfRun.h"
#include "lens/LensParameters.h"
#include "lens/RigModel.h"
#include "twintrue/calib.h"
#include "verdict/PairView.h"

namespace twintrue::cli {
namespace {

constexpr const char* kStandardOutput = "-";  // as the name of the JSON file

bool json_to_output(const CalibrateArguments& arguments) { return arguments.json == kStandardOutput; }

// The files to write.
struct Outputs {
  std::unique_ptr<OutputFile> lens;
  std::unique_ptr<OutputFile> json;
  std::unique_ptr<OutputFile> report;
};

// Files that no output may replace.
std::vector<NamedPath> inputs_of(const CalibrateArguments& arguments) {
  std::vector<NamedPath> inputs = files_of(arguments.frames);
  inputs.push_back({"--lens", arguments.lens});
  add_input(inputs, "--params", arguments.settings.params);
  return inputs;
}

void check_json(const CalibrateArguments& arguments, Outputs& outputs) {
  if (!arguments.json || json_to_output(arguments)) return;
  outputs.json = std::make_unique<OutputFile>(NamedPath{"--json", *arguments.json}, inputs_of(arguments));
}

void check_report(const CalibrateArguments& arguments, Outputs& outputs) {
  if (!arguments.report) return;
  std::vector<NamedPath> taken = inputs_of(arguments);
  if (outputs.json) taken.push_back({"--json", *arguments.json});
  outputs.report = std::make_unique<OutputFile>(NamedPath{"--report", *arguments.report}, taken);
}

void check_out_lens(const CalibrateArguments& arguments, Outputs& outputs) {
  if (!arguments.out_lens) return;
  std::vector<NamedPath> taken = inputs_of(arguments);
  if (outputs.json) taken.push_back({"--json", *arguments.json});
  if (outputs.report) taken.push_back({"--report", *arguments.report});
  const NamedPath target{"-o", *arguments.out_lens};
  refuse_scrambled_name(target);
  outputs.lens = std::make_unique<OutputFile>(target, taken);
}

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

void write_lens(const std::string& lens, const RunReport& report, const std::string& path) {
  RigState rig;
  load_lens_description(rig, lens, kLensSection);
  if (report.polished) rig = with_shapes(rig, report.polished->shapes);
  rig_apply_pose(rig, report.pose());
  write_lens_description(rig.current, path);
}

// Runs calib() with its messages out of the way, or, for -v, on standard error with the steps.
void run_calibration(const CalibrateArguments& arguments, const Frame& frame, const std::string& params,
                     const std::string& out_lens, StepLog& log, RunReport& report, RunRecord* record) {
  const CalibImage image{frame.width, frame.height, static_cast<std::int32_t>(frame.width * 3),
                         frame.pixels.data(), 0};
  std::optional<Progress> progress;
  std::optional<ChatterCapture> quiet;
  std::optional<MessagesToErrors> loud;
  if (log.on()) {
    loud.emplace();
  } else {
    progress.emplace("calibrating");
    quiet.emplace(ChatterCapture::Streams::kOutput);
  }
  RunTrace trace(log, !arguments.no_refine, arguments.fit_scale, record);
  const auto start = std::chrono::steady_clock::now();
  const RunOptions options{.ignore_thresholds = arguments.ignore_thresholds,
                           .threads = arguments.threads,
                           .team_converts = true,
                           .observer = &trace};
  // The lens file is written here, since what is written may be another pose than the search's.
  report.status =
      twintrue::calibrate(&image, arguments.lens.c_str(), params.c_str(), "", options, &report.result);
  report.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  report.counts = trace.counts();
  report.evidence = trace.take_evidence();
  report.polished = trace.take_polished();
  if (!out_lens.empty() && report.evidence) write_lens(arguments.lens, report, out_lens);
}

// The words of a command line that does the same, the options that say nothing new left out.
std::vector<std::string> command_of(const CalibrateArguments& arguments) {
  // A name that looks like an option is none behind its folder.
  const auto as_path = [](const std::string& path) {
    return path.starts_with("-") ? fmt::format("./{}", path) : path;
  };
  std::vector<std::string> words{"twintrue", "calibrate", as_path(arguments.frames.paths.front()), "--lens",
                                 as_path(arguments.lens)};
  const auto add = [&words](const char* option, const std::optional<std::string>& value) {
    if (value) words.insert(words.end(), {option, *value});
  };
  add("--params", arguments.settings.params);
  add("--preset", arguments.settings.preset);
  if (arguments.out_lens) add("-o", as_path(*arguments.out_lens));
  add("--json", arguments.json);
  if (arguments.report) add("--report", as_path(*arguments.report));
  if (arguments.ignore_thresholds) words.emplace_back("--ignore-thresholds");
  if (arguments.no_refine) words.emplace_back("--no-refine");
  if (arguments.fit_scale) words.emplace_back("--fit-scale");
  if (arguments.threads > 0) add("--threads", std::to_string(arguments.threads));
  return words;
}

RunInputs inputs_for_page(const CalibrateArguments& arguments, const SettingsSource& settings) {
  RunInputs inputs;
  inputs.files = {fact_of_file("frame", arguments.frames.paths.front()),
                  fact_of_file("lens file", arguments.lens),
                  settings.is_file() ? fact_of_file("parameter file", settings.path())
                                     : fact_of_text(settings.name(), settings.path())};
  inputs.preset = nearest_preset(settings.path());
  inputs.command = command_of(arguments);
  return inputs;
}

// Draws the page and puts it in its place.
void keep_page(const CalibrateArguments& arguments, const SettingsSource& settings, const Frame& frame,
               const RunReport& report, RunRecord&& record, Outputs& outputs) {
  outputs.report->write(
      page_of_run(report, std::move(record), inputs_for_page(arguments, settings), frame, arguments.threads));
  outputs.report->commit();
}

RunReport run(const CalibrateArguments& arguments, Outputs& outputs) {
  StepLog log(arguments.verbose);
  std::optional<RunRecord> record;
  if (arguments.report) record.emplace();
  RunRecord* const recorder = record ? &*record : nullptr;
  StageClock clock(recorder);
  check_report(arguments, outputs);
  check_out_lens(arguments, outputs);
  FrameSource frames(arguments.frames);
  const LensFacts lens = check_lens(arguments.lens);
  log.tell(fmt::format("lens file {}: format {}, frames of {} x {} pixels, circles of {:.1f} pixels' radius",
                       arguments.lens, lens.format, lens.frame_width, lens.frame_height,
                       lens.circle_radius_px));
  const std::unique_ptr<SettingsSource> source = arguments.settings.open();
  const Frame frame = frames.read(0);
  clock.end("reading the inputs");
  log.tell(fmt::format("frame {}: {} x {} pixels", frames.name(0), frame.width, frame.height));

  RunReport report;
  if (auto note = check_frame_size(lens, arguments.lens, frame.width, frame.height)) {
    fmt::print(stderr, "twintrue: note: {}\n", *note);
    report.notes.push_back(std::move(*note));
  }
  report.settings = check_settings(*source, lens);
  log.tell(fmt::format("settings {}: {} cells, {} places to fill, {} levels, retries 0 to {}", source->name(),
                       report.settings.cells, report.settings.places(), report.settings.levels,
                       report.settings.last_retry));
  report.frame_path = frames.name(0);
  report.frame_width = frame.width;
  report.frame_height = frame.height;
  report.lens_path = arguments.lens;
  report.settings_name = source->name();
  report.ignore_thresholds = arguments.ignore_thresholds;
  report.fits_shapes = arguments.fit_scale;

  const std::string out_lens = outputs.lens ? outputs.lens->temporary().string() : "";
  run_calibration(arguments, frame, source->path(), out_lens, log, report, recorder);
  log.tell(fmt::format("calib() returned {} after {:.2f} s", report.status, report.seconds));
  keep_out_lens(lens, outputs, report);
  if (record) {
    keep_page(arguments, *source, frame, report, std::move(*record), outputs);
    log.tell(fmt::format("page {} written", *arguments.report));
  }
  return report;
}

void write_json(const CalibrateArguments& arguments, Outputs& outputs, const std::string& text) {
  if (json_to_output(arguments)) {
    std::cout << text;
  } else if (outputs.json) {
    outputs.json->write(text);
    outputs.json->commit();
  }
}

// The first failure decides what the program ends with.
void tell_failure_as_json(const CalibrateArguments& arguments, Outputs& outputs, const Failure& failure) {
  try {
    write_json(arguments, outputs, format_json(failure));
  } catch (const Failure& second) {
    std::cerr << "twintrue: " << second.what();
  }
}

}  // namespace

ExitCode calibrate(const CalibrateArguments& arguments) {
  Outputs outputs;
  // The JSON file first, so that all else that goes wrong can be told in it.
  check_json(arguments, outputs);
  try {
    const RunReport report = run(arguments, outputs);
    write_json(arguments, outputs, format_json(report));
    if (!json_to_output(arguments)) std::cout << format_table(report);
    return exit_code_of(report);
  } catch (const Failure& failure) {
    tell_failure_as_json(arguments, outputs, failure);
    throw;
  } catch (const std::exception& error) {
    tell_failure_as_json(arguments, outputs,
                         Failure(ExitCode::kOther, Problem{"twintrue", error.what(), "", ""}));
    throw;
  }
}

}  // namespace twintrue::cli
