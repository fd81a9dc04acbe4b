#include "CrossShots.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fmt/format.h>

#include "FrameRun.h"
#include "verdict/PairView.h"
#include "verdict/Polish.h"

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

double middle_of(std::vector<double> values) {
  if (values.empty()) return 0.0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

// Median over the shots but one of the median disparity across of a shot's pairs.
double median_across(const RigState& rig, const CalibResult& pose, const std::vector<Pairs>& shots,
                     std::size_t but) {
  const PairGeometry geometry(rig, pose);
  std::vector<double> medians;
  for (std::size_t k = 0; k < shots.size(); ++k) {
    if (k == but) continue;
    std::vector<double> sizes;
    for (const auto& pair : shots[k]) {
      const EyeRay right = geometry.right_ray(pair[0], pair[1]);
      const EyeRay left = geometry.left_ray(pair[2], pair[3]);
      if (right.seen && left.seen) sizes.push_back(std::abs(geometry.across(left.ray, right.ray)));
    }
    medians.push_back(middle_of(std::move(sizes)));
  }
  return middle_of(std::move(medians));
}

}  // namespace

CrossShots cross_shots(std::FILE* out, const std::vector<std::string>& shots, const std::string& lens,
                       const std::string& params, const std::string& memory, bool fit_shapes) {
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
    const Polished polished =
        polish_pose(code_halves(frame.linear, frame.rig), frame.rig, frame.matches, frame.found, fit_shapes);
    const Refinement& refined = polished.refinement;
    const RigState shaped = with_shapes(frame.rig, polished.shapes);
    const double searched = median_across(frame.rig, frame.found, pairs, k);
    const double settled = median_across(shaped, polished.settled.pose, pairs, k);
    const double written = median_across(shaped, polished.pose, pairs, k);
    mean.searched += searched / static_cast<double>(shots.size());
    mean.written += written / static_cast<double>(shots.size());
    fmt::print(out,
               "{:<20} status {:5} matches {:6}  search {:.3f} settled {:.3f} refined {:.3f} written {:.3f}  "
               "kept {:5} of {:5} scatter {:.3f} common {:.3f} foresight {:.2f} {}\n",
               std::filesystem::path(shots[k]).filename().string(), frame.status, frame.matches.size(),
               searched, settled, median_across(shaped, refined.pose, pairs, k), written, refined.kept,
               refined.tried, refined.scatter, refined.common, refined.foresight, refined.reason);
    std::fflush(out);
  }
  fmt::print(out, "mean: search {:.4f} written {:.4f} ({:+.1f} %)\n", mean.searched, mean.written,
             100.0 * (mean.written / mean.searched - 1.0));
  return mean;
}

}  // namespace twintrue::refine_bench
