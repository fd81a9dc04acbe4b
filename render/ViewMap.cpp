#include "render/ViewMap.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>

#include "base/ParallelEach.h"

namespace twintrue::render {
namespace {

constexpr int kLargestStep = 16;
constexpr double kLargestAngle = 0.0125;  // between nodes, radians: 0.7 degrees
constexpr double kUnseen = std::numeric_limits<double>::quiet_NaN();

// Pixels a radian where the view has the fewest: in the middle of a rectilinear one.
double lowest_density(const View& view) {
  if (view.projection == Projection::kRectilinear) return 0.5 * view.width / std::tan(0.5 * view.fov);
  if (view.projection == Projection::kFisheye) return view_density(view);
  return std::min(view.width, view.height) / 3.141592653589793;
}

int step_for(const View& view) {
  int step = kLargestStep;
  while (step > 1 && step > kLargestAngle * lowest_density(view)) step /= 2;
  return step;
}

// Weights of the values at -1, 0, 1 and 2 for the cubic through them, taken at t.
std::array<double, 4> cubic_weights(double t) {
  return {-t * (t - 1) * (t - 2) / 6, (t + 1) * (t - 1) * (t - 2) / 2, -(t + 1) * t * (t - 2) / 2,
          (t + 1) * t * (t - 1) / 6};
}

}  // namespace

ViewMap::ViewMap(const EyeModel& eye, const View& view) : eye_(eye), view_(view), step_(step_for(view)) {
  if (step_ == 1) return;
  columns_ = view.width / step_ + 4;
  const int rows = view.height / step_ + 4;
  nodes_.resize(static_cast<std::size_t>(columns_) * static_cast<std::size_t>(rows));
  parallel_rows(0, rows, [&](int row) {
    Node* const out = nodes_.data() + static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_);
    for (int column = 0; column < columns_; ++column) {
      out[column] = exact((column - 1) * step_, (row - 1) * step_);
    }
  });
  const auto step = static_cast<std::size_t>(step_);
  weights_.resize(4 * step);
  for (std::size_t i = 0; i < step; ++i) {
    const auto weights = cubic_weights(static_cast<double>(i) / step_);
    for (std::size_t k = 0; k < 4; ++k) weights_[k * step + i] = weights[k];
  }
}

ViewMap::Node ViewMap::exact(double x, double y) const {
  std::array<double, 3> ray;
  Node node{kUnseen, kUnseen};
  if (!view_ray(view_, x, y, ray)) return node;
  // Whether the column is one of the eye's is for those to say who know the picture.
  eye_ray_to_image(eye_, &node.x, &node.y, ray[0], ray[1], ray[2]);
  return node;
}

ViewMap::Cell ViewMap::classify(int column, int row) const {
  int seen = 0;
  for (int j = 0; j < 4; ++j) {
    for (int i = 0; i < 4; ++i) seen += std::isnan(node(column + i, row + j).x) ? 0 : 1;
  }
  return seen == 16 ? Cell::kSeen : seen == 0 ? Cell::kUnseen : Cell::kMixed;
}

void ViewMap::interpolate(int column, int row, int y, double* x, double* y_out) const {
  const auto step = static_cast<std::size_t>(step_);
  const double* const weights = weights_.data();
  const auto down = static_cast<std::size_t>(y - row * step_);
  std::array<Node, 4> across;
  for (int i = 0; i < 4; ++i) {
    Node sum{0.0, 0.0};
    for (int j = 0; j < 4; ++j) {
      const double weight = weights[static_cast<std::size_t>(j) * step + down];
      sum.x += weight * node(column + i, row + j).x;
      sum.y += weight * node(column + i, row + j).y;
    }
    across[static_cast<std::size_t>(i)] = sum;
  }
  for (std::size_t i = 0; i < step; ++i) {
    x[i] = weights[i] * across[0].x + weights[step + i] * across[1].x + weights[2 * step + i] * across[2].x +
           weights[3 * step + i] * across[3].x;
    y_out[i] = weights[i] * across[0].y + weights[step + i] * across[1].y +
               weights[2 * step + i] * across[2].y + weights[3 * step + i] * across[3].y;
  }
}

void ViewMap::row(int y, int begin, int end, double* x, double* y_out) const {
  if (step_ == 1) {
    exact_row(y, begin, end, x, y_out);
    return;
  }
  const int row = y / step_;
  for (int column = begin / step_; column * step_ < end; ++column) {
    const int first = std::max(begin, column * step_);
    const int last = std::min(end, (column + 1) * step_);
    double* const x_cell = x + (first - begin);
    double* const y_cell = y_out + (first - begin);
    const Cell cell = classify(column, row);
    if (cell == Cell::kMixed) {
      exact_row(y, first, last, x_cell, y_cell);
    } else if (cell == Cell::kUnseen) {
      std::fill_n(x_cell, last - first, kUnseen);
      std::fill_n(y_cell, last - first, kUnseen);
    } else if (last - first == step_) {
      interpolate(column, row, y, x_cell, y_cell);
    } else {
      std::array<double, kLargestStep> x_whole, y_whole;
      interpolate(column, row, y, x_whole.data(), y_whole.data());
      std::copy_n(x_whole.data() + (first - column * step_), last - first, x_cell);
      std::copy_n(y_whole.data() + (first - column * step_), last - first, y_cell);
    }
  }
}

void ViewMap::exact_row(int y, int begin, int end, double* x, double* y_out) const {
  for (int column = begin; column < end; ++column) {
    const Node found = exact(column, y);
    x[column - begin] = found.x;
    y_out[column - begin] = found.y;
  }
}

}  // namespace twintrue::render
