#include "Picture.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <stdexcept>

#include <unistd.h>

#include <OpenImageIO/imageio.h>

namespace twintrue::false_success {

Picture read_picture(const std::string& path) {
  const auto file = OIIO::ImageInput::open(path);
  if (!file) throw std::runtime_error(OIIO::geterror());
  const OIIO::ImageSpec& spec = file->spec();
  Picture picture(spec.width, spec.height);
  if (spec.nchannels < 3 || !file->read_image(0, 0, 0, 3, OIIO::TypeDesc::FLOAT, picture.pixels.data())) {
    throw std::runtime_error("can't read " + path);
  }
  for (Colour& pixel : picture.pixels) {
    for (float& value : pixel) value *= 255.0f;
  }
  return picture;
}

namespace {

void write(const Picture& picture, const std::string& path, const std::string& coding) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(3 * picture.pixels.size());
  for (const Colour& pixel : picture.pixels) {
    for (const float value : pixel) {
      bytes.push_back(static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L)));
    }
  }
  const auto file = OIIO::ImageOutput::create(path);
  OIIO::ImageSpec spec(picture.width, picture.height, 3, OIIO::TypeDesc::UINT8);
  spec.attribute("png:compressionLevel", 1);
  if (!coding.empty()) spec.attribute("Compression", coding);
  if (!file || !file->open(path, spec) || !file->write_image(OIIO::TypeDesc::UINT8, bytes.data()) ||
      !file->close()) {
    throw std::runtime_error("can't write " + path);
  }
}

}  // namespace

void write_picture(const Picture& picture, const std::string& path) { write(picture, path, ""); }

Picture jpeg_coded(const Picture& picture, int quality) {
  const std::string path = temporary_path(".jpg");
  write(picture, path, "jpeg:" + std::to_string(quality));
  Picture coded = read_picture(path);
  std::filesystem::remove(path);
  return coded;
}

std::string temporary_path(const std::string& suffix) {
  static std::atomic<int> count{0};
  const std::string name =
      "false_success." + std::to_string(getpid()) + "." + std::to_string(count++) + suffix;
  return (std::filesystem::temp_directory_path() / name).string();
}

Colour sample(const Picture& picture, double x, double y, int x_begin, int x_end) {
  const int x0 = static_cast<int>(std::floor(x));
  const int y0 = static_cast<int>(std::floor(y));
  const auto weights = [](double t) {
    return std::array<double, 4>{((2.0 - t) * t - 1.0) * t / 2.0, ((3.0 * t - 5.0) * t * t + 2.0) / 2.0,
                                 ((4.0 - 3.0 * t) * t + 1.0) * t / 2.0, (t - 1.0) * t * t / 2.0};
  };
  const auto wx = weights(x - x0);
  const auto wy = weights(y - y0);
  std::array<double, 3> sum{};
  for (int j = 0; j < 4; ++j) {
    for (int i = 0; i < 4; ++i) {
      const int px = x0 - 1 + i;
      const int py = y0 - 1 + j;
      if (px < x_begin || px >= x_end || py < 0 || py >= picture.height) continue;
      const double weight = wx[static_cast<std::size_t>(i)] * wy[static_cast<std::size_t>(j)];
      for (std::size_t c = 0; c < 3; ++c) sum[c] += weight * static_cast<double>(picture.at(px, py)[c]);
    }
  }
  return {static_cast<float>(sum[0]), static_cast<float>(sum[1]), static_cast<float>(sum[2])};
}

Picture halved(const Picture& picture) {
  Picture small(picture.width / 2, picture.height / 2);
  for (int y = 0; y < small.height; ++y) {
    for (int x = 0; x < small.width; ++x) {
      for (int j = -1; j <= 1; ++j) {
        for (int i = -1; i <= 1; ++i) {
          const Colour& from = picture.at(std::clamp(2 * x + i, 0, picture.width - 1),
                                          std::clamp(2 * y + j, 0, picture.height - 1));
          const float weight = static_cast<float>((2 - std::abs(i)) * (2 - std::abs(j))) / 16.0f;
          for (std::size_t c = 0; c < 3; ++c) small.at(x, y)[c] += weight * from[c];
        }
      }
    }
  }
  return small;
}

void blur(Picture& picture, int x_begin, int x_end, double sigma) {
  const int reach = static_cast<int>(std::ceil(3.0 * sigma));
  std::vector<float> kernel;
  float sum = 0.0f;
  for (int i = -reach; i <= reach; ++i) {
    kernel.push_back(static_cast<float>(std::exp(-0.5 * i * i / (sigma * sigma))));
    sum += kernel.back();
  }
  for (float& k : kernel) k /= sum;
  for (const bool across : {true, false}) {
    const Picture from = picture;
    for (int y = 0; y < picture.height; ++y) {
      for (int x = x_begin; x < x_end; ++x) {
        Colour mean{};
        for (int i = -reach; i <= reach; ++i) {
          const Colour& pixel = across ? from.at(std::clamp(x + i, x_begin, x_end - 1), y)
                                       : from.at(x, std::clamp(y + i, 0, picture.height - 1));
          for (std::size_t c = 0; c < 3; ++c)
            mean[c] += kernel[static_cast<std::size_t>(i + reach)] * pixel[c];
        }
        picture.at(x, y) = mean;
      }
    }
  }
}

}  // namespace twintrue::false_success
