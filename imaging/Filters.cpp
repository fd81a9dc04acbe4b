#include "imaging/Filters.h"

#include <functional>

#include "imaging/BandFilter.h"
#include "imaging/TapSums.h"

namespace cve {
namespace {

constexpr int kMaxTaps = 11;

// One low-pass kernel as it is given: half of it, centre first, before its sum is brought to 1.
struct KernelRow {
  int taps;
  std::array<float, kMaxTaps> coefficients;
};

constexpr std::array<KernelRow, kKernelCount> kKernelTable = {{
    {6,
     {0.999979973f, 1.90889132e-05f, -1.65361052e-05f, 1.28471929e-05f, -8.75280693e-06f,
      5.0638937e-06f}},                                                                               // 0
    {5, {0.666660011f, 0.263109922f, -0.113957658f, -4.28239764e-06f, 0.0301619321f}},                // 1
    {5, {0.600000024f, 0.288940012f, -0.0773467496f, -0.0400613695f, 0.0331217945f}},                 // 2
    {5, {0.5f, 0.303809494f, 1.61151459e-17f, -0.0681564733f, -8.52998657e-18f}},                     // 3
    {5, {0.400000006f, 0.288940012f, 0.0773467496f, -0.0400613695f, -0.0331217945f}},                 // 4
    {6, {0.319999993f, 0.256514847f, 0.119066328f, 0.00854227133f, -0.0268341359f, -0.0153299607f}},  // 5
    {8,
     {0.200000003f, 0.178574741f, 0.125149667f, 0.0648206547f, 0.0204703938f, 1.97399291e-18f,
      -0.00391515717f, -0.00345977931f}},                                                         // 6
    {5, {0.166659996f, 0.151899233f, 0.113957658f, 0.0681564733f, 0.0301619321f}},                // 7
    {6, {0.100000001f, 0.0938823f, 0.0773467496f, 0.0551397465f, 0.0331217945f, 0.0161188748f}},  // 8
    {8,
     {0.800000012f, 0.178574741f, -0.125149667f, 0.0648206547f, -0.0204703938f, -7.89597165e-18f,
      0.00391515717f, -0.00345977931f}},  // 9
    {8,
     {0.899999976f, 0.0938823f, -0.0773467496f, 0.0551397465f, -0.0331217945f, 0.0161188748f, -0.00633485755f,
      0.00294306409f}},  // 10
    {11,
     {0.200000003f, 0.182885543f, 0.138067573f, 0.0817757547f, 0.0319071002f, 4.21002548e-18f, -0.0124062151f,
      -0.0116602685f, -0.00635175081f, -0.00213112775f, -6.23707468e-19f}},  // 11
    {11,
     {0.400000006f, 0.295915008f, 0.085330449f, -0.0505401976f, -0.0516267717f, -8.42005095e-18f,
      0.0200736783f, 0.0072064423f, -0.00392559776f, -0.0034482372f, -1.24741494e-18f}},  // 12
    {7,
     {0.132981002f, 0.125793993f, 0.106482998f, 0.0806569979f, 0.0546699986f, 0.0331589989f,
      0.0179970004f}},                                                             // 13
    {5, {0.204163685f, 0.180173829f, 0.12383154f, 0.0662822425f, 0.0276305508f}},  // 14
    {5, {0.214163691f, 0.19017382f, 0.133831531f, 0.0762822479f, 0.0376305506f}},  // 15
    {3, {0.398941994f, 0.241971001f, 0.0539910011f}},                              // 16
    {3, {0.448942006f, 0.291970998f, 0.103991002f}},                               // 17
    {8,
     {0.200000003f, 0.172198057f, 0.108066261f, 0.0463362597f, 0.0110697392f, 7.05206007e-19f,
      -0.000604786037f, 6.00176041e-19f}},                              // 18
    {2, {0.5f, 0.25f}},                                                 // 19
    {3, {0.375f, 0.25f, 0.0625f}},                                      // 20
    {4, {0.28125f, 0.21875f, 0.109375f, 0.03125f}},                     // 21
    {5, {0.234375f, 0.19921875f, 0.1171875f, 0.05078125f, 0.015625f}},  // 22
    {11,
     {0.0997355729f, 0.096667029f, 0.0880163312f, 0.0752843544f, 0.0604926795f, 0.0456622727f, 0.0323794f,
      0.0215693302f, 0.0134977419f, 0.00793491304f, 0.00438207481f}},  // 23
}};

const KernelRow& kernel_row(int number) {
  if (number < 0 || number >= kKernelCount) throw std::invalid_argument("no filter kernel has this number");
  return kKernelTable[static_cast<std::size_t>(number)];
}

float sum_of_weights(const KernelRow& row) {
  float sum = row.coefficients[0];
  for (std::size_t i = 1; i < static_cast<std::size_t>(row.taps); ++i) sum += 2 * row.coefficients[i];
  return sum;
}

// The pixels round one output pixel or row, by distance.
template <typename T>
class Taps {
 public:
  const T*& operator[](int distance) { return pointers_[static_cast<std::size_t>(kMaxRadius + distance)]; }
  const T* const* middle() const { return pointers_.data() + kMaxRadius; }

 private:
  std::array<const T*, 2 * kMaxRadius + 1> pointers_;
};

// How a kernel makes `count` pixels from its taps.
void make_pixels(const TapSums& sums, const FilterKernel& kernel, const Taps<float>& taps, float* out,
                 int count) {
  if (kernel.symmetric) {
    sums.symmetric(kernel.coefficients.data(), kernel.radius, taps.middle(), out, count);
  } else {
    sums.general(kernel.centre, kernel.radius, taps.middle(), out, count);
  }
}

void make_pixels(const TapSums& sums, const FixedKernel& kernel, const Taps<short>& taps, short* out,
                 int count) {
  sums.fixed(kernel.coefficients.data(), kernel.radius, taps.middle(), out, count);
}

template <class Kernel, typename T>
void direct_row(const TapSums& sums, const Kernel& kernel, const T* source, T* destination, int begin,
                int end) {
  if (begin >= end) return;
  Taps<T> taps;
  for (int d = -kernel.radius; d <= kernel.radius; ++d) taps[d] = source + begin + d;
  make_pixels(sums, kernel, taps, destination + begin, end - begin);
}

template <class Kernel, typename T>
void clamped_row(const TapSums& sums, const Kernel& kernel, const T* source, T* destination, int cols,
                 int begin, int end) {
  for (int x = begin; x < end; ++x) {
    Taps<T> taps;
    for (int d = -kernel.radius; d <= kernel.radius; ++d) taps[d] = source + std::clamp(x + d, 0, cols - 1);
    make_pixels(sums, kernel, taps, destination + x, 1);
  }
}

template <class Kernel, typename T>
void rows_with_borders(const Kernel& kernel, const XMat_<T>& source, XMat_<T>& destination) {
  const TapSums sums = tap_sums(twintrue::best_instruction_set());
  const int cols = source.cols;
  const int left = std::min<int>(kernel.radius, cols);
  const int right = std::max<int>(cols - kernel.radius, left);
  twintrue::parallel_rows(0, source.rows, [&](int y) {
    const T* from = source.row(y);
    T* to = destination.row(y);
    clamped_row(sums, kernel, from, to, cols, 0, left);
    direct_row(sums, kernel, from, to, left, right);
    clamped_row(sums, kernel, from, to, cols, right, cols);
  });
}

template <class Kernel, typename T>
void columns_with_borders(const Kernel& kernel, const XMat_<T>& source, XMat_<T>& destination) {
  const TapSums sums = tap_sums(twintrue::best_instruction_set());
  const int rows = source.rows;
  const int top = std::min<int>(kernel.radius, rows);
  const int bottom = std::max<int>(rows - kernel.radius, top);
  const auto make_row = [&](int y) {
    Taps<T> taps;
    for (int d = -kernel.radius; d <= kernel.radius; ++d)
      taps[d] = source.row(std::clamp(y + d, 0, rows - 1));
    make_pixels(sums, kernel, taps, destination.row(y), source.cols);
  };
  for (int y = 0; y < top; ++y) make_row(y);
  twintrue::parallel_rows(top, bottom, make_row);
  for (int y = bottom; y < rows; ++y) make_row(y);
}

void check_kernel(const FilterKernel& kernel) {
  const std::ptrdiff_t size = std::ssize(kernel.coefficients);
  const std::ptrdiff_t centre = kernel.symmetric ? 0 : kernel.centre - kernel.coefficients.data();
  const std::ptrdiff_t before = kernel.symmetric ? 0 : kernel.radius;
  if (kernel.radius < 0 || centre < before || centre + kernel.radius >= size) {
    throw std::invalid_argument("a filter kernel reaches beyond its coefficients");
  }
}

// The destination of a filter: made if empty, else of the same size.
void provide(const XMat_<float>& source, XMat_<float>& destination) {
  if (destination.empty()) destination.create(source.rows, source.cols);
  if (destination.rows != source.rows || destination.cols != source.cols) {
    throw std::invalid_argument("the images of a filter differ in size");
  }
}

// Whether a row of one image may share memory with what the filter reads of the other.
bool may_overlap(const XMat_<float>& source, const XMat_<float>& destination, int radius) {
  if (source.rows <= 0 || source.cols <= 0) return false;
  const std::less<const float*> before;
  const float* source_end = source.row(source.rows - 1) + source.cols + radius;
  const float* destination_end = destination.row(destination.rows - 1) + destination.cols;
  return before(source.row(0) - radius, destination_end) && before(destination.row(0), source_end);
}

bool passes_through(const XMat& source, int number) {
  return number < 0 || source.rows < kMinFilteredSize || source.cols < kMinFilteredSize || source.empty();
}

void clamp_to_unit(const XMat_<float>& source, XMat_<float>& destination) {
  twintrue::parallel_rows(0, source.rows, [&](int y) {
    const float* from = source.row(y);
    std::transform(from, from + source.cols, destination.row(y),
                   [](float value) { return std::clamp(value, 0.0f, 1.0f); });
  });
}

}  // namespace

int kernel_radius(int number) { return number < 0 ? 0 : kernel_row(number).taps - 1; }

FilterKernel make_float_kernel(int number) {
  const KernelRow& row = kernel_row(number);
  const float sum = sum_of_weights(row);
  FilterKernel kernel;
  kernel.radius = row.taps - 1;
  for (std::size_t i = 0; i < static_cast<std::size_t>(row.taps); ++i) {
    kernel.coefficients[i] = row.coefficients[i] * (1.0f / sum);
  }
  return kernel;
}

FixedKernel make_fixed_kernel(int number) {
  const KernelRow& row = kernel_row(number);
  constexpr float kOne = 1 << kFixedBits;
  const float sum = sum_of_weights(row);
  FixedKernel kernel;
  kernel.radius = row.taps - 1;
  for (std::size_t i = 0; i < static_cast<std::size_t>(row.taps); ++i) {
    kernel.coefficients[i] = static_cast<std::int32_t>((row.coefficients[i] * kOne) * (1.0f / sum));
  }
  return kernel;
}

void filterFloat(const XMat_<float>& source, XMat_<float>& destination, int number, bool clampToUnit,
                 bool borders, twintrue::InstructionSet set) {
  if (passes_through(source, number)) {
    destination = source;
    return;
  }
  const FilterKernel kernel = make_float_kernel(number);
  provide(source, destination);
  if (source.data != destination.data) {
    convolveFloat(kernel, source, destination, borders, set);
    if (clampToUnit) clamp_to_unit(destination, destination);
  } else if (clampToUnit) {
    XMat_<float> filtered;
    convolveFloat(kernel, source, filtered, borders, set);
    clamp_to_unit(filtered, destination);
  }
}

XMat_<float> filterFloatImage(const XMat_<float>& source, int number) {
  XMat_<float> filtered;
  filterFloat(source, filtered, number, false, true);
  return filtered;
}

void filterFixed(const XMat_<short>& source, XMat_<short>& destination, int number) {
  if (passes_through(source, number)) {
    destination = source;
    return;
  }
  const FixedKernel kernel = make_fixed_kernel(number);
  if (source.data == destination.data) return;
  XMat_<short> rows;
  rows.create(source.rows, source.cols);
  rows_with_borders(kernel, source, rows);
  destination.create(source.rows, source.cols);
  columns_with_borders(kernel, rows, destination);
}

void convolveFloat(const FilterKernel& kernel, const XMat_<float>& source, XMat_<float>& destination,
                   bool borders, twintrue::InstructionSet set) {
  check_kernel(kernel);
  if (source.empty()) return;
  provide(source, destination);
  if (may_overlap(source, destination, kernel.radius)) {
    XMat_<float> apart;
    convolveFloat(kernel, source, apart, borders, set);
    twintrue::parallel_rows(0, source.rows,
                            [&](int y) { std::copy_n(apart.row(y), apart.cols, destination.row(y)); });
    return;
  }
  parallel_bands(source.rows, [&](int begin, int end) {
    BandFilter filter(kernel, source.cols, source.rows, borders, set);
    for (int y = begin; y < end; ++y) {
      filter.make_row(
          y, [&](int row) { return source.row(row); }, destination.row(y));
    }
  });
}

void convolveRows(const FilterKernel& kernel, const XMat_<float>& source, XMat_<float>& destination,
                  bool borders, int marginRows, int marginColumns) {
  check_kernel(kernel);
  if (borders) {
    rows_with_borders(kernel, source, destination);
    return;
  }
  const TapSums sums = tap_sums(twintrue::best_instruction_set());
  twintrue::parallel_rows(-marginRows, source.rows + marginRows, [&](int y) {
    direct_row(sums, kernel, source.row(y), destination.row(y), -marginColumns, source.cols + marginColumns);
  });
}

void convolveColumns(const FilterKernel& kernel, const XMat_<float>& source, XMat_<float>& destination,
                     bool borders, int marginRows, int marginColumns) {
  check_kernel(kernel);
  if (borders) {
    columns_with_borders(kernel, source, destination);
    return;
  }
  const TapSums sums = tap_sums(twintrue::best_instruction_set());
  twintrue::parallel_rows(-marginRows, source.rows + marginRows, [&](int y) {
    Taps<float> taps;
    for (int d = -kernel.radius; d <= kernel.radius; ++d) taps[d] = source.row(y + d) - marginColumns;
    make_pixels(sums, kernel, taps, destination.row(y) - marginColumns, source.cols + 2 * marginColumns);
  });
}

}  // namespace cve
