#pragma once

// One eye's picture, cut from the frame and made ready for sampling.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "lens/RigModel.h"
#include "render/Pixels.h"

namespace twintrue::render {

// Columns of a row, end excluded; begin == end: none.
struct Span {
  int begin = 0;
  int end = 0;
  bool holds(int column) const { return column >= begin && column < end; }
};

// Four numbers a pixel: red, green, blue and a 0, so that a pixel is loaded as one vector. Pictures of bytes
// are kept as 16 bits, others as floats. Pixels that lie outside the eye's circle, which is where its angular
// limit and its half of the frame end, are in no span and must not be read.
//
// A picture of reduction n holds the mean of n x n pixels of the frame in each of its own, which keeps a
// small view from picking single pixels out of a fine texture.
//
// Only read once made, by any number of threads.
class EyePicture {
 public:
  // Uses the threads of the caller's team. `light`: what the numbers shall stand for, whatever the frame's
  // do. `reduction` at least 1. The lens file may say anything of the eye: what is not in the frame is in no
  // span. Throws std::bad_alloc, and LensModelError as eye_image_to_ray() does.
  EyePicture(const FramePixels& frame, const EyeModel& eye, Light light, int reduction);

  int width() const { return width_; }
  int height() const { return height_; }
  Light light() const { return light_; }
  // The frame's pixel (x, y) is the point ((x - left + 0.5) / reduction - 0.5, likewise of y) here.
  int reduction() const { return reduction_; }
  int left() const { return left_; }

  // Pixels of a row that lie inside.
  const Span& inside(int row) const { return inside_[static_cast<std::size_t>(row)]; }
  // Those columns x of a row y for which x - 1 to x + 2 are inside in all of the rows y - 1 to y + 2.
  const Span& whole(int row) const { return whole_[static_cast<std::size_t>(row)]; }

  // One of the two; the other one is null. Four numbers a pixel, rows of width().
  const std::uint16_t* words() const { return words_.get(); }  // 65535 stands for 1
  const float* floats() const { return floats_.get(); }

 private:
  void find_spans(const FramePixels& frame, const EyeModel& eye);
  template <typename Sample, typename Number, typename Convert>
  void fill(const FramePixels& frame, Number* numbers, const Convert& convert) const;
  void keep_words(const FramePixels& frame, std::uint16_t* numbers) const;
  template <typename Sample>
  void keep_floats(const FramePixels& frame, float* numbers) const;

  Light light_;
  int reduction_;
  int left_ = 0;
  int width_ = 0;
  int height_ = 0;
  std::vector<Span> inside_;
  std::vector<Span> whole_;
  std::unique_ptr<std::uint16_t[]> words_;
  std::unique_ptr<float[]> floats_;
};

// How far to reduce the eye's picture for a view of that density (see view_density()), at least 1.
int reduction_for(const EyeModel& eye, double view_density);

}  // namespace twintrue::render
