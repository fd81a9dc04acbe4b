// How accurate refining is: frames of known truth, before and after, with the errors of single values beside
// their stated deviations.

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <exception>
#include <stdexcept>

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include "CrossShots.h"
#include "FrameRun.h"
#include "RigLens.h"
#include "SceneError.h"
#include "Spoil.h"
#include "refine/FieldError.h"
#include "refine/Refine.h"

namespace twintrue::refine_bench {
namespace {

using accuracy::Pose;
using accuracy::Scene;

struct Options {
  std::string params;
  std::vector<std::string> folders;
  int repeats = 1;
  bool from_lens = false;
  std::string shots_lens;
  bool fit_shapes = false;  // of the shots
  std::string memory;
  std::string spoiled = "none";
  RefineSettings settings;
};

Pose pose_of(const RigState& rig, const CalibResult& corrections) {
  Pose pose = accuracy::plain_lens(rig).pose;
  for (std::size_t i = 0; i < kPoseValues; ++i) pose[i] += corrections.*kPoseFields[i];
  return pose;
}

// Errors over deviations: of the differences of the eyes and of what they have in common, but for the common
// tilt, which nothing fixes.
struct Ratios {
  std::array<double, 9> value{};
  std::array<double, 9> error{};
  std::array<double, 9> deviation{};
};
constexpr std::array<const char*, 9> kNames{"dpan", "dtilt", "droll", "dx", "dy",
                                            "cpan", "croll", "cx",    "cy"};

Ratios ratios_of(const Refinement& refined, const Pose& wanted) {
  Ratios ratios;
  std::size_t at = 0;
  for (const bool common : {false, true}) {
    for (std::size_t i = 0; i < 5; ++i) {
      if (common && i == 1) continue;
      const double a = common ? 0.5 : 1.0;
      const double b = common ? 0.5 : -1.0;
      const auto& c = refined.covariance;
      const double variance = a * a * c[i][i] + 2.0 * a * b * c[i][i + 5] + b * b * c[i + 5][i + 5];
      const double error = a * (refined.pose.*kPoseFields[i] - wanted[i]) +
                           b * (refined.pose.*kPoseFields[i + 5] - wanted[i + 5]);
      ratios.error[at] = error;
      ratios.deviation[at] = std::sqrt(variance);
      ratios.value[at++] = error / std::sqrt(variance);
    }
  }
  return ratios;
}

int run(const Options& options, std::FILE* out) {
  if (!options.shots_lens.empty()) {
    cross_shots(out, options.folders, options.shots_lens, options.params, options.memory, options.fit_shapes);
    return 0;
  }
  std::array<double, 9> squares{};
  double field_square = 0.0;
  double field_log = 0.0;
  double sum_after = 0.0, worst = 0.0;
  int count = 0;
  fmt::print(out, "{:<20} {:>8} {:>8} {:>8} {:>8} {:>6} {:>6} {:>6} {:>7} {:>7} {:>7}  {}\n", "frame",
             "search", "refined", "field", "expect", "tried", "conv", "kept", "scatter", "cpu s", "common",
             "errors / deviations");
  for (const std::string& name : options.folders) {
    const std::filesystem::path folder(name.back() == '/' ? name.substr(0, name.size() - 1) : name);
    Pixels pixels = read_pixels(folder / "frame.png");
    spoil(pixels, options.spoiled);
    FrameRun frame =
        run_frame(pixels, folder / "nominal.lens", options.params,
                  options.memory.empty()
                      ? ""
                      : options.memory + "/" + folder.filename().string() + "." +
                            std::filesystem::path(options.params).stem().string() + "." + options.spoiled);
    const CodedHalves halves = code_halves(frame.linear, frame.rig);
    const accuracy::PlainLens lens = accuracy::plain_lens(frame.rig);
    const Pose truth = accuracy::plain_lens(read_rig(folder / "truth.lens")).pose;
    const Scene scene(lens, truth);
    Refinement refined;
    double best = 1e9;
    CalibResult start = frame.found;
    if (options.from_lens) put_vector(start, {});
    for (int i = 0; i < options.repeats; ++i) {
      const auto began = std::clock();
      refined = refine(halves, frame.rig, frame.matches, start, options.settings);
      best = std::min(best, static_cast<double>(std::clock() - began) / CLOCKS_PER_SEC);
    }
    Pose wanted = truth;
    CalibResult true_pose{};
    for (std::size_t i = 0; i < kPoseValues; ++i) true_pose.*kPoseFields[i] = wanted[i] -= lens.pose[i];
    const double before = scene.judge(pose_of(frame.rig, frame.found)).core;
    const double after = scene.judge(pose_of(frame.rig, refined.pose)).core;
    const double field = field_difference(frame.rig, true_pose, refined.pose);
    const Ratios ratios = ratios_of(refined, wanted);
    fmt::print(out, "{:<20} {:8.4f} {:8.4f} {:8.4f} {:8.4f} {:6} {:6} {:6} {:7.4f} {:7.3f} {:7.4f} ",
               folder.filename().string(), before, after, field, refined.expected_error, refined.tried,
               refined.converged, refined.kept, refined.scatter, best, refined.common);
    for (std::size_t i = 0; i < ratios.value.size(); ++i) {
      fmt::print(out, " {:5.1f}", ratios.value[i]);
      squares[i] += ratios.value[i] * ratios.value[i];
    }
    fmt::print(
        out, " {}\n",
        fmt::format("[fore {:.2f} moved {:.2f}] {}", refined.foresight, refined.moved, refined.reason));
    std::fflush(out);
    const double ratio = field / refined.expected_error;
    field_square += ratio * ratio;
    field_log += std::log(ratio);
    sum_after += after;
    worst = std::max(worst, after);
    ++count;
  }
  fmt::print(out, "mean {:.4f}  worst {:.4f}  field error over expected: rms {:.2f}\n", sum_after / count,
             worst, std::sqrt(field_square / count));
  double all = 0.0;
  for (std::size_t i = 0; i < squares.size(); ++i) {
    fmt::print(out, "{} {:.2f}  ", kNames[i], std::sqrt(squares[i] / count));
    all += squares[i] / static_cast<double>(squares.size());
  }
  fmt::print(out, "all {:.2f}\n", std::sqrt(all / count));
  return 0;
}

}  // namespace
}  // namespace twintrue::refine_bench

int main(int argc, char** argv) {
  using twintrue::refine_bench::Options;
  Options options;
  CLI::App app("Accuracy of refining on frames of known truth");
  app.add_option("--params", options.params, "Parameter file")->required()->check(CLI::ExistingFile);
  app.add_option("folders", options.folders, "Folders with frame.png, nominal.lens, truth.lens")->required();
  app.add_option("--repeats", options.repeats, "Timed runs; the least processor time counts");
  app.add_option("--common", options.settings.pose.common, "Common");
  app.add_option("--last-step", options.settings.patch.last_step, "Last step, pixels");
  app.add_option("--cells", options.settings.thinning.cell_share, "Cells");
  app.add_option("--rings", options.settings.pose.rings, "Rings");
  app.add_option("--sectors", options.settings.pose.sectors, "Sectors");
  app.add_option("--shots-lens", options.shots_lens,
                 "Lens file of one rig; the other arguments are the stems of its shots");
  app.add_flag("--fit-scale", options.fit_shapes, "For shots: fit the shapes of the eyes' pictures as well");
  app.add_option("--memory", options.memory, "Folder that keeps what searches found from run to run");
  app.add_option("--spoil", options.spoiled, "What is done to the frames")
      ->check(CLI::IsMember(twintrue::refine_bench::spoil_names()));
  app.add_flag("--from-lens", options.from_lens, "Start from the lens file's pose");
  CLI11_PARSE(app, argc, argv);

  // The library's chatter goes to standard error, so that standard output holds the report alone.
  std::FILE* out = fdopen(dup(STDOUT_FILENO), "w");
  if (out == nullptr || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    std::perror("refine_bench");
    return 1;
  }
  int code = 1;
  try {
    code = twintrue::refine_bench::run(options, out);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "refine_bench: %s\n", failure.what());
  }
  std::fclose(out);
  return code;
}
