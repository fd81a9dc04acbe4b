#include "PictureFaults.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace twintrue::false_success {
namespace {

using accuracy::Draws;

// Runs over the pixels with their eye and their place in its half.
template <typename Change>
void each(Picture& picture, const Change& change) {
  const int half = picture.width / 2;
  for (int y = 0; y < picture.height; ++y) {
    const double v = static_cast<double>(y) / picture.height - 0.5;
    for (int x = 0; x < picture.width; ++x) {
      const bool left = x >= half;
      const double u = static_cast<double>(left ? x - half : x) / picture.height - 0.5;
      change(left, u, v, picture.at(x, y));
    }
  }
}

bool is_black(const Colour& colour) { return colour[0] + colour[1] + colour[2] < 3.0f; }

// A soft round spot in one half: the light that it adds and the share of what was there that stays.
void add_spot(Picture& picture, bool left, double u, double v, double radius, float light, float stays) {
  const int half = picture.width / 2;
  const double cx = (u + 0.5) * picture.height + (left ? half : 0);
  const double cy = (v + 0.5) * picture.height;
  const double size = radius * picture.height;
  const int reach = static_cast<int>(std::ceil(3.0 * size));
  for (int y = std::max(static_cast<int>(cy) - reach, 0);
       y < std::min(static_cast<int>(cy) + reach, picture.height); ++y) {
    for (int x = std::max(static_cast<int>(cx) - reach, left ? half : 0);
         x < std::min(static_cast<int>(cx) + reach, left ? picture.width : half); ++x) {
      const double square = ((x - cx) * (x - cx) + (y - cy) * (y - cy)) / (size * size);
      const auto share = static_cast<float>(std::exp(-0.5 * square * square));
      for (float& value : picture.at(x, y)) {
        value = std::min(value * (1.0f - share * (1.0f - stays)) + share * light, 255.0f);
      }
    }
  }
}

std::array<double, 2> draw_place(Draws& draws, double reach = 0.42) {
  const double far = reach * std::sqrt(draws.unit());
  const double way = draws.between(0.0, 6.28);
  return {far * std::cos(way), far * std::sin(way)};
}

// Fills a rectangle at the same pixels of both halves.
void fill_both(Picture& picture, double u, double v, double width, double height, float brightness) {
  each(picture, [=](bool, double pu, double pv, Colour& colour) {
    if (pu >= u && pu < u + width && pv >= v && pv < v + height) colour.fill(brightness);
  });
}

// A glyph of 3 x 5 squares, the same in both halves.
void draw_glyph(Picture& picture, double u, double v, double square, Draws& draws) {
  std::array<bool, 15> on{};
  for (bool& one : on) one = draws.unit() < 0.55;
  const int half = picture.width / 2;
  const int side = std::max(static_cast<int>(std::lround(square * picture.height)), 1);
  const int x0 = static_cast<int>((u + 0.5) * picture.height);
  const int y0 = static_cast<int>((v + 0.5) * picture.height);
  for (int y = 0; y < 5 * side; ++y) {
    for (int x = 0; x < 3 * side; ++x) {
      if (!on[static_cast<std::size_t>(y / side * 3 + x / side)]) continue;
      if (x0 + x < 0 || x0 + x >= half || y0 + y < 0 || y0 + y >= picture.height) continue;
      for (const int from : {0, half}) picture.at(from + x0 + x, y0 + y).fill(250.0f);
    }
  }
}

}  // namespace

void take_from(Picture& picture, const Warp& from) {
  const Picture old = picture;
  const int half = picture.width / 2;
  for (int y = 0; y < picture.height; ++y) {
    const double v = static_cast<double>(y) / picture.height - 0.5;
    for (int x = 0; x < picture.width; ++x) {
      const bool left = x >= half;
      const std::array<double, 2> way =
          from(left, static_cast<double>(left ? x - half : x) / picture.height - 0.5, v);
      if (way[0] == 0.0 && way[1] == 0.0) continue;
      picture.at(x, y) = sample(old, x + way[0], y + way[1], left ? half : 0, left ? picture.width : half);
    }
  }
}

void grey(Picture& picture, const std::function<bool(double, double)>& keep) {
  each(picture, [&](bool, double u, double v, Colour& colour) {
    if (!keep(u, v)) colour.fill(120.0f);
  });
}

void add_noise(Input& input, double levels, Draws& draws) {
  each(input.frame, [&](bool, double, double, Colour& colour) {
    if (is_black(colour)) return;
    for (float& value : colour) value += static_cast<float>(levels * draws.normal());
  });
}

void expose(Input& input, double stops, Draws& draws) {
  const double sign = draws.unit() < 0.5 ? -1.0 : 1.0;
  const auto factor = static_cast<float>(std::pow(2.0, sign * stops / 2.2));
  each(input.frame, [=](bool left, double, double, Colour& colour) {
    if (!left) return;
    for (float& value : colour) value *= factor;
  });
}

void code_as_jpeg(Input& input, double below_best, Draws&) {
  input.frame = jpeg_coded(input.frame, static_cast<int>(100.0 - below_best));
}

void blur_both(Input& input, double sigma, Draws&) {
  const int half = input.frame.width / 2;
  blur(input.frame, 0, half, sigma * input.frame.width / 2048.0);
  blur(input.frame, half, input.frame.width, sigma * input.frame.width / 2048.0);
}

void blur_one(Input& input, double sigma, Draws&) {
  blur(input.frame, input.frame.width / 2, input.frame.width, sigma * input.frame.width / 2048.0);
}

void vignette(Input& input, double share, Draws&) {
  each(input.frame, [=](bool, double u, double v, Colour& colour) {
    const double square = std::min((u * u + v * v) / 0.236, 1.0);
    for (float& value : colour) value *= static_cast<float>(1.0 - share * square);
  });
}

void add_lights(Input& input, double count, Draws& draws) {
  for (int i = 0; i < static_cast<int>(count); ++i) {
    const auto place = draw_place(draws);
    const double radius = draws.scale_between(0.002, 0.012);
    add_spot(input.frame, false, place[0], place[1], radius, 255.0f, 0.3f);
    // A mirror image lies elsewhere for the other eye.
    add_spot(input.frame, true, place[0] + draws.between(-0.004, 0.025),
             place[1] + draws.between(-0.006, 0.006), radius, 255.0f, 0.3f);
  }
}

void add_dirt(Input& input, double count, Draws& draws) {
  for (int i = 0; i < static_cast<int>(count); ++i) {
    const auto place = draw_place(draws);
    add_spot(input.frame, draws.unit() < 0.5, place[0], place[1], draws.scale_between(0.01, 0.04), 20.0f,
             0.3f);
  }
}

void lower_contrast(Input& input, double share, Draws&) {
  each(input.frame, [=](bool, double, double, Colour& colour) {
    if (is_black(colour)) return;
    for (float& value : colour) value = 110.0f + static_cast<float>(share) * (value - 110.0f);
  });
}

void draw_logo(Input& input, double size, Draws& draws) {
  const auto place = draw_place(draws, 0.3);
  fill_both(input.frame, place[0], place[1], 1.6 * size, size, 30.0f);
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 7; ++column) {
      draw_glyph(input.frame, place[0] + (0.1 + 0.2 * column) * size, place[1] + (0.08 + 0.3 * row) * size,
                 0.05 * size, draws);
    }
  }
}

void draw_timecode(Input& input, double lines, Draws& draws) {
  for (int line = 0; line < static_cast<int>(lines); ++line) {
    for (int i = 0; i < 16; ++i) {
      draw_glyph(input.frame, -0.2 + 0.025 * i, 0.3 - 0.06 * line, 0.006, draws);
    }
  }
}

void draw_marks(Input& input, double count, Draws& draws) {
  for (int i = 0; i < static_cast<int>(count); ++i) {
    const auto place = draw_place(draws);
    fill_both(input.frame, place[0] - 0.012, place[1] - 0.001, 0.024, 0.002, 250.0f);
    fill_both(input.frame, place[0] - 0.001, place[1] - 0.012, 0.002, 0.024, 250.0f);
  }
}

}  // namespace twintrue::false_success
