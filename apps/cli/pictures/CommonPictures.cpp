#include "apps/cli/pictures/CommonPictures.h"

#include <spng.h>
#include <turbojpeg.h>

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <memory>
#include <new>
#include <string_view>
#include <system_error>
#include <vector>

#include "apps/cli/pictures/PictureCount.h"

namespace twintrue::cli {
namespace {

constexpr std::string_view kJpegSignature = "\xff\xd8\xff";
constexpr std::string_view kPngSignature = "\x89PNG\r\n\x1a\n";
constexpr std::uintmax_t kLargestFile = std::uintmax_t{1} << 30;  // a longer one is no frame of these formats

// Empty: no file that can be read whole, or none that begins as one of the two formats.
std::string common_file(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = std::filesystem::file_size(path, error);
  if (error || size > kLargestFile || size < kPngSignature.size()) return {};
  std::ifstream file(path, std::ios::binary);
  std::string bytes(kPngSignature.size(), '\0');
  if (!file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) return {};
  if (!bytes.starts_with(kJpegSignature) && bytes != kPngSignature) return {};
  const std::size_t begun = bytes.size();
  bytes.resize(size);
  if (!file.read(bytes.data() + begun, static_cast<std::streamsize>(size - begun))) return {};
  return bytes;
}

// A frame of that size with all samples 0; nothing if it is one that the helper refuses.
std::optional<Frame> blank_frame(std::int64_t width, std::int64_t height) {
  if (!is_picture_size(width, height)) return std::nullopt;
  Frame frame;
  frame.width = static_cast<std::uint32_t>(width);
  frame.height = static_cast<std::uint32_t>(height);
  frame.pixels.resize(static_cast<std::size_t>(width * height * 3));
  return frame;
}

std::optional<Frame> read_jpeg(const std::string& file) {
  const std::unique_ptr<void, int (*)(tjhandle)> decoder(tjInitDecompress(), &tjDestroy);
  if (!decoder) throw std::bad_alloc();
  const auto* const bytes = reinterpret_cast<const unsigned char*>(file.data());
  int width = 0;
  int height = 0;
  int subsampling = 0;
  int colours = 0;
  if (tjDecompressHeader3(decoder.get(), bytes, file.size(), &width, &height, &subsampling, &colours) != 0) {
    return std::nullopt;
  }
  // Of inks, colours are a matter of taste: the helper has one.
  if (colours == TJCS_CMYK || colours == TJCS_YCCK) return std::nullopt;
  std::optional<Frame> frame = blank_frame(width, height);
  if (!frame) return std::nullopt;
  // A warning is of damage, and a failure as well.
  if (tjDecompress2(decoder.get(), bytes, file.size(), frame->pixels.data(), width, 0, height, TJPF_RGB,
                    TJFLAG_STOPONWARNING) != 0) {
    return std::nullopt;
  }
  frame->pictures = jpeg_picture_count(file);
  return frame;
}

std::optional<Frame> read_png(const std::string& file) {
  const std::unique_ptr<spng_ctx, void (*)(spng_ctx*)> decoder(spng_ctx_new(0), &spng_ctx_free);
  if (!decoder) throw std::bad_alloc();
  spng_ihdr header{};
  if (spng_set_png_buffer(decoder.get(), file.data(), file.size()) != 0 ||
      spng_set_image_limits(decoder.get(), kLargestPictureSide, kLargestPictureSide) != 0 ||
      spng_get_ihdr(decoder.get(), &header) != 0 || header.bit_depth != 8 ||
      header.color_type == SPNG_COLOR_TYPE_INDEXED) {
    return std::nullopt;
  }
  std::optional<Frame> frame = blank_frame(header.width, header.height);
  if (!frame) return std::nullopt;
  // No flags: samples as they are stored, neither darkened by alpha nor moved to another curve.
  if (spng_decode_image(decoder.get(), frame->pixels.data(), frame->pixels.size(), SPNG_FMT_RGB8, 0) != 0) {
    return std::nullopt;
  }
  // A file that was cut behind its samples shows here.
  if (spng_decode_chunks(decoder.get()) != 0) return std::nullopt;
  frame->pictures = png_picture_count(file);
  return frame;
}

}  // namespace

std::optional<Frame> read_common_picture(const std::string& path) {
  const std::string file = common_file(path);
  if (file.empty()) return std::nullopt;
  return file.starts_with(kJpegSignature) ? read_jpeg(file) : read_png(file);
}

}  // namespace twintrue::cli
