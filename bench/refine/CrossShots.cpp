#include "CrossShots.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "FrameRun.h"

namespace twintrue::refine_bench {
namespace {

using Pairs = std::vector<std::array<double, 4>>;

Pairs read_pairs(const std::string& path) {
  Pairs pairs;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    std::replace(line.begin(), line.end(), ',', ' ');
    std::istringstream words(line);
    std::array<double, 4> pair{};
    if (words >> pair[0] >> pair[1] >> pair[2] >> pair[3]) pairs.push_back(pair);
  }
  return pairs;
}

double median_across(const RigState& rig, const CalibResult& pose, const std::vector<Pairs>& shots,
                     std::size_t but) {
  const PairGeometry geometry(rig, pose);
  double sum = 0.0;
  for (std::size_t k = 0; k < shots.size(); ++k) {
    if (k == but) continue;
    std::vector<double> sizes;
    for (const auto& pair : shots[k]) {
      const EyeRay right = geometry.right_ray(pair[0], pair[1]);
      const EyeRay left = geometry.left_ray(pair[2], pair[3]);
      if (right.seen && left.seen) sizes.push_back(std::abs(geometry.across(left.ray, right.ray)));
    }
    const auto middle = sizes.begin() + static_cast<std::ptrdiff_t>(sizes.size() / 2);
    std::nth_element(sizes.begin(), middle, sizes.end());
    sum += *middle;
  }
  return sum / static_cast<double>(shots.size() - 1);
}

}  // namespace

CrossShots cross_shots(std::FILE* out, const std::vector<std::string>& shots, const std::string& lens,
                       const std::string& params, const std::string& memory, const RefineSettings& settings) {
  std::vector<Pairs> pairs;
  for (const std::string& shot : shots) pairs.push_back(read_pairs(shot + ".csv"));
  CrossShots mean;
  for (std::size_t k = 0; k < shots.size(); ++k) {
    const FrameRun frame =
        run_frame(read_pixels(shots[k] + ".jpg"), lens, params,
                  memory.empty() ? ""
                                 : memory + "/" + std::filesystem::path(shots[k]).filename().string() + "." +
                                       std::filesystem::path(lens).stem().string() + "." +
                                       std::filesystem::path(params).stem().string());
    const Refinement refined =
        refine(code_halves(frame.linear, frame.rig), frame.rig, frame.matches, frame.found, settings);
    const double before = median_across(frame.rig, frame.found, pairs, k);
    const double after = median_across(frame.rig, refined.taken ? refined.pose : frame.found, pairs, k);
    mean.searched += before / static_cast<double>(shots.size());
    mean.refined += after / static_cast<double>(shots.size());
    fmt::print(
        out,
        "{:<20} status {:5} matches {:6}  searched {:7.4f} refined {:7.4f}  moved {:6.3f} expected {:6.3f}  "
        "tried {:5} converged {:5} "
        "kept {:5} fields {} scatter {:6.3f} common {:6.3f} {}\n",
        std::filesystem::path(shots[k]).filename().string(), frame.status, frame.matches.size(), before,
        after, refined.moved, refined.expected_error, refined.tried, refined.converged, refined.kept,
        refined.fields, refined.scatter, refined.common,
        fmt::format("[fore {:.2f} moved {:.2f}] {}", refined.foresight, refined.moved, refined.reason));
    std::fflush(out);
  }
  fmt::print(out, "mean: searched {:.4f} refined {:.4f} ({:+.1f} %)\n", mean.searched, mean.refined,
             100.0 * (mean.refined / mean.searched - 1.0));
  return mean;
}

}  // namespace twintrue::refine_bench
