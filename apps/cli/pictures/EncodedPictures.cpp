#include "apps/cli/pictures/EncodedPictures.h"

#include <spng.h>
#include <turbojpeg.h>
#include <zlib.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <stdexcept>
#include <string_view>

namespace twintrue::cli {
namespace {

// Rendered pictures are hardly smaller at higher levels, and take several times as long.
constexpr int kPngCompression = 3;

// Fine enough that a fringe of half a pixel in an anaglyph stays what it is.
constexpr int kJpegQuality = 95;

constexpr char kXmpKeyword[] = "XML:com.adobe.xmp";

std::size_t bytes_of(const PictureSamples& picture) {
  return static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height) *
         picture.channels * render::bytes_of(picture.type);
}

void check_png(int error) {
  if (error == SPNG_EMEM) throw std::bad_alloc();
  if (error != 0) throw std::runtime_error(std::string("PNG: ") + spng_strerror(error));
}

// The library keeps no copy: `xmp` has to live as long as the encoder.
void put_xmp(spng_ctx* encoder, const std::string& xmp) {
  static char none[] = "";
  spng_text text{};
  std::copy(std::begin(kXmpKeyword), std::end(kXmpKeyword), text.keyword);
  text.type = SPNG_ITXT;
  text.text = const_cast<char*>(xmp.c_str());
  text.length = xmp.size();
  text.language_tag = none;
  text.translated_keyword = none;
  check_png(spng_set_text(encoder, &text, 1));
}

std::string big_endian(std::uint32_t value) {
  std::string bytes;
  for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(value >> shift & 0xff);
  return bytes;
}

std::string big_endian16(std::uint32_t value) { return big_endian(value).substr(2); }

std::uint32_t number_at(std::string_view bytes, std::size_t place) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(bytes[place + i]);
  return value;
}

// A chunk of a PNG: length, name, data, check sum.
std::string png_chunk(const std::string& name, std::string_view data) {
  std::string chunk = name;
  chunk += data;
  const auto sum = crc32(0, reinterpret_cast<const Bytef*>(chunk.data()), static_cast<uInt>(chunk.size()));
  return big_endian(static_cast<std::uint32_t>(data.size())) + chunk +
         big_endian(static_cast<std::uint32_t>(sum));
}

constexpr std::size_t kPngSignature = 8;
constexpr std::size_t kChunkFrame = 12;  // bytes of a chunk beside its data

// Puts the chunks of a still picture into an animation, whose frames and data count on.
class Animation {
 public:
  Animation(const std::vector<PictureSamples>& pictures, int milliseconds)
      : pictures_(static_cast<std::uint32_t>(pictures.size())), milliseconds_(milliseconds) {}

  void add(const PictureSamples& picture, std::string_view png) {
    bool begun = false;
    for (std::size_t place = kPngSignature; place < png.size();) {
      const std::size_t length = number_at(png, place);
      const std::string_view chunk = png.substr(place, length + kChunkFrame);
      const std::string_view name = chunk.substr(4, 4);
      if (name == "IDAT") {
        if (!begun) begin(picture);
        begun = true;
        add_data(chunk.substr(8, length));
      } else if (first_ && name != "IEND") {
        bytes_ += chunk;
        if (name == "IHDR") bytes_ += png_chunk("acTL", big_endian(pictures_) + big_endian(0));
      }
      place += chunk.size();
    }
    first_ = false;
  }

  std::string finish(std::string_view signature) {
    return std::string(signature) + bytes_ + png_chunk("IEND", "");
  }

 private:
  void begin(const PictureSamples& picture) {
    const std::string size = big_endian(static_cast<std::uint32_t>(picture.width)) +
                             big_endian(static_cast<std::uint32_t>(picture.height));
    const std::string at_the_corner = big_endian(0) + big_endian(0);
    const std::string delay = big_endian16(static_cast<std::uint32_t>(milliseconds_)) + big_endian16(1000);
    const std::string whole_and_plain(2, '\0');  // nothing is cleared, nothing blended
    bytes_ += png_chunk("fcTL", big_endian(sequence_++) + size + at_the_corner + delay + whole_and_plain);
  }

  void add_data(std::string_view data) {
    if (first_) {
      bytes_ += png_chunk("IDAT", data);
    } else {
      bytes_ += png_chunk("fdAT", big_endian(sequence_++) + std::string(data));
    }
  }

  std::uint32_t pictures_;
  int milliseconds_;
  std::uint32_t sequence_ = 0;
  bool first_ = true;
  std::string bytes_;
};

}  // namespace

std::string encode_png(const PictureSamples& picture, const std::string& xmp) {
  const std::unique_ptr<spng_ctx, void (*)(spng_ctx*)> encoder(spng_ctx_new(SPNG_CTX_ENCODER),
                                                               &spng_ctx_free);
  if (!encoder) throw std::bad_alloc();
  check_png(spng_set_option(encoder.get(), SPNG_ENCODE_TO_BUFFER, 1));
  check_png(spng_set_option(encoder.get(), SPNG_IMG_COMPRESSION_LEVEL, kPngCompression));
  spng_ihdr header{};
  header.width = static_cast<std::uint32_t>(picture.width);
  header.height = static_cast<std::uint32_t>(picture.height);
  header.bit_depth = static_cast<std::uint8_t>(8 * render::bytes_of(picture.type));
  header.color_type = SPNG_COLOR_TYPE_TRUECOLOR;
  check_png(spng_set_ihdr(encoder.get(), &header));
  if (!xmp.empty()) put_xmp(encoder.get(), xmp);
  check_png(spng_encode_image(encoder.get(), picture.samples, bytes_of(picture), SPNG_FMT_PNG,
                              SPNG_ENCODE_FINALIZE));
  std::size_t size = 0;
  int error = 0;
  const std::unique_ptr<void, void (*)(void*)> bytes(spng_get_png_buffer(encoder.get(), &size, &error),
                                                     &std::free);
  check_png(error);
  return {static_cast<const char*>(bytes.get()), size};
}

std::string encode_animation(const std::vector<PictureSamples>& pictures, int milliseconds,
                             const std::string& xmp) {
  Animation animation(pictures, milliseconds);
  std::string signature;
  for (const PictureSamples& picture : pictures) {
    const std::string png = encode_png(picture, xmp);
    signature = png.substr(0, kPngSignature);
    animation.add(picture, png);
  }
  return animation.finish(signature);
}

std::string encode_jpeg(const PictureSamples& picture, const std::string& xmp) {
  const std::unique_ptr<void, int (*)(tjhandle)> encoder(tjInitCompress(), &tjDestroy);
  if (!encoder) throw std::bad_alloc();
  unsigned char* bytes = nullptr;
  unsigned long size = 0;
  const int error =
      tjCompress2(encoder.get(), static_cast<const unsigned char*>(picture.samples), picture.width, 0,
                  picture.height, TJPF_RGB, &bytes, &size, TJSAMP_444, kJpegQuality, TJFLAG_ACCURATEDCT);
  const std::unique_ptr<unsigned char, void (*)(unsigned char*)> owner(bytes, &tjFree);
  if (error != 0) throw std::runtime_error(std::string("JPEG: ") + tjGetErrorStr2(encoder.get()));
  std::string file(reinterpret_cast<const char*>(bytes), size);
  if (xmp.empty()) return file;
  // Behind the first two segments, SOI and JFIF's, which has to be the first of its kind.
  constexpr std::size_t kStart = 2;
  const std::size_t behind_jfif = kStart + 2 + (number_at(file, kStart + 2) >> 16);
  const std::string content = std::string("http://ns.adobe.com/xap/1.0/") + '\0' + xmp;
  return file.insert(behind_jfif,
                     "\xff\xe1" + big_endian16(static_cast<std::uint32_t>(content.size() + 2)) + content);
}

}  // namespace twintrue::cli
