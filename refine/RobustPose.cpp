#include "refine/RobustPose.h"

#include <Eigen/Dense>
#include <algorithm>
#include <cmath>
#include <numbers>

#include "base/ParallelEach.h"

namespace twintrue {
namespace {

constexpr std::size_t kBlock = 256;
constexpr double kTukey = 4.685;  // 95 % efficiency for normal errors
constexpr double kDeviationPerMedian = 1.4826;

using Vector = Eigen::Matrix<double, kPoseValues, 1>;
using Matrix = Eigen::Matrix<double, kPoseValues, kPoseValues>;

double median_of(std::vector<double> values) {
  if (values.empty()) return 0.0;
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

double tukey(double share) {
  if (!(std::abs(share) < 1.0)) return 0.0;
  const double rest = 1.0 - share * share;
  return rest * rest;
}

// A match as the steps look at it.
struct Line {
  EyeRay right;
  EyeRay left;
  double residual = 0.0;
  PoseVector slopes{};
  std::size_t patch = 0;  // of the field of view
  bool seen = false;
};

class Fit {
 public:
  Fit(const RigState& rig, const CalibResult& start, std::vector<PosePair>& pairs,
      const RobustPoseSettings& settings)
      : rig_(rig), pairs_(pairs), settings_(settings), lines_(pairs.size()), pose_(start) {
    for (std::size_t i = 0; i < settings.prior.difference.size(); ++i) {
      const double unit = is_offset(i) ? rig.frame_width : 1.0;
      const Vector right = Vector::Unit(static_cast<Eigen::Index>(i));
      const Vector left = Vector::Unit(static_cast<Eigen::Index>(i + settings.prior.difference.size()));
      believe(right - left, settings.prior.difference[i] * unit);
      believe((right + left) / 2.0, settings.prior.common[i] * unit);
    }
    look();
  }

  // Residuals and slopes under the pose.
  void look() {
    // Rays are taken anew only when an offset has come far from where they were; nearer by they are as good
    // as straight: a ray's course bends by a thousandth of itself a pixel.
    constexpr double kFar = 0.05;  // pixels
    const PoseVector values = vector_of(pose_);
    bool anew = rays_of_.empty();
    for (std::size_t i = 0; i < kPoseValues && !anew; ++i) {
      anew = is_offset(i) && !(std::abs(values[i] - rays_of_[i]) <= kFar);
    }
    if (anew) rays_of_.assign(values.begin(), values.end());
    const PairGeometry geometry(rig_, pose_);
    parallel_each((lines_.size() + kBlock - 1) / kBlock, [&](std::size_t block) {
      const std::size_t end = std::min(lines_.size(), (block + 1) * kBlock);
      for (std::size_t m = block * kBlock; m < end; ++m) {
        Line& line = lines_[m];
        if (anew) {
          line.right = geometry.right_ray(pairs_[m].right[0], pairs_[m].right[1]);
          line.left = geometry.left_ray(pairs_[m].left[0], pairs_[m].left[1]);
          line.seen = line.right.seen && line.left.seen;
          if (line.seen) line.patch = patch_of(geometry, line);
        }
        if (line.seen) {
          line.residual = geometry.across(moved(line.left, values[8] - rays_of_[8], values[9] - rays_of_[9]),
                                          moved(line.right, values[3] - rays_of_[3], values[4] - rays_of_[4]),
                                          line.slopes);
        }
        pairs_[m].residual = line.residual;
        pairs_[m].weight = 0.0;
      }
    });
  }

  // One weighted Gauss-Newton step; weights and deviations are in the pairs. Returns the rms move over the
  // matches that fit, pixels.
  double step() {
    sum_up();
    const Vector move = information_.ldlt().solve(pull_);
    double sum = 0.0;
    double weights = 0.0;
    for (std::size_t m = 0; m < lines_.size(); ++m) {
      if (pairs_[m].weight == 0.0) continue;
      double change = 0.0;
      for (std::size_t i = 0; i < kPoseValues; ++i) {
        change += lines_[m].slopes[i] * move(static_cast<Eigen::Index>(i));
      }
      sum += pairs_[m].weight * change * change;
      weights += pairs_[m].weight;
    }
    PoseVector values = vector_of(pose_);
    for (std::size_t i = 0; i < kPoseValues; ++i) values[i] += move(static_cast<Eigen::Index>(i));
    put_vector(pose_, values);
    look();
    return weights > 0.0 ? std::sqrt(sum / weights) : 0.0;
  }

  void weigh(double window) {
    for (std::size_t m = 0; m < lines_.size(); ++m) {
      pairs_[m].deviation = window / kTukey;
      pairs_[m].weight = lines_[m].seen ? tukey(lines_[m].residual / window) : 0.0;
    }
  }

  // Weights by each match's own deviation.
  void weigh_by_variance(double factor, double floor) {
    for (std::size_t m = 0; m < lines_.size(); ++m) {
      pairs_[m].deviation = std::sqrt(factor * pairs_[m].variance + floor);
      pairs_[m].weight = lines_[m].seen ? tukey(lines_[m].residual / (kTukey * pairs_[m].deviation)) : 0.0;
    }
  }

  double scatter() const {
    std::vector<double> sizes;
    for (const Line& line : lines_) {
      if (line.seen) sizes.push_back(std::abs(line.residual));
    }
    return kDeviationPerMedian * median_of(std::move(sizes));
  }

  // Deviation of a match: sqrt(factor * variance + floor), to the scatter in classes of the variance.
  void fit_variances(double& factor, double& floor) const {
    constexpr std::size_t kClasses = 8;
    std::vector<std::size_t> order;
    for (std::size_t m = 0; m < lines_.size(); ++m) {
      if (lines_[m].seen) order.push_back(m);
    }
    std::sort(order.begin(), order.end(), [this](std::size_t a, std::size_t b) {
      return pairs_[a].variance != pairs_[b].variance ? pairs_[a].variance < pairs_[b].variance : a < b;
    });
    // Relative errors of a class's scatter are the same for all: lines through 1.
    double aa = 0.0, ab = 0.0, bb = 0.0, ya = 0.0, yb = 0.0;
    double median_all = 0.0;
    std::vector<double> all;
    for (std::size_t k = 0; k < kClasses; ++k) {
      const std::size_t begin = order.size() * k / kClasses;
      const std::size_t end = order.size() * (k + 1) / kClasses;
      if (end == begin) continue;
      std::vector<double> sizes, variances;
      for (std::size_t i = begin; i < end; ++i) {
        sizes.push_back(std::abs(lines_[order[i]].residual));
        variances.push_back(pairs_[order[i]].variance);
      }
      const double scatter = kDeviationPerMedian * median_of(sizes);
      const double square = std::max(scatter * scatter, 1e-8);
      all.push_back(square);
      const double x = median_of(variances) / square;
      const double one = 1.0 / square;
      aa += x * x;
      ab += x * one;
      bb += one * one;
      ya += x;
      yb += one;
    }
    median_all = median_of(all);
    const double det = aa * bb - ab * ab;
    factor = det > 0.0 ? (ya * bb - yb * ab) / det : -1.0;
    floor = det > 0.0 ? (yb * aa - ya * ab) / det : -1.0;
    if (!(factor > 0.0)) {
      factor = 0.0;
      floor = bb > 0.0 ? yb / bb : 1.0;
    } else if (!(floor > 0.0)) {
      floor = 0.0;
      factor = aa > 0.0 ? ya / aa : 1.0;
    }
    constexpr double kLeast = 0.3;  // of the median deviation
    floor = std::max(floor, kLeast * kLeast * median_all);
  }

  // Covariance of the pose: what leaving out each piece of the field in turn does to it. `foresight`: how far
  // off the matches of the pieces are under the poses found without them, divided by how far off they are
  // under `start`.
  Matrix covariance(const CalibResult& start, std::size_t& held, double& foresight) {
    sum_up();
    const std::vector<Piece> patches = pieces();
    const std::size_t count = static_cast<std::size_t>(settings_.rings * settings_.sectors);
    std::vector<Matrix> information(count, Matrix::Zero());
    std::vector<Vector> pull(count, Vector::Zero());
    std::vector<char> crowded(count, 0);
    for (std::size_t p = 0; p < patches.size(); ++p) {
      if (patches[p].weight == 0.0) continue;
      const std::size_t ring = p / patch_sectors() / 2;
      const std::size_t sector = p % patch_sectors() / 2;
      const std::size_t f = ring * static_cast<std::size_t>(settings_.sectors) + sector;
      add(patches[p], information[f], pull[f]);
      crowded[f] = 1;
    }
    held = 0;
    Vector to_start;
    for (std::size_t i = 0; i < kPoseValues; ++i) {
      to_start(static_cast<Eigen::Index>(i)) = start.*kPoseFields[i] - pose_.*kPoseFields[i];
    }
    double seen = 0.0, unseen = 0.0;
    std::vector<Vector> moves(count, Vector::Zero());
    Matrix sum = Matrix::Zero();
    const Vector whole = information_.ldlt().solve(pull_);
    for (std::size_t f = 0; f < count; ++f) {
      if (crowded[f] == 0) continue;
      ++held;
      const Matrix rest = information_ - information[f];
      const Vector move = rest.ldlt().solve(pull_ - pull[f]) - whole;
      sum += move * move.transpose();
      moves[f] = move;
    }
    for (std::size_t p = 0; p < patches.size(); ++p) {
      const Piece& patch = patches[p];
      if (patch.weight == 0.0) continue;
      const std::size_t ring = p / patch_sectors() / 2;
      const std::size_t sector = p % patch_sectors() / 2;
      const Vector& move = moves[ring * static_cast<std::size_t>(settings_.sectors) + sector];
      const double weight = 1.0 / (1.0 / patch.weight + common_);
      const double without = (patch.slopes.dot(move) - patch.pull) / patch.weight;
      const double before = (patch.slopes.dot(to_start) - patch.pull) / patch.weight;
      unseen += weight * without * without;
      seen += weight * before * before;
    }
    foresight = seen > 0.0 ? std::sqrt(unseen / seen) : 1.0;
    const double n = static_cast<double>(held);
    Matrix covariance = held > 1 ? Matrix(sum * ((n - 1.0) / n)) : Matrix::Zero();
    // What was taken for granted beforehand errs as well: its share of the pose is not in the matches.
    const Matrix inverse = information_.ldlt().solve(Matrix::Identity());
    covariance += inverse * prior_ * inverse;
    return covariance;
  }

  // What all matches of a patch of the field have in common: the deviation that explains how far their means
  // lie apart, after Paule and Mandel.
  void fit_common() {
    const std::vector<Piece> patches = pieces();
    std::size_t held = 0;
    double finest = 0.0;
    for (const Piece& piece : patches) {
      if (piece.weight == 0.0) continue;
      ++held;
      finest = std::max(finest, piece.pull * piece.pull / (piece.weight * piece.weight));
    }
    common_ = 0.0;
    if (held <= 2 * kPoseValues) return;
    const auto excess = [&](double common) {
      double sum = 0.0;
      for (const Piece& piece : patches) {
        if (piece.weight == 0.0) continue;
        const double mean = piece.pull / piece.weight;
        sum += mean * mean / (1.0 / piece.weight + common);
      }
      return sum - static_cast<double>(held - kPoseValues);
    };
    if (excess(0.0) <= 0.0) return;
    double low = 0.0;
    double high = finest * static_cast<double>(held);
    constexpr int kHalvings = 60;
    for (int i = 0; i < kHalvings; ++i) {
      const double middle = 0.5 * (low + high);
      (excess(middle) > 0.0 ? low : high) = middle;
    }
    common_ = high;
  }
  double common() const { return common_; }

  std::size_t fitting() const {
    std::size_t count = 0;
    for (const PosePair& pair : pairs_) count += pair.weight > 0.0 ? 1 : 0;
    return count;
  }
  const CalibResult& pose() const { return pose_; }

 private:
  // The ray of a pixel after the offsets of its eye have grown.
  static EyeRay moved(EyeRay ray, double offset_x, double offset_y) {
    for (std::size_t i = 0; i < 3; ++i) ray.ray[i] += offset_y * ray.by_y[i] - offset_x * ray.by_x[i];
    return ray;
  }

  // Sums over the matches of a patch.
  struct Piece {
    Matrix information = Matrix::Zero();
    Vector slopes = Vector::Zero();
    Vector pulls = Vector::Zero();
    double pull = 0.0;
    double weight = 0.0;
  };

  // Patches are half as wide and half as high as the pieces that are left out for the covariance.
  std::size_t patch_sectors() const { return 2 * static_cast<std::size_t>(settings_.sectors); }
  std::size_t patch_rings() const { return 2 * static_cast<std::size_t>(settings_.rings); }

  std::size_t patch_of(const PairGeometry& geometry, const Line& line) const {
    const Vec3& ray = line.right.ray;
    const double off = std::atan2(std::hypot(ray[0], ray[1]), -ray[2]) / geometry.rim(false);
    const double turn = std::atan2(ray[1], ray[0]) / (2.0 * std::numbers::pi) + 0.5;
    // Rings of the same area in the picture.
    const auto ring = static_cast<std::size_t>(off * off * static_cast<double>(patch_rings()));
    const auto sector = static_cast<std::size_t>(turn * static_cast<double>(patch_sectors()));
    return std::min(ring, patch_rings() - 1) * patch_sectors() + std::min(sector, patch_sectors() - 1);
  }

  std::vector<Piece> pieces() const {
    std::vector<Piece> patches(patch_rings() * patch_sectors());
    for (std::size_t m = 0; m < lines_.size(); ++m) {
      if (pairs_[m].weight == 0.0) continue;
      const Eigen::Map<const Vector> slope(lines_[m].slopes.data());
      const double w = pairs_[m].weight / (pairs_[m].deviation * pairs_[m].deviation);
      Piece& piece = patches[lines_[m].patch];
      piece.information.selfadjointView<Eigen::Lower>().rankUpdate(slope, w);
      piece.slopes += w * slope;
      piece.pulls -= w * lines_[m].residual * slope;
      piece.pull -= w * lines_[m].residual;
      piece.weight += w;
    }
    return patches;
  }

  // A patch's share of the normal equations, what its matches have in common taken out as far as it is noise.
  void add(const Piece& piece, Matrix& information, Vector& pull) const {
    const double share = common_ > 0.0 ? 1.0 / (1.0 / common_ + piece.weight) : 0.0;
    information += Matrix(piece.information.selfadjointView<Eigen::Lower>()) -
                   share * piece.slopes * piece.slopes.transpose();
    pull += piece.pulls - share * piece.pull * piece.slopes;
  }

  void sum_up() {
    information_ = prior_;
    const PoseVector values = vector_of(pose_);
    pull_ = -prior_ * Eigen::Map<const Vector>(values.data());
    for (const Piece& piece : pieces()) {
      if (piece.weight > 0.0) add(piece, information_, pull_);
    }
  }

  void believe(const Vector& direction, double deviation) {
    prior_ += direction * direction.transpose() / (deviation * deviation);
  }

  const RigState& rig_;
  std::vector<PosePair>& pairs_;
  const RobustPoseSettings& settings_;
  std::vector<Line> lines_;
  CalibResult pose_;
  std::vector<double> rays_of_;    // the pose whose offsets the rays were taken with
  Matrix prior_ = Matrix::Zero();  // information about the lens file's values, which are all 0
  Matrix information_;
  Vector pull_;
  double common_ = 0.0;  // variance of what the matches of a patch have in common, squared pixels
};

}  // namespace

RobustPose coarse_pose(const RigState& rig, const CalibResult& start, std::vector<PosePair>& pairs,
                       const RobustPoseSettings& settings) {
  RobustPose result;
  Fit fit(rig, start, pairs, settings);
  constexpr int kMostSteps = 20;
  constexpr double kLeastWindow = 1.5;
  double window = std::max(3.0 * fit.scatter(), kLeastWindow);
  for (; result.steps < kMostSteps; ++result.steps) {
    fit.weigh(window);
    const double move = fit.step();
    const double next = std::clamp(3.0 * fit.scatter(), kLeastWindow, std::max(0.7 * window, kLeastWindow));
    if (move < 0.01 && next >= 0.99 * window) break;
    window = next;
  }
  result.pose = vector_of(fit.pose());
  result.scatter = fit.scatter();
  result.solved =
      std::all_of(result.pose.begin(), result.pose.end(), [](double v) { return std::isfinite(v); });
  return result;
}

RobustPose robust_pose(const RigState& rig, const CalibResult& start, std::vector<PosePair>& pairs,
                       const RobustPoseSettings& settings) {
  RobustPose result;
  Fit fit(rig, start, pairs, settings);
  constexpr int kMostSteps = 30;
  constexpr double kLastMove = 1e-4;  // pixels
  for (const double window : {1.0, 0.5}) {
    fit.weigh(std::max(window, 3.0 * fit.scatter()));
    fit.step();
  }
  for (result.steps = 2; result.steps < kMostSteps; ++result.steps) {
    fit.fit_variances(result.variance_factor, result.variance_floor);
    fit.weigh_by_variance(result.variance_factor, result.variance_floor);
    if (settings.common) fit.fit_common();
    if (fit.step() < kLastMove) break;
  }
  fit.weigh_by_variance(result.variance_factor, result.variance_floor);
  result.common = std::sqrt(fit.common());
  const Matrix covariance = fit.covariance(start, result.fields, result.foresight);
  result.fitting = fit.fitting();
  result.scatter = fit.scatter();
  result.pose = vector_of(fit.pose());
  for (std::size_t i = 0; i < kPoseValues; ++i) {
    for (std::size_t j = 0; j < kPoseValues; ++j) {
      result.covariance[i][j] = covariance(static_cast<Eigen::Index>(i), static_cast<Eigen::Index>(j));
    }
  }
  result.solved = covariance.allFinite() && std::all_of(result.pose.begin(), result.pose.end(),
                                                        [](double v) { return std::isfinite(v); });
  return result;
}

}  // namespace twintrue
