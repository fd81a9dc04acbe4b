#include "features/LevelImages.h"

#include "imaging/ToneCurves.h"

namespace fpu {

LevelImages::LevelImages(std::int32_t levels, bool external_)
    : images(static_cast<std::size_t>(levels)),
      fixedImages(static_cast<std::size_t>(levels)),
      external(external_) {}

cve::XMat_<unsigned char> LevelImages::levelImage(std::size_t level) {
  cve::XMat_<unsigned char>& image = images.at(level);
  if (!external && image.empty() && !fixedImages[level].empty()) {
    cve::tone10ToBytes(fixedImages[level], image);
  }
  return image;
}

}  // namespace fpu
