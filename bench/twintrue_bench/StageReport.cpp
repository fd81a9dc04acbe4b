// Where the time and the memory of one run go: stage_report [WIDTH [THREADS]].

#include <omp.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <utility>

#include <fmt/format.h>

#include "BenchInputs.h"
#include "apps/TwinTrue/ImageFormatConverter.h"
#include "matching/Correction.h"
#include "matching/Flagging.h"
#include "matching/MatchPipeline.h"
#include "matching/Matching.h"
#include "search/MatchFiltering.h"

namespace twintrue::bench {
namespace {

// Peak memory of the process so far, MiB.
double peak_mib() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) / 1024.0;
}

class Stopwatch {
 public:
  void lap(const char* stage) {
    const auto now = std::chrono::steady_clock::now();
    fmt::print(stderr, "  {:<22}{:>9.3f} s   peak {:>7.1f} MiB\n", stage,
               std::chrono::duration<double>(now - last_).count(), peak_mib());
    last_ = std::chrono::steady_clock::now();
  }

 private:
  std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

int report(int width) {
  const BenchFrame& input = BenchFrame::of_width(width);
  fmt::print(stderr, "{} x {}, {} threads; the caller's picture and the reader take {:.1f} MiB\n", width,
             width / 2, omp_get_max_threads(), peak_mib());
  const auto start = std::chrono::steady_clock::now();
  Stopwatch watch;

  cve::XMat_<float> frame;
  convert_frame(frame, input.picture().image());
  watch.lap("conversion");

  RigState rig;
  if (!read_lens(rig, input.lens_path())) return EXIT_FAILURE;
  watch.lap("lens file");

  const cve::Size size = half_frame_size(rig);
  const auto unit = fpu::createFeatureUnit(input.params_path(), size.cols, size.rows);
  const auto context = std::make_unique<CalibContext>();
  if (!unit || !load_calib_settings(*context, input.params_path(), rig.frame_width)) return EXIT_FAILURE;
  HalfFrames halves = half_frames(frame, rig);
  frame = {};
  watch.lap("settings");

  fpu::FeatureFrame left(*unit), right(*unit);
  std::int32_t keypoints = 0;
  for (auto [half, store] : {std::pair{&halves.left, &left}, std::pair{&halves.right, &right}}) {
    unit->detector->detect(1, *half, store->store);
    *half = {};
    watch.lap("detection of a half");
    unit->detector->compute(1, store->store, store->descriptors);
    watch.lap("description of a half");
    keypoints += store->store.count;
  }

  fpu::MatchSet set = make_match_set(*unit);
  fpu::match_cells(unit->matchingSettings, left, right, set);
  watch.lap("matching");
  fpu::correct_cells(unit->mvcSettings, left, right, set);
  watch.lap("correction");
  const std::int32_t records = fpu::match_frames(left, right, &set, false);
  watch.lap("all three, and flagging");

  std::vector<RayMatch> matches = accepted_matches(set);
  PoseCandidate found;
  const std::int32_t status = filter_and_search(*context, rig, matches, found, unit->grid.numCells(), false);
  watch.lap("search");
  fmt::print(stderr, "{} keypoints, {} records, {} matches, status {}, score {:.3f}, {:.3f} s in all\n",
             keypoints, records, matches.size(), status, found.score,
             std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace twintrue::bench

int main(int argc, char** argv) {
  if (argc > 2) omp_set_num_threads(std::max(std::atoi(argv[2]), 1));
  return twintrue::bench::report(argc > 1 ? std::atoi(argv[1]) : 4096);
}
