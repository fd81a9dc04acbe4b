#pragma once

// Where each pixel of a view comes from: the pixel of the frame that an eye sees it at.

#include <cstdint>
#include <vector>

#include "lens/RigModel.h"
#include "render/View.h"

namespace twintrue::render {

// The map of one eye and one view. The projection itself is that of lens/RigModel.h. It is taken at the nodes
// of a grid that lie at most 0.7 degrees apart and interpolated between them by cubics, which misses it by
// less than a thousandth of a pixel; see the tests. Where the picture's edge runs between nodes, and in small
// views, it is taken at each pixel.
//
// Once made it only is read: rows may be asked for on any number of threads.
class ViewMap {
 public:
  // The eye is copied. The view has to be possible. Uses the threads of the caller's team. Throws what
  // eye_ray_to_image() does.
  ViewMap(const EyeModel& eye, const View& view);

  // Frame pixels of row y, columns `begin` to `end` - 1 of the view. What the eye does not see, or the view
  // does not show, has a NaN for x. Numbers may be anything else where a lens file describes no real lens.
  void row(int y, int begin, int end, double* x, double* y_out) const;

  // For tests: the same by the projection itself.
  void exact_row(int y, int begin, int end, double* x, double* y_out) const;

 private:
  struct Node {
    double x, y;  // NaN: unseen
  };
  enum class Cell : std::uint8_t { kUnseen, kSeen, kMixed };

  Node exact(double x, double y) const;
  const Node& node(int column, int row) const {
    return nodes_[static_cast<std::size_t>(row) * static_cast<std::size_t>(columns_) +
                  static_cast<std::size_t>(column)];
  }
  Cell classify(int column, int row) const;
  void interpolate(int column, int row, int y, double* x, double* y_out) const;

  EyeModel eye_;
  View view_;
  int step_ = 1;     // pixels between nodes
  int columns_ = 0;  // of nodes; the first one lies a step before the picture's first pixel
  std::vector<Node> nodes_;
  std::vector<double> weights_;  // of four nodes in turn, for each pixel of a step
};

}  // namespace twintrue::render
