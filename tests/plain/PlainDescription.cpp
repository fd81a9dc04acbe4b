#include "PlainDescription.h"

#include <cmath>
#include <cstddef>

#include "PlainFilter.h"
#include "imaging/Filters.h"

namespace plain {

float light_of(unsigned char byte, std::int32_t tone) {
  const float f = static_cast<float>(byte) * 0.003921569f;
  if (tone == 1) return std::pow(f, 2.2f);
  if (tone == 2 && byte > 0) {
    return static_cast<float>(std::pow(f * 0.9478673457039061 + 0.05213270401371484, 2.4000000953674316));
  }
  return f;
}

unsigned char byte_of(float light, std::int32_t tone) {
  float level = light * 255.0f;
  if (tone == 1) level = std::pow(light, 0.45454544f) * 255.0f;
  if (tone == 2) {
    level = light < 0.0031308f ? light * 3294.6f : std::pow(light, 0.41666666f) * 269.025f - 14.025f;
  }
  const double whole = std::trunc(static_cast<double>(level));
  return static_cast<unsigned char>(whole > 0.0 ? std::fmin(whole, 255.0) : 0.0);
}

cve::XMat_<unsigned char> smooth(const cve::XMat_<unsigned char>& image, std::int32_t tone, int kernel) {
  cve::XMat_<float> light;
  light.create(image.rows, image.cols);
  for (std::int32_t y = 0; y < image.rows; ++y) {
    for (std::int32_t x = 0; x < image.cols; ++x) light.at(y, x) = light_of(image.at(y, x), tone);
  }
  const bool filtered = image.rows >= cve::kMinFilteredSize && image.cols >= cve::kMinFilteredSize;
  if (filtered) light = filter(cve::make_float_kernel(kernel), light, true);
  cve::XMat_<unsigned char> smoothed;
  smoothed.create(image.rows, image.cols);
  for (std::int32_t y = 0; y < image.rows; ++y) {
    for (std::int32_t x = 0; x < image.cols; ++x) smoothed.at(y, x) = byte_of(light.at(y, x), tone);
  }
  return smoothed;
}

cve::XMat_<unsigned char> describe(const cve::XMat_<unsigned char>& image,
                                   const std::vector<fpu::PatternPoint>& chain, std::int32_t length,
                                   const fpu::KeyPointStore& store) {
  cve::XMat_<unsigned char> descriptors;
  descriptors.create(store.count, length);
  for (std::int32_t c = 0; c < store.grid->numCells(); ++c) {
    for (std::int32_t slot = 0; slot < store.cellCounts[static_cast<std::size_t>(c)]; ++slot) {
      const auto& record = store.records[static_cast<std::size_t>(c * store.capacityPerCell + slot)];
      const int px = static_cast<int>(std::floor(record.x + 0.5));
      const int py = static_cast<int>(std::floor(record.y + 0.5));
      const auto pixel = [&](int i) {
        const fpu::PatternPoint& p = chain[static_cast<std::size_t>(i)];
        return image.at(py + p.y, px + p.x);
      };
      for (int bit = 0; bit < 8 * length; ++bit) {
        if (pixel(bit) > pixel(bit + 1)) continue;
        unsigned char& byte = descriptors.at(record.index, bit / 8);
        byte = static_cast<unsigned char>(byte | 1 << bit % 8);
      }
    }
  }
  return descriptors;
}

}  // namespace plain
