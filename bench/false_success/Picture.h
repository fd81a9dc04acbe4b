#pragma once

// Pictures of three floats a pixel, 0 to 255, and what is done to them to spoil a frame.

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace twintrue::false_success {

using Colour = std::array<float, 3>;

struct Picture {
  int width = 0;
  int height = 0;
  std::vector<Colour> pixels;

  Picture() = default;
  Picture(int w, int h)
      : width(w), height(h), pixels(static_cast<std::size_t>(w) * static_cast<std::size_t>(h)) {}
  Colour& at(int x, int y) {
    return pixels[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                  static_cast<std::size_t>(x)];
  }
  const Colour& at(int x, int y) const { return const_cast<Picture*>(this)->at(x, y); }
};

// Throw std::runtime_error.
Picture read_picture(const std::string& path);
void write_picture(const Picture& picture, const std::string& path);  // 8 bits

// The picture after a JPEG file of that quality, 1 to 100. Throws std::runtime_error.
Picture jpeg_coded(const Picture& picture, int quality);

// A name that no other thread or process has, in the folder for such files.
std::string temporary_path(const std::string& suffix);

// By a cubic through the sixteen nearest pixels; places outside `x_begin` to `x_end` or the rows are black.
Colour sample(const Picture& picture, double x, double y, int x_begin, int x_end);

// Every second pixel of the picture under a small tent, so that pixel (x, y) stays pixel (x / 2, y / 2).
Picture halved(const Picture& picture);

// Columns x_begin to x_end under a Gaussian.
void blur(Picture& picture, int x_begin, int x_end, double sigma);

}  // namespace twintrue::false_success
