#include "features/DetectorSettings.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <limits>
#include <stdexcept>

#include "base/Saturate.h"
#include "features/ParamBool.h"

namespace fpu {
namespace {

using twintrue::param_child;
using twintrue::ParamNode;

// Kernels of the detection filter are numbered from 0.
constexpr std::int32_t kLastKernel = 23;

void read_int(const ParamNode& section, const char* key, std::int32_t& value) {
  twintrue::param_get_int(param_child(section, key), &value, &value);
}

void read_float(const ParamNode& section, const char* key, float& value) {
  twintrue::param_get_float(param_child(section, key), &value, &value);
}

void read_text(const ParamNode& section, const char* key, std::string& value) {
  const ParamNode node = param_child(section, key);
  const std::string& text = twintrue::param_text(node);
  if (!text.empty()) value = text;
}

void read_scalar(const ParamNode& node, std::int32_t& value) {
  twintrue::param_get_int(node, &value, &value);
}
void read_scalar(const ParamNode& node, float& value) { twintrue::param_get_float(node, &value, &value); }

void store_element(float element, float& value) { value = element; }
void store_element(float element, std::int32_t& value) { value = twintrue::truncate_to_int32(element); }

// The scalar goes to every level; then the list under the plural of the key, as far as it reaches. Elements
// that don't parse are 0.
template <typename T>
void read_levels(const ParamNode& section, const std::string& key, std::size_t levels,
                 std::array<T, kMaxLevels>& values) {
  const ParamNode scalar = param_child(section, key);
  for (std::size_t level = 0; level < levels; ++level) read_scalar(scalar, values[level]);

  const ParamNode list = param_child(section, key + "s");
  if (!twintrue::param_is_sequence(list)) return;
  constexpr float kUnreadable = 0.0f;
  const auto last = twintrue::param_end(list);
  auto entry = twintrue::param_begin(list);
  for (std::size_t level = 0; level < levels && entry != last; ++level, ++entry) {
    float element = 0.0f;
    twintrue::param_get_float(ParamNode{std::string(), &(*entry).second}, &element, &kUnreadable);
    store_element(element, values[level]);
  }
}

std::uint64_t parse_seed(const std::string& text) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long value = std::strtoull(text.c_str(), &end, 10);
  if (end == text.c_str()) throw std::invalid_argument("invalid stoull argument");
  if (errno == ERANGE) throw std::out_of_range("stoull argument out of range");
  return value;
}

}  // namespace

DescriptorSize read_descriptor_size(const ParamNode& section, std::int32_t bytes) {
  DescriptorSize size{bytes, 0};
  read_int(section, "desc_bytes", size.bytes);
  // Files in use count on the factor 4.
  constexpr std::int64_t kMax = std::numeric_limits<std::int32_t>::max();
  size.bits = static_cast<std::int32_t>(std::clamp(std::int64_t{size.bytes} * 4, -kMax, kMax));
  read_int(section, "desc_bits", size.bits);
  return size;
}

void DetectorSettings::read(const ParamNode& section) {
  read_int(section, "nfeatures", nfeatures);
  twintrue::param_get_double(param_child(section, "scaleFactor"), &scaleFactor, &scaleFactor);
  read_int(section, "nlevels", nlevels);
  read_int(section, "edgeThreshold", edgeThreshold);
  read_int(section, "firstLevel", firstLevel);
  read_int(section, "wta_k", wta_k);
  read_int(section, "scoreType", scoreType);
  read_int(section, "patchSize", patchSize);
  param_get_bool(param_child(section, "rotating"), &rotating);
  read_int(section, "refining", refining);
  read_int(section, "ds_mode", ds_mode);
  read_int(section, "gamma_mode", gamma_mode);
  read_int(section, "desc_gaus_size", desc_gaus_size);
  desc_bytes = read_descriptor_size(section, desc_bytes).length();
  read_int(section, "filter_mode", filter_mode);
  read_int(section, "det_type", det_type);
  read_int(section, "no_extrema_suppression", no_extrema_suppression);
  read_float(section, "h_sigma", h_sigma);
  read_int(section, "desc_image_mode", desc_image_mode);
  read_int(section, "lpf_bit", lpf_bit);
  read_int(section, "shift_abd", shift_abd);
  read_int(section, "shift_det", shift_det);
  read_int(section, "shift_res", shift_res);
  read_int(section, "mul_subpixel", mul_subpixel);
  read_int(section, "rnd_mode", rnd_mode);
  read_float(section, "rSigma", rSigma);
  read_int(section, "weightDist", weightDist);
  read_int(section, "posLimit", posLimit);
  read_int(section, "patchIntCalcPattern", patchIntCalcPattern);
  read_text(section, "rndSeedMake", rndSeedMake);
  read_text(section, "rndSeedSelect", rndSeedSelect);

  const auto levels = static_cast<std::size_t>(std::clamp(nlevels, 0, kMaxLevels));
  read_levels(section, "filter_type", levels, filter_type);
  if (!twintrue::param_is_none(param_child(section, "fastThreshold"))) {
    read_levels(section, "fastThreshold", levels, threshold);
  }
  read_levels(section, "res_th", levels, threshold);

  seedMake = parse_seed(rndSeedMake);
  seedSelect = parse_seed(rndSeedSelect);
}

bool DetectorSettings::usable(std::int32_t frameWidth, std::int32_t frameHeight) const {
  if (nlevels < 1 || nlevels > kMaxLevels) return false;
  if (patchSize < 1 || patchSize > std::min(frameWidth, frameHeight)) return false;
  if (desc_bytes < 1 || desc_bytes > kMaxDescriptorBytes) return false;
  const auto end = filter_type.begin() + nlevels;
  return std::all_of(filter_type.begin(), end, [](std::int32_t number) { return number <= kLastKernel; });
}

}  // namespace fpu
