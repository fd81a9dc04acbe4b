#include "Spoil.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <functional>
#include <map>
#include <stdexcept>

#include <unistd.h>

#include <OpenImageIO/imageio.h>

#include "Draws.h"

namespace twintrue::refine_bench {
namespace {

std::uint8_t to_byte(double value) {
  return static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}

// Runs over the pixels of columns begin to end.
template <typename Change>
void each(Pixels& p, int begin, int end, const Change& change) {
  for (int y = 0; y < p.height; ++y) {
    for (int x = begin; x < end; ++x) {
      change(x, y,
             &p.bytes[3 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(p.width) +
                           static_cast<std::size_t>(x))]);
    }
  }
}

void noise(Pixels& p, double sigma) {
  accuracy::Draws draws(5);
  each(p, 0, p.width, [&](int, int, std::uint8_t* c) {
    if (c[0] + c[1] + c[2] == 0) return;
    const double n = sigma * draws.normal();
    for (int k = 0; k < 3; ++k) c[k] = to_byte(c[k] + n);
  });
}

// From where a place is read, in the same half.
void warp(Pixels& p, int begin, int end, const std::function<void(double&, double&)>& from) {
  const Pixels old = p;
  each(p, begin, end, [&](int x, int y, std::uint8_t* c) {
    double sx = x, sy = y;
    from(sx, sy);
    sx = std::clamp(sx, static_cast<double>(begin), end - 1.001);
    sy = std::clamp(sy, 0.0, p.height - 1.001);
    const auto ix = static_cast<std::size_t>(sx), iy = static_cast<std::size_t>(sy);
    const double a = sx - static_cast<double>(ix), b = sy - static_cast<double>(iy);
    const auto width = static_cast<std::size_t>(p.width);
    for (std::size_t k = 0; k < 3; ++k) {
      const auto at = [&](std::size_t dx, std::size_t dy) {
        return static_cast<double>(old.bytes[3 * ((iy + dy) * width + std::min(ix + dx, width - 1)) + k]);
      };
      c[k] = to_byte((1 - b) * ((1 - a) * at(0, 0) + a * at(1, 0)) + b * ((1 - a) * at(0, 1) + a * at(1, 1)));
    }
  });
}

void blur(Pixels& p, int begin, int end, double sigma) {
  std::vector<double> kernel;
  const int reach = static_cast<int>(3 * sigma) + 1;
  double sum = 0.0;
  for (int i = -reach; i <= reach; ++i) {
    kernel.push_back(std::exp(-0.5 * i * i / (sigma * sigma)));
    sum += kernel.back();
  }
  for (const bool sideways : {true, false}) {
    const Pixels old = p;
    each(p, begin, end, [&](int x, int y, std::uint8_t* c) {
      for (std::size_t k = 0; k < 3; ++k) {
        double value = 0.0;
        for (int i = -reach; i <= reach; ++i) {
          const int sx = sideways ? std::clamp(x + i, begin, end - 1) : x;
          const int sy = sideways ? y : std::clamp(y + i, 0, p.height - 1);
          value += kernel[static_cast<std::size_t>(i + reach)] *
                   old.bytes[3 * (static_cast<std::size_t>(sy) * static_cast<std::size_t>(p.width) +
                                  static_cast<std::size_t>(sx)) +
                             k];
        }
        c[k] = to_byte(value / sum);
      }
    });
  }
}

void darker(Pixels& p, int begin, int end, double stops) {
  const double factor = std::pow(2.0, -stops / 2.2);
  each(p, begin, end, [&](int, int, std::uint8_t* c) {
    for (int k = 0; k < 3; ++k) c[k] = to_byte(factor * c[k]);
  });
}

void jpeg(Pixels& p, int quality) {
  const std::string path =
      (std::filesystem::temp_directory_path() / ("refine_bench." + std::to_string(getpid()) + ".jpg"))
          .string();
  {
    const auto file = OIIO::ImageOutput::create(path);
    OIIO::ImageSpec spec(p.width, p.height, 3, OIIO::TypeDesc::UINT8);
    spec.attribute("Compression", "jpeg:" + std::to_string(quality));
    if (!file || !file->open(path, spec) || !file->write_image(OIIO::TypeDesc::UINT8, p.bytes.data()) ||
        !file->close()) {
      throw std::runtime_error("can't write " + path);
    }
  }
  p = read_pixels(path);
  std::filesystem::remove(path);
}

using Harm = std::function<void(Pixels&)>;
const std::map<std::string, Harm>& harms() {
  static const std::map<std::string, Harm> all{
      {"none", [](Pixels&) {}},
      {"noise8", [](Pixels& p) { noise(p, 8.0); }},
      {"noise20", [](Pixels& p) { noise(p, 20.0); }},
      {"blur2", [](Pixels& p) { blur(p, 0, p.width / 2, 2.0), blur(p, p.width / 2, p.width, 2.0); }},
      {"one_blurred", [](Pixels& p) { blur(p, 0, p.width / 2, 1.5); }},
      {"jpeg50", [](Pixels& p) { jpeg(p, 50); }},
      {"jpeg20", [](Pixels& p) { jpeg(p, 20); }},
      {"darker2", [](Pixels& p) { darker(p, 0, p.width / 2, 2.0); }},
      {"brighter2", [](Pixels& p) { darker(p, 0, p.width / 2, -2.0); }},
      {"rolling",  // rows of one half sway by two pixels
       [](Pixels& p) {
         warp(p, 0, p.width / 2, [](double& x, double& y) { x += 2.0 * std::sin(y / 90.0); });
       }},
      {"rolling_y",
       [](Pixels& p) { warp(p, 0, p.width / 2, [](double&, double& y) { y += 0.5 * std::sin(y / 90.0); }); }},
      {"moved",  // a quarter of a half has moved between the exposures
       [](Pixels& p) {
         const double x0 = p.width * 0.12, x1 = p.width * 0.30, y0 = p.height * 0.3, y1 = p.height * 0.7;
         warp(p, 0, p.width / 2, [=](double& x, double& y) {
           if (x > x0 && x < x1 && y > y0 && y < y1) y += 1.3, x += 4.0;
         });
       }},
      {"larger",  // one half larger by a two-hundredth
       [](Pixels& p) {
         const double mx = p.width * 0.25, my = p.height * 0.5;
         warp(p, 0, p.width / 2,
              [=](double& x, double& y) { x = mx + (x - mx) / 1.005, y = my + (y - my) / 1.005; });
       }},
      {"tiles",  // strong repeated texture printed on both, fixed to the picture's own rows
       [](Pixels& p) {
         each(p, 0, p.width, [&](int x, int y, std::uint8_t* c) {
           const int half = p.width / 2;
           const double wave = 25.0 * std::sin((x % half) * 0.5) * std::sin(y * 0.5);
           for (int k = 0; k < 3; ++k) c[k] = to_byte(c[k] + wave);
         });
       }},
  };
  return all;
}

}  // namespace

const std::vector<std::string>& spoil_names() {
  static const std::vector<std::string> names = [] {
    std::vector<std::string> all;
    for (const auto& entry : harms()) all.push_back(entry.first);
    return all;
  }();
  return names;
}

void spoil(Pixels& pixels, const std::string& name) {
  const auto harm = harms().find(name);
  if (harm == harms().end()) throw std::runtime_error("no harm is called " + name);
  harm->second(pixels);
}

}  // namespace twintrue::refine_bench
