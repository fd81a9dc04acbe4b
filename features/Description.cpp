#include "features/Description.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "base/ParallelEach.h"
#include "features/DetectorSettings.h"
#include "imaging/BandFilter.h"
#include "imaging/ByteCurve.h"
#include "imaging/Filters.h"

namespace fpu {
namespace {

enum Tone : std::int32_t { kPower = 1, kSrgb = 2 };

constexpr float kByteToUnit = 0.003921569f;

// Kernels by half of the last two digits of desc_gaus_size.
constexpr std::array<std::int32_t, 6> kKernels{0, 19, 20, 21, 22, 13};

// Eight bytes as one number, the first of them lowest.
std::uint64_t eight_bytes(const unsigned char* bytes) {
  std::uint64_t value = 0;
  std::memcpy(&value, bytes, sizeof value);
  if constexpr (std::endian::native == std::endian::big) value = __builtin_bswap64(value);
  return value;
}

// Nearest pixel, halves away from zero.
std::int32_t nearest_pixel(float coordinate) { return static_cast<std::int32_t>(std::round(coordinate)); }

// Bit k of byte j is set when the pixel of point 8 * j + k is at most the pixel of the next point. `offsets`
// has 8 * length + 1 entries, relative to `pixel`; length at most kMaxDescriptorBytes.
void describe_pixel(const unsigned char* pixel, const std::ptrdiff_t* offsets, std::int32_t length,
                    unsigned char* out) {
  constexpr std::uint64_t kTops = 0x8080808080808080;
  constexpr std::uint64_t kGather = 0x0102040810204080;  // moves the lowest bit of byte k to bit 56 + k
  std::array<unsigned char, 8 * kMaxDescriptorBytes + 1> values;
  for (std::int32_t i = 0; i <= 8 * length; ++i) values[static_cast<std::size_t>(i)] = pixel[offsets[i]];
  for (std::int32_t j = 0; j < length; ++j) {
    const unsigned char* first = values.data() + 8 * j;
    const std::uint64_t current = eight_bytes(first);
    const std::uint64_t next = eight_bytes(first + 1);
    // Byte by byte, next - current on seven bits, with the top bit to lend: it stays where nothing was lent.
    const std::uint64_t low_le = (next | kTops) - (current & ~kTops);
    const std::uint64_t le = ((~current & next) | (~(current ^ next) & low_le)) & kTops;
    out[j] = static_cast<unsigned char>((le >> 7) * kGather >> 56);
  }
}

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
                                               std::int32_t desc_gaus_size, twintrue::InstructionSet set) {
  const std::int32_t tone = desc_gaus_size / 100;
  const std::int32_t kernel = kKernels[static_cast<std::size_t>(std::min((desc_gaus_size % 100) / 2, 5))];

  std::array<float, 256> light{};
  for (std::size_t value = 0; value < light.size(); ++value) {
    light[value] = linear_of_byte(static_cast<unsigned char>(value), tone);
  }
  const cve::ByteCurve curve(byte_of_linear, tone);
  const bool filtered = image.rows >= cve::kMinFilteredSize && image.cols >= cve::kMinFilteredSize;
  const cve::FilterKernel weights = filtered ? cve::make_float_kernel(kernel) : cve::FilterKernel();
  const auto width = static_cast<std::size_t>(image.cols);
  cve::XMat_<unsigned char> smoothed;
  smoothed.create(image.rows, image.cols);
  cve::parallel_bands(image.rows, [&](std::int32_t begin, std::int32_t end) {
    cve::BandFilter filter(weights, image.cols, image.rows, true, set);
    std::vector<float> linear(width);
    std::vector<float> sums(width);
    const auto light_row = [&](std::int32_t y) {
      std::transform(image.row(y), image.row(y) + width, linear.begin(),
                     [&](unsigned char value) { return light[value]; });
      return linear.data();
    };
    for (std::int32_t y = begin; y < end; ++y) {
      if (filtered) filter.make_row(y, light_row, sums.data());
      curve.convert(filtered ? sums.data() : light_row(y), width, smoothed.row(y), set);
    }
  });
  return smoothed;
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
  twintrue::parallel_rows(0, store.grid->numCells(), [&](std::int32_t c) {
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
