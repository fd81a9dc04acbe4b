// Filters and kernels against their plain forms, bit for bit, at any size and on any numbers.

#include <bit>
#include <cmath>
#include <vector>

#include "Support.h"
#include "apps/TwinTrue/ImageFormatConverter.h"
#include "apps/TwinTrue/LuminanceKernel.h"
#include "base/InstructionSet.h"
#include "imaging/Filters.h"
#include "imaging/TapSums.h"
#include "imaging/XMat.h"
#include "search/SweepKernel.h"

namespace {

using fuzzing::Input;
using fuzzing::require;

template <typename T>
bool same(T a, T b) {
  return std::memcmp(&a, &b, sizeof a) == 0 || (a != a && b != b);
}

template <typename T>
cve::XMat_<T> take_image(Input& input, std::int32_t rows, std::int32_t cols, std::int32_t padding) {
  cve::XMat_<T> image;
  image.create(rows, cols, static_cast<std::int32_t>(sizeof(T)) * (cols + padding));
  for (std::int32_t y = 0; y < rows; ++y) {
    for (std::int32_t x = 0; x < cols; ++x) {
      // Repeats a short input with changes, so that few bytes fill an image.
      const auto bits = input.empty() ? static_cast<std::uint32_t>(y * 7919 + x * 104729)
                                      : input.take<std::uint16_t>() * 65537u;
      if constexpr (sizeof(T) == 4) {
        image.at(y, x) = (bits & 1) ? std::bit_cast<float>(bits) : static_cast<float>(bits % 4096) / 4095.0f;
      } else {
        image.at(y, x) = static_cast<T>(bits);
      }
    }
  }
  return image;
}

// One pass of a symmetric filter, pixel by pixel, edges replicated.
template <typename T, typename Sum, typename Kernel, typename Finish>
cve::XMat_<T> plain_pass(const cve::XMat_<T>& source, const Kernel& kernel, bool along_rows,
                         const Finish& finish) {
  cve::XMat_<T> out;
  out.create(source.rows, source.cols);
  const auto pixel = [&](std::int32_t y, std::int32_t x) {
    return static_cast<Sum>(source.at(std::clamp(y, 0, source.rows - 1), std::clamp(x, 0, source.cols - 1)));
  };
  for (std::int32_t y = 0; y < source.rows; ++y) {
    for (std::int32_t x = 0; x < source.cols; ++x) {
      Sum sum = pixel(y, x) * kernel.coefficients[0];
      for (std::int32_t i = 1; i <= kernel.radius; ++i) {
        const Sum before = along_rows ? pixel(y, x - i) : pixel(y - i, x);
        const Sum after = along_rows ? pixel(y, x + i) : pixel(y + i, x);
        sum += (before + after) * kernel.coefficients[static_cast<std::size_t>(i)];
      }
      out.at(y, x) = finish(sum);
    }
  }
  return out;
}

template <typename T>
void require_same(const cve::XMat_<T>& a, const cve::XMat_<T>& b, const char* property) {
  require(a.rows == b.rows && a.cols == b.cols, property);
  for (std::int32_t y = 0; y < a.rows; ++y) {
    for (std::int32_t x = 0; x < a.cols; ++x) require(same(a.at(y, x), b.at(y, x)), property);
  }
}

void float_filter(Input& input) {
  const auto rows = static_cast<std::int32_t>(input.pick(79)) + 1;
  const auto cols = static_cast<std::int32_t>(input.pick(79)) + 1;
  const auto padding = static_cast<std::int32_t>(input.pick(5));
  const int number = static_cast<int>(input.pick(cve::kKernelCount)) - 1;
  const cve::XMat_<float> image = take_image<float>(input, rows, cols, padding);
  const cve::XMat_<float> filtered = cve::filterFloatImage(image, number);
  if (number < 0 || rows < cve::kMinFilteredSize || cols < cve::kMinFilteredSize) {
    require(filtered.data == image.data, "small images pass through");
    return;
  }
  const cve::FilterKernel kernel = cve::make_float_kernel(number);
  const auto keep = [](float sum) { return sum; };
  const auto half = plain_pass<float, float>(image, kernel, true, keep);
  require_same(filtered, plain_pass<float, float>(half, kernel, false, keep),
               "filterFloatImage is its plain form");
}

void fixed_filter(Input& input) {
  const auto rows = static_cast<std::int32_t>(input.pick(47)) + 32;
  const auto cols = static_cast<std::int32_t>(input.pick(47)) + 32;
  const auto padding = static_cast<std::int32_t>(input.pick(5));
  const int number = static_cast<int>(input.pick(cve::kKernelCount - 1));
  const cve::XMat_<short> image = take_image<short>(input, rows, cols, padding);
  cve::XMat_<short> filtered;
  cve::filterFixed(image, filtered, number);
  const cve::FixedKernel kernel = cve::make_fixed_kernel(number);
  const auto shift = [](std::int32_t sum) { return static_cast<short>(sum >> 12); };
  const auto half = plain_pass<short, std::int32_t>(image, kernel, true, shift);
  require_same(filtered, plain_pass<short, std::int32_t>(half, kernel, false, shift),
               "filterFixed is its plain form");
}

void luminance(Input& input) {
  static const twintrue::LuminanceTable table;
  const bool blue_first = input.pick(1) == 1;
  const std::string bytes(input.rest());
  const std::size_t count = bytes.size() / 3;
  const auto* source = reinterpret_cast<const std::uint8_t*>(bytes.data());
  for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
    std::vector<float> row(count);
    twintrue::luminance_kernel(set)(table, source, count, blue_first, row.data());
    for (std::size_t i = 0; i < count; ++i) {
      const std::uint8_t* pixel = source + 3 * i;
      const float plain =
          twintrue::linear_luminance(pixel[blue_first ? 2 : 0], pixel[1], pixel[blue_first ? 0 : 2]);
      require(same(row[i], plain), "a row of luminances is its plain form");
    }
  }
}

// A number that is mostly ordinary and sometimes any bit pattern.
double take_number(Input& input) {
  const unsigned kind = input.pick(7);
  if (kind == 0) return input.take<double>();
  return input.take<std::int16_t>() / (kind == 1 ? 1.0 : kind < 4 ? 256.0 : 16384.0);
}

void take_eye(Input& input, twintrue::SweepEye& eye) {
  for (double& number : eye.eye_from_rig) number = take_number(input);
  eye.rig_from_eye = eye.eye_from_rig;
  for (double& number : eye.position) number = take_number(input);
  for (double& number : eye.translate) number = take_number(input);
  for (double* number : {&eye.shift_x, &eye.shift_y, &eye.scale, &eye.magnify_v, &eye.magnify_h,
                         &eye.principal_x, &eye.principal_y, &eye.angle_limit, &eye.x_begin, &eye.x_end}) {
    *number = take_number(input);
  }
}

void sweep(Input& input) {
  const std::size_t count = input.pick(twintrue::kSweepBlock - 1) + 1;
  const unsigned form = input.pick(255);
  const twintrue::SweepVariant variant{(form & 1) != 0 ? 1u : 2u, (form & 2) != 0,
                                       static_cast<twintrue::SweepError>(form / 4 % 3)};
  twintrue::SweepPose pose{};
  take_eye(input, pose.left);
  take_eye(input, pose.right);
  for (double& number : pose.coeff) number = take_number(input);
  for (double* number : {&pose.baseline, &pose.depth_low, &pose.depth_high, &pose.half_width, &pose.bias}) {
    *number = take_number(input);
  }
  std::vector<std::vector<double>> columns(10, std::vector<double>(count));
  for (auto& column : columns) {
    for (double& number : column) number = take_number(input);
  }
  const auto at = [&](std::size_t i) { return columns[i].data(); };
  const twintrue::MatchBlock block{{at(0), at(1), at(2)}, {at(3), at(4), at(5)}, at(6), at(7), at(8), at(9)};
  const double factor = -std::abs(take_number(input));

  std::vector<double> first_errors;
  std::vector<double> first_terms;
  for (const twintrue::InstructionSet set : twintrue::supported_instruction_sets()) {
    std::vector<double> errors(count);
    std::vector<double> terms(count);
    twintrue::sweep_errors(set, variant)(pose, block, count, errors.data());
    for (double& error : errors) error = error >= 0.0 ? error : 0.0;
    if (factor <= 0.0) twintrue::sweep_exp(set)(factor, count, errors.data(), terms.data());
    if (first_errors.empty()) {
      first_errors = errors;
      first_terms = terms;
    }
    for (std::size_t i = 0; i < count; ++i) {
      require(same(errors[i], first_errors[i]), "errors of a sweep are the same on every instruction set");
      require(same(terms[i], first_terms[i]), "terms of a sweep are the same on every instruction set");
      const double plain = std::exp(factor * errors[i]);
      require(!(factor <= 0.0) || std::isnan(plain) || std::abs(terms[i] - plain) <= 1e-12,
              "terms of a sweep are exponentials");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  switch (input.pick(3)) {
    case 0:
      float_filter(input);
      break;
    case 1:
      fixed_filter(input);
      break;
    case 2:
      luminance(input);
      break;
    default:
      sweep(input);
  }
  return 0;
}
