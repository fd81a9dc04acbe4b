// How accurate the search is under a parameter file: rendered frames and generated rigs of known truth, each
// beside the optimum of its matches.

#include <unistd.h>

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <CLI/CLI.hpp>

#include "FrameCase.h"
#include "GeneratedCase.h"
#include "Report.h"
#include "Trial.h"

namespace twintrue::accuracy {
namespace {

struct Options {
  std::string params;
  std::string frames;
  std::string only;
  std::string json;
  int cases = 60;
  CaseSettings generated;
  TrialSettings trial;
};

bool wanted(const Options& options, const std::string& name) {
  return name.find(options.only) != std::string::npos;
}

std::vector<std::filesystem::path> frame_folders(const Options& options) {
  std::vector<std::filesystem::path> folders;
  if (options.frames.empty()) return folders;
  for (const auto& entry : std::filesystem::directory_iterator(options.frames)) {
    if (entry.is_directory() && std::filesystem::exists(entry.path() / "truth.lens") &&
        wanted(options, "frames/" + entry.path().filename().string())) {
      folders.push_back(entry.path());
    }
  }
  std::sort(folders.begin(), folders.end());
  return folders;
}

Trial search(Case&& one, const Options& options) {
  const auto context = std::make_unique<CalibContext>();
  if (!load_calib_settings(*context, options.params, one.lens.width)) {
    throw std::runtime_error("the parameter file can't be used");
  }
  return run_trial(one, *context, options.trial);
}

int run(const Options& options, std::FILE* out) {
  std::vector<Trial> frames;
  std::vector<Trial> generated;
  print_header(out);
  for (const auto& folder : frame_folders(options)) {
    frames.push_back(search(frame_case(folder, options.params), options));
    print_trial(out, frames.back());
  }
  for (int i = 0; i < options.cases; ++i) {
    if (!wanted(options, "generated/rig" + std::to_string(i))) continue;
    generated.push_back(search(generate_case(options.generated, i, options.params), options));
    print_trial(out, generated.back());
  }
  print_summary(out, "frames", frames);
  print_summary(out, "generated rigs", generated);
  for (const int width : {2048, 4096, 8192}) {
    std::vector<Trial> of_width;
    for (const Trial& trial : generated) {
      if (trial.width == width) of_width.push_back(trial);
    }
    print_summary(out, "generated rigs, " + std::to_string(width) + " wide", of_width);
  }
  if (!options.json.empty()) {
    std::vector<Trial> all = frames;
    all.insert(all.end(), generated.begin(), generated.end());
    std::ofstream file(options.json);
    file << to_json(all);
    if (!file.flush()) throw std::runtime_error("can't write " + options.json);
  }
  return 0;
}

}  // namespace
}  // namespace twintrue::accuracy

int main(int argc, char** argv) {
  using twintrue::accuracy::Options;
  Options options;
  CLI::App app("Accuracy of the search on frames and generated rigs of known truth");
  app.add_option("--params", options.params, "Parameter file")->required()->check(CLI::ExistingFile);
  app.add_option("--frames", options.frames,
                 "Folder of frames, one folder each with frame.png, nominal.lens, truth.lens")
      ->check(CLI::ExistingDirectory);
  app.add_option("--cases", options.cases, "Number of generated rigs")->capture_default_str();
  app.add_option("--only", options.only,
                 "Run only cases whose name holds this: frames/NAME or generated/rigN");
  app.add_option("--seed", options.generated.seed, "Seed of the generated rigs")->capture_default_str();
  app.add_option("--angle-error", options.generated.angle_error_deg,
                 "Greatest true error of an angle, degrees")
      ->capture_default_str();
  app.add_option("--offset-error", options.generated.offset_error_px,
                 "Greatest true error of an offset, pixels of a frame 8192 wide")
      ->capture_default_str();
  app.add_option("--outliers", options.generated.outliers, "Share of wrong matches")->capture_default_str();
  app.add_option("--noise", options.generated.noise_px, "Noise of a coordinate before rounding, pixels")
      ->capture_default_str();
  app.add_option("--fewest", options.generated.fewest_matches, "Fewest matches of a generated rig")
      ->capture_default_str();
  app.add_option("--most", options.generated.most_matches, "Most matches of a generated rig")
      ->capture_default_str();
  app.add_option("--sigma", options.trial.sigma, "Sigma of the optimum in pixels; 0: that of the last level")
      ->capture_default_str();
  app.add_flag("--verbose", options.trial.verbose, "Show the levels of the search on standard error");
  app.add_option("--json", options.json, "Write all numbers to this file");
  CLI11_PARSE(app, argc, argv);
  options.trial.threads = static_cast<int>(std::thread::hardware_concurrency());

  // The library's chatter goes to standard error, so that standard output holds the report alone.
  std::FILE* out = fdopen(dup(STDOUT_FILENO), "w");
  if (out == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    std::perror("accuracy");
    return 1;
  }
  int code = 1;
  try {
    code = twintrue::accuracy::run(options, out);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "accuracy: %s\n", failure.what());
  }
  std::fclose(out);
  return code;
}
