#include "features/Description.h"

#include <algorithm>
#include <cmath>

#include "imaging/Filters.h"
#include "imaging/RowLoop.h"

namespace fpu {
namespace {

enum Tone : std::int32_t { kPower = 1, kSrgb = 2 };

constexpr float kByteToUnit = 0.003921569f;

// Kernels by half of the last two digits of desc_gaus_size.
constexpr std::array<std::int32_t, 6> kKernels{0, 19, 20, 21, 22, 13};

// Nearest pixel, halves away from zero.
std::int32_t nearest_pixel(float coordinate) { return static_cast<std::int32_t>(std::round(coordinate)); }

}  // namespace

float linear_of_byte(unsigned char value, std::int32_t tone) {
  const float unit = static_cast<float>(value) * kByteToUnit;
  switch (tone) {
    case kPower:
      return std::pow(unit, 2.2f);
    case kSrgb:
      // The limit is compared with the byte, not with its share of 255: only black takes the linear branch.
      if (static_cast<float>(value) < 0.04045f) return unit * 0.07739938f;
      return static_cast<float>(
          std::pow(static_cast<double>(unit) * 0.9478673457039061 + 0.05213270401371484, 2.4000000953674316));
    default:
      return unit;
  }
}

unsigned char byte_of_linear(float value, std::int32_t tone) {
  float level = 0.0f;
  switch (tone) {
    case kPower:
      level = std::pow(value, 0.45454544f) * 255.0f;
      break;
    case kSrgb:
      level = value < 0.0031308f ? value * 3294.6f : std::pow(value, 0.41666666f) * 269.025f - 14.025f;
      break;
    default:
      level = value * 255.0f;
      break;
  }
  if (!(level > 0.0f)) return 0;
  return static_cast<unsigned char>(std::min(level, 255.0f));
}

cve::XMat_<unsigned char> smoothForDescription(const cve::XMat_<unsigned char>& image,
                                               std::int32_t desc_gaus_size) {
  const std::int32_t tone = desc_gaus_size / 100;
  const std::int32_t kernel = kKernels[static_cast<std::size_t>(std::min((desc_gaus_size % 100) / 2, 5))];

  std::array<float, 256> light{};
  for (std::size_t value = 0; value < light.size(); ++value) {
    light[value] = linear_of_byte(static_cast<unsigned char>(value), tone);
  }
  cve::XMat_<float> linear;
  linear.create(image.rows, image.cols);
  for (std::int32_t y = 0; y < image.rows; ++y) {
    std::transform(image.row(y), image.row(y) + image.cols, linear.row(y),
                   [&](unsigned char value) { return light[value]; });
  }

  const cve::XMat_<float> filtered = cve::filterFloatImage(linear, kernel);
  linear = {};
  cve::XMat_<unsigned char> smoothed;
  smoothed.create(filtered.rows, filtered.cols);
  for (std::int32_t y = 0; y < filtered.rows; ++y) {
    std::transform(filtered.row(y), filtered.row(y) + filtered.cols, smoothed.row(y),
                   [&](float value) { return byte_of_linear(value, tone); });
  }
  return smoothed;
}

void describe_pixel(const unsigned char* pixel, const std::ptrdiff_t* offsets, std::int32_t length,
                    unsigned char* out) {
  unsigned current = pixel[*offsets];
  for (std::int32_t j = 0; j < length; ++j) {
    unsigned bits = 0;
    for (unsigned k = 0; k < 8; ++k) {
      const unsigned next = pixel[*++offsets];
      bits |= (current <= next ? 1u : 0u) << k;
      current = next;
    }
    out[j] = static_cast<unsigned char>(bits);
  }
}

void describeKeypoints(const std::vector<DescribedLevel>& levels, const std::vector<PatternPoint>& chain,
                       const KeyPointStore& store, cve::XMat_<unsigned char>& descriptors) {
  const std::int32_t length = descriptors.cols;
  const std::size_t points = 8 * static_cast<std::size_t>(length) + 1;
  std::vector<std::vector<std::ptrdiff_t>> offsets(levels.size());
  for (std::size_t level = 0; level < levels.size(); ++level) {
    const std::ptrdiff_t pitch = levels[level].image.pitch();
    for (std::size_t i = 0; i < points; ++i) offsets[level].push_back(chain[i].x + pitch * chain[i].y);
  }

  const auto capacity = static_cast<std::size_t>(store.capacityPerCell);
  cve::parallel_rows(0, store.grid->numCells(), [&](std::int32_t c) {
    const KeyPointRecord* records = store.records.data() + static_cast<std::size_t>(c) * capacity;
    for (std::int32_t slot = 0; slot < store.cellCounts[static_cast<std::size_t>(c)]; ++slot) {
      const KeyPointRecord& record = records[slot];
      const auto octave = static_cast<std::size_t>(record.octave);
      if (octave >= levels.size() || levels[octave].image.empty()) continue;
      const DescribedLevel& level = levels[octave];
      const std::int32_t px = nearest_pixel(record.x * level.inverse_scale);
      const std::int32_t py = nearest_pixel(record.y * level.inverse_scale);
      describe_pixel(level.image.row(py) + px, offsets[octave].data(), length, descriptors.row(record.index));
    }
  });
}

}  // namespace fpu
