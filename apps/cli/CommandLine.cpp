// The one place that knows the options' names, so that the parser's headers are compiled once.

#include "apps/cli/CommandLine.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

#include "apps/cli/Preset.h"
#include "apps/cli/Problem.h"
#include "apps/cli/commands/Calibrate.h"
#include "apps/cli/commands/InspectFeatures.h"
#include "apps/cli/commands/InspectLens.h"
#include "apps/cli/commands/InspectMatches.h"
#include "apps/cli/commands/InspectParams.h"
#include "apps/cli/commands/InspectSearch.h"
#include "apps/cli/commands/InspectSettings.h"
#include "apps/cli/commands/InspectStage.h"
#include "apps/cli/commands/LensCommands.h"
#include "apps/cli/commands/Presets.h"
#include "apps/cli/commands/View.h"

namespace twintrue::cli {
namespace {

constexpr std::int32_t kMostCells = 1 << 26;  // ranks times cells must fit 32 bits

constexpr const char* kExitCodes =
    "Exit codes:\n"
    "  0  calibrated, if need be with reservations (\"calibrated, but ...\")\n"
    "  1  anything not below, such as an output file that can't be written\n"
    "  2  usage: arguments that can't be carried out\n"
    "  3  input unreadable: FRAME, LENS or PARAMS is missing, unreadable, or FRAME is no picture\n"
    "  4  lens or parameter file unusable: its contents, or a frame smaller than the lens file says\n"
    "  5  too few keypoints or matches; no lens file is written\n"
    "  6  not calibrated: the quality test failed, or the matches speak against the result; the lens file "
    "is\n"
    "     written all the same\n";

constexpr const char* kViewExitCodes =
    "Exit codes:\n"
    "  0  the picture was written\n"
    "  1  anything not below, such as an output file that can't be written\n"
    "  2  usage: arguments that can't be carried out\n"
    "  3  input unreadable: FRAME or LENS is missing, unreadable, or FRAME is no picture\n"
    "  4  lens file unusable: its contents, or a frame smaller than the lens file says\n";

constexpr const char* kInspectExitCodes =
    "The library's own messages go to standard error.\n"
    "Exit codes:\n"
    "  0  the stage ran, whatever its result\n"
    "  1  anything not below, such as an output file that can't be written\n"
    "  2  usage: arguments that can't be carried out\n"
    "  3  input unreadable: a file is missing, unreadable, or FRAME is no picture\n"
    "  4  lens or parameter file unusable: the stage can't be run with its contents\n"
    "  5  too few keypoints for the image asked for\n";

// Makes a subcommand whose options fill a record, and which then runs on it.
template <typename Arguments>
struct Command {
  CLI::App* app;
  std::shared_ptr<Arguments> arguments = std::make_shared<Arguments>();

  Command(CLI::App& parent, const std::string& name, const std::string& description)
      : app(parent.add_subcommand(name, description)) {}

  // `body` returns the exit code.
  void runs(ExitCode* code, ExitCode (*body)(const Arguments&)) {
    app->callback([code, body, record = arguments] { *code = body(*record); });
  }
  // The program ends with 0 if `body` returns.
  void runs(ExitCode* code, void (*body)(const Arguments&)) {
    app->callback([code, body, record = arguments] {
      body(*record);
      *code = ExitCode::kCalibrated;
    });
  }
};

CLI::Option* add_preset(CLI::App& app, std::optional<std::string>& preset) {
  return app
      .add_option("--preset", preset, "Built-in parameter file of this name; `twintrue presets` lists them")
      ->check(CLI::IsMember(preset_names()))
      ->type_name("NAME");
}

void add_lens_and_settings(CLI::App& app, std::string& lens, SettingsChoice& settings) {
  app.add_option("--lens", lens, "Lens description file")->required()->type_name("LENS");
  CLI::Option* const params =
      app.add_option("--params", settings.params,
                     "Parameter file, or its text in more than one line (default: the preset default)")
          ->type_name("PARAMS");
  add_preset(app, settings.preset)->excludes(params);
}

void add_threads(CLI::App& app, int& threads) {
  app.add_option("--threads", threads,
                 "Threads to compute with (default: OMP_NUM_THREADS, or one a processor)")
      ->check(CLI::Range(1, kMostThreads))
      ->type_name("N");
}

void add_ignore_thresholds(CLI::App& app, bool& flag) {
  app.add_flag("--ignore-thresholds", flag,
               "Go on with fewer keypoints and matches than the settings ask for");
}

void add_document(CLI::App& app, std::optional<std::string>& path) {
  app.add_option("-o,--out", path, "Write the document to this file (default: standard output)")
      ->type_name("FILE");
}

CLI::Option* add_frame(CLI::App& app, std::string& frame) {
  return app.add_option("FRAME", frame, "Picture with both fisheye pictures side by side")->type_name("");
}

void add_side(CLI::App& app, std::string& side) {
  app.add_option("--side", side,
                 "Half of the frame: left (the right eye's picture) or right (the left eye's)")
      ->required()
      ->check(CLI::IsMember({"left", "right"}))
      ->type_name("SIDE");
}

void add_calibrate(CLI::App& program, ExitCode* code) {
  Command<CalibrateArguments> command(
      program, "calibrate",
      "Measure how far the two eyes stand from what the lens file says, from one frame");
  CalibrateArguments& arguments = *command.arguments;
  command.app
      ->add_option(
          "FRAME", arguments.frames.paths,
          "Picture with both fisheye pictures side by side, as captured (PNG, JPEG, TIFF, BMP, PPM, ...)")
      ->required()
      ->expected(1)
      ->type_name("");
  add_lens_and_settings(*command.app, arguments.lens, arguments.settings);
  command.app->add_option("-o,--out", arguments.out_lens, "Write the corrected lens file here")
      ->type_name("OUT_LENS");
  add_ignore_thresholds(*command.app, arguments.ignore_thresholds);
  command.app
      ->add_option("--json", arguments.json, "Write the result as JSON to this file (-: standard output)")
      ->type_name("FILE");
  command.app
      ->add_option("--report", arguments.report,
                   "Write a page that explains the result in words and pictures, one HTML file")
      ->type_name("OUT.html");
  CLI::Option* const no_refine = command.app->add_flag(
      "--no-refine", arguments.no_refine,
      "Write the search's own pose, as the library's calib() gives it: no fit to its matches behind it, no "
      "refining by the pictures");
  command.app
      ->add_flag(
          "--fit-scale", arguments.fit_scale,
          "Also fit how the eyes' pictures differ in scale and centring, and write it into the corrected "
          "lens file")
      ->excludes(no_refine);
  add_threads(*command.app, arguments.threads);
  command.app->add_flag("-v,--verbose", arguments.verbose,
                        "Tell every step and the library's messages on standard error");
  command.app->footer(kExitCodes);
  command.runs(code, calibrate);
}

void add_view_options(CLI::App& app, ViewArguments& arguments) {
  app.add_option("--as", arguments.projection,
                 "half-equirect: 180 x 180 degrees, as VR players show it; rectilinear: a window, straight "
                 "lines stay straight; fisheye: ideal equidistant")
      ->check(CLI::IsMember(kViewProjections))
      ->capture_default_str()
      ->type_name("PROJECTION");
  app.add_option("--layout", arguments.layout,
                 "side-by-side, the left eye on the left; top-bottom; anaglyph, for red-cyan glasses; "
                 "anaglyph-amber-blue, also for people who do not tell red from green; difference; blink, an "
                 "animated PNG of both eyes in turn")
      ->check(CLI::IsMember(kViewLayouts))
      ->capture_default_str()
      ->type_name("LAYOUT");
  app.add_option("--size", arguments.size,
                 "Pixels of each eye's picture, N or WIDTHxHEIGHT (default: what the frame resolves)")
      ->type_name("SIZE");
  app.add_option("--crop", arguments.crop, "Part of each eye's picture to draw, in its pixels")
      ->type_name("WIDTHxHEIGHT+X+Y");
  app.add_option("--fov", arguments.fov_deg,
                 "Degrees across a rectilinear picture (default: 90) or a fisheye's circle (default: 180)")
      ->type_name("DEG");
  app.add_option("--pan", arguments.pan_deg, "Degrees to the right that a rectilinear picture looks")
      ->type_name("DEG");
  app.add_option("--tilt", arguments.tilt_deg, "Degrees upward that a rectilinear picture looks")
      ->type_name("DEG");
  app.add_option("--compare", arguments.other_lens,
                 "Draw the frame under this lens file as well, below or beside what LENS shows")
      ->type_name("OTHER_LENS");
  app.add_option("--compare-in", arguments.compare_in,
                 "Put the two in rows or columns (default: rows; columns for top-bottom)")
      ->check(CLI::IsMember({"rows", "columns"}))
      ->type_name("WAY");
  app.add_option("--sampling", arguments.sampling,
                 "Interpolate display values, which keeps hard edges clean, or light")
      ->check(CLI::IsMember({"display", "light"}))
      ->capture_default_str()
      ->type_name("VALUES");
}

void add_view(CLI::App& program, ExitCode* code) {
  Command<ViewArguments> command(program, "view", "Draw what a viewer sees through a lens file");
  ViewArguments& arguments = *command.arguments;
  add_frame(*command.app, arguments.frame)->required();
  command.app->add_option("--lens", arguments.lens, "Lens description file")->required()->type_name("LENS");
  command.app
      ->add_option("-o,--out", arguments.out,
                   "Picture to write: .png, .jpg, .tif or .exr; 16 bits and floats are kept where it can")
      ->required()
      ->type_name("OUT");
  add_view_options(*command.app, arguments);
  add_threads(*command.app, arguments.threads);
  command.app->footer(kViewExitCodes);
  command.runs(code, view);
}

void add_presets(CLI::App& program, ExitCode* code) {
  CLI::App* const command = program.add_subcommand("presets", "List the built-in parameter files");
  command->require_subcommand(0, 1);
  CLI::App* const show =
      command->add_subcommand("show", "Print a built-in parameter file, to start a file of one's own");
  const auto name = std::make_shared<std::string>();
  show->add_option("NAME", *name, "Its name, as `twintrue presets` lists it")
      ->required()
      ->type_name("")
      ->check(CLI::IsMember(preset_names()));
  command->callback([show, name, code] {
    std::cout << (show->parsed() ? find_preset(*name)->text : list_of_presets());
    *code = ExitCode::kCalibrated;
  });
}

void add_inspect_lens_files(CLI::App& inspect, ExitCode* code) {
  const auto add = [&](const char* name, const char* description, void (*body)(const LensArguments&)) {
    Command<LensArguments> command(inspect, name, description);
    add_document(*command.app, command.arguments->out);
    command.app->add_option("FILE", command.arguments->file, "Lens description file")->required();
    command.runs(code, body);
    return command;
  };
  const auto add_eye = [](CLI::App& app, std::string& eye) {
    app.add_option("--eye", eye, "left or right")
        ->required()
        ->check(CLI::IsMember({"left", "right"}))
        ->type_name("EYE");
  };
  add("lens-text", "Sections and items of a lens file as its language leaves them, as JSON",
      inspect_lens_text);
  add("lens", "The rig that a lens file describes, as JSON", inspect_lens);

  const auto ray = add("ray", "Ray of a pixel through an eye of the rig", inspect_ray);
  add_eye(*ray.app, ray.arguments->eye);
  ray.app->add_option("PX", ray.arguments->point[0], "Column of the frame, 0 the centre of the first")
      ->required();
  ray.app->add_option("PY", ray.arguments->point[1], "Row of the frame, downward")->required();

  const auto image = add("image", "Pixel of a ray through an eye of the rig", inspect_image);
  add_eye(*image.app, image.arguments->eye);
  image.app->add_option("X", image.arguments->point[0], "Ray, to the right")->required();
  image.app->add_option("Y", image.arguments->point[1], "Ray, upward")->required();
  image.app->add_option("Z", image.arguments->point[2], "Ray; straight ahead is -1")->required();

  const auto write = add("write", "Write the lens file anew with ten corrections put in", inspect_write);
  write.app->add_option("OUT", write.arguments->out_lens, "Lens file to write")->required();
  write.app
      ->add_option("--pose", write.arguments->pose,
                   "Corrections: pan, tilt, roll (radians), offset_x, offset_y (pixels) of the right eye, "
                   "then of the left one")
      ->required()
      ->type_name("P0,...,P9");
}

void add_inspect_params_files(CLI::App& inspect, ExitCode* code) {
  Command<ParamsArguments> params(inspect, "params", "Tree of a parameter file, as JSON");
  params.app->add_option("SOURCE", params.arguments->source, "Parameter file, or its text")->required();
  add_document(*params.app, params.arguments->out);
  params.runs(code, inspect_params);

  const auto add = [&](const char* name, const char* description, void (*body)(const SettingsArguments&)) {
    Command<SettingsArguments> command(inspect, name, description);
    SettingsArguments& arguments = *command.arguments;
    CLI::Option* const source =
        command.app->add_option("SOURCE", arguments.source, "Parameter file, or its text");
    add_preset(*command.app, arguments.preset)->excludes(source);
    command.app->add_option("--width", arguments.width, "Width of a half of the frame, pixels")->required();
    command.app->add_option("--height", arguments.height, "Height of a half of the frame, pixels")
        ->required();
    add_document(*command.app, arguments.out);
    command.runs(code, body);
    return command;
  };
  const auto settings =
      add("settings", "Effective values of all sections of a parameter file, as JSON", inspect_settings);
  settings.app
      ->add_option("--frame-width", settings.arguments->frame_width, "Width of the whole frame, pixels")
      ->required();
  add("pattern", "Test pattern of the settings: the candidates and the chain, as JSON", inspect_pattern);
}

void add_inspect_run(CLI::App& app, RunArguments& arguments) {
  add_lens_and_settings(app, arguments.lens, arguments.settings);
  add_threads(app, arguments.threads);
}

void add_inspect_runs(CLI::App& inspect, ExitCode* code) {
  Command<RunArguments> features(inspect, "features",
                                 "Keypoints and descriptors of a half of the frame, as CSV");
  add_frame(*features.app, features.arguments->frame)->required();
  add_inspect_run(*features.app, *features.arguments);
  add_side(*features.app, features.arguments->side);
  add_document(*features.app, features.arguments->out);
  features.runs(code, inspect_features);

  Command<RunArguments> matches(inspect, "matches",
                                "All matches from the left half to the right one, as CSV; also those that "
                                "were not accepted");
  add_frame(*matches.app, matches.arguments->frame)->required();
  add_inspect_run(*matches.app, *matches.arguments);
  add_document(*matches.app, matches.arguments->out);
  matches.runs(code, inspect_matches);

  Command<SearchArguments> search(inspect, "search",
                                  "Filtering and search, retry by retry and level by level, as JSON");
  add_frame(*search.app, search.arguments->frame);
  search.app
      ->add_option("--matches", search.arguments->matches,
                   "Matches as `inspect matches` writes them, for FRAME")
      ->type_name("M.csv");
  search.app
      ->add_option("--cells", search.arguments->cells, "Cells of the grid that these matches were found in")
      ->check(CLI::Range(1, kMostCells))
      ->type_name("N");
  add_inspect_run(*search.app, *search.arguments);
  add_ignore_thresholds(*search.app, search.arguments->ignore_thresholds);
  add_document(*search.app, search.arguments->out);
  search.runs(code, inspect_search);

  Command<StageArguments> stage(inspect, "stage",
                                "An image between the steps of detection, as a TIFF of 32-bit floats");
  stage.app
      ->add_option(
          "NAME", stage.arguments->stage,
          fmt::format("One of {}; gx to response show the grid's area alone", fmt::join(stage_names(), ", ")))
      ->required()
      ->check(CLI::IsMember(stage_names()))
      ->type_name("");
  add_frame(*stage.app, stage.arguments->frame)->required();
  add_inspect_run(*stage.app, *stage.arguments);
  add_side(*stage.app, stage.arguments->side);
  stage.app->add_option("-o,--out", stage.arguments->picture, "Picture to write")
      ->required()
      ->type_name("FILE");
  stage.runs(code, inspect_stage);
}

void add_inspect(CLI::App& program, ExitCode* code) {
  CLI::App* const inspect = program.add_subcommand("inspect", "Show what single stages make of their input");
  inspect->footer(kInspectExitCodes);
  inspect->require_subcommand(1);
  add_inspect_lens_files(*inspect, code);
  add_inspect_params_files(*inspect, code);
  add_inspect_runs(*inspect, code);
}

std::string usage_message(const CLI::App* /*app*/, const CLI::Error& error) {
  return fmt::format("twintrue: {}\nRun with --help for more information.\n", error.what());
}

}  // namespace

std::unique_ptr<CLI::App> make_command_line(ExitCode* code) {
  auto program = std::make_unique<CLI::App>(
      "TwinTrue: calibration of dual-fisheye stereo lenses from one frame", "twintrue");
  program->set_version_flag("--version", "twintrue " TWINTRUE_VERSION);
  program->failure_message(usage_message);
  // Not "exactly one": an unknown name is then told of by its name.
  program->require_subcommand(0, 1);
  program->footer(kExitCodes);
  add_calibrate(*program, code);
  add_view(*program, code);
  add_presets(*program, code);
  add_lens_commands(*program, code);
  add_inspect(*program, code);
  return program;
}

ExitCode run_command_line(std::vector<std::string> arguments) {
  ExitCode code = ExitCode::kOther;
  const std::unique_ptr<CLI::App> program = make_command_line(&code);
  try {
    std::reverse(arguments.begin(), arguments.end());  // as the parser wants them
    program->parse(arguments);
    if (program->get_subcommands().empty()) {
      std::cerr << program->help() << "\ntwintrue: a subcommand is missing, such as calibrate\n";
      code = ExitCode::kUsage;
    }
  } catch (const CLI::ParseError& error) {
    // Asking for help or the version arrives here as well, as a success.
    code = program->exit(error) == 0 ? ExitCode::kCalibrated : ExitCode::kUsage;
  } catch (const Failure& failure) {
    for (const auto& problem : failure.problems()) std::cerr << "twintrue: " << format_problem(problem);
    code = failure.code();
  }
  return code;
}

}  // namespace twintrue::cli
