#include "imaging/ToneCurves.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <stdexcept>

#include "base/ParallelEach.h"

namespace cve {
namespace {

template <typename From, typename To, class Convert>
void convert_image(const XMat_<From>& source, XMat_<To>& destination, Convert convert) {
  if (source.empty()) return;
  if (destination.empty()) destination.create(source.rows, source.cols);
  if (destination.rows != source.rows || destination.cols != source.cols) {
    throw std::invalid_argument("the images of a conversion differ in size");
  }
  twintrue::parallel_rows(0, source.rows, [&](int y) {
    const From* from = source.row(y);
    std::transform(from, from + source.cols, destination.row(y), convert);
  });
}

// A byte has 256 values, an image many more pixels.
template <typename To>
std::array<To, 256> table_of_bytes(To (*convert)(unsigned char)) {
  std::array<To, 256> table;
  for (std::size_t value = 0; value < table.size(); ++value) {
    table[value] = convert(static_cast<unsigned char>(value));
  }
  return table;
}

}  // namespace

void bytesToLinear(const XMat_<unsigned char>& source, XMat_<float>& destination) {
  const auto table = table_of_bytes(linearFromByte);
  convert_image(source, destination, [&table](unsigned char value) { return table[value]; });
}

void bytesToLinear12(const XMat_<unsigned char>& source, XMat_<short>& destination) {
  const auto table = table_of_bytes(linear12FromByte);
  convert_image(source, destination, [&table](unsigned char value) { return table[value]; });
}

void linearToTone10(const XMat_<float>& source, XMat_<short>& destination, int gamma_mode) {
  convert_image(source, destination,
                [gamma_mode](float value) { return tone10FromLinear(value, gamma_mode); });
}

void tone10ToBytes(const XMat_<short>& source, XMat_<unsigned char>& destination) {
  convert_image(source, destination, byteFromTone10);
}

void linear12ToBytes(const XMat_<short>& source, XMat_<unsigned char>& destination) {
  convert_image(source, destination, byteFromLinear12);
}

}  // namespace cve
