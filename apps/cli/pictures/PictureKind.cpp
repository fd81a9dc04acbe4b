#include "apps/cli/pictures/PictureKind.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <optional>
#include <string_view>

namespace twintrue::cli {
namespace {

using namespace std::string_view_literals;

constexpr std::size_t kHeadBytes = 512;  // holds all that is looked at, but a TIFF's first directory
constexpr std::size_t kBrandBytes = 4;

constexpr const char* kExpected =
    "a picture: JPEG, PNG, TIFF, OpenEXR, DPX, BMP, PPM/PGM, WebP, JPEG 2000, HEIF or AVIF";
constexpr const char* kConvert = "convert it to PNG or TIFF, at full size, and give that";
constexpr const char* kExtract =
    "extract a still first, at full size, and give that: ffmpeg -ss TIME -i MOVIE -frames:v 1 frame.png";
constexpr const char* kDevelop =
    "develop it to TIFF or PNG, at full size and without lens correction, and give that";

struct Taken {
  std::string_view mark;  // what the file begins with
  PictureKind kind;
};

constexpr PictureKind kTiff{"TIFF", "tiff"};
constexpr PictureKind kHeif{"HEIF or AVIF", "heif"};
constexpr std::array kTaken{
    Taken{"\xff\xd8\xff"sv, {"JPEG", "jpeg"}},
    Taken{"\x89PNG\r\n\x1a\n"sv, {"PNG", "png"}},
    Taken{"II*\0"sv, kTiff},
    Taken{"MM\0*"sv, kTiff},
    Taken{"II+\0"sv, kTiff},  // of more than 4 GiB
    Taken{"MM\0+"sv, kTiff},
    Taken{"v/1\x01"sv, {"OpenEXR", "openexr"}},
    Taken{"SDPX"sv, {"DPX", "dpx"}},
    Taken{"XPDS"sv, {"DPX", "dpx"}},
    Taken{"\0\0\0\x0cjP  \r\n\x87\n"sv, {"JPEG 2000", "jpeg2000"}},
    Taken{"\xff\x4f\xff\x51"sv, {"JPEG 2000", "jpeg2000"}},  // without the box around it
};

struct Refused {
  std::size_t offset;
  std::string_view mark;
  const char* found;
  const char* remedy;
};

constexpr std::array kRefused{
    Refused{8, "AVI "sv, "a movie (AVI)", kExtract},
    Refused{0, "\x1a\x45\xdf\xa3"sv, "a movie (Matroska or WebM)", kExtract},
    Refused{0, "\x06\x0e\x2b\x34\x02\x05\x01\x01"sv, "a movie (MXF)", kExtract},
    Refused{0, "\0\0\x01\xba"sv, "a movie (MPEG)", kExtract},
    Refused{4, "moov"sv, "a movie (QuickTime)", kExtract},
    Refused{4, "mdat"sv, "a movie (QuickTime)", kExtract},
    Refused{4, "wide"sv, "a movie (QuickTime)", kExtract},
    Refused{4, "free"sv, "a movie (QuickTime)", kExtract},
    Refused{4, "ftypcrx "sv, "a camera's raw file", kDevelop},
    Refused{4, "ftyp"sv, "a movie (MP4 or QuickTime)", kExtract},
    Refused{0, "FUJIFILMCCD-RAW"sv, "a camera's raw file", kDevelop},
    Refused{0, "IIRO"sv, "a camera's raw file", kDevelop},
    Refused{0, "IIU\0"sv, "a camera's raw file", kDevelop},
    Refused{0, "GIF8"sv, "a GIF picture", kConvert},
    Refused{0, "8BPS"sv, "a Photoshop file", kConvert},
    Refused{0, "#?RADIANCE"sv, "a Radiance HDR picture", kConvert},
    Refused{0, "\xff\x0a"sv, "a JPEG XL picture", kConvert},
    Refused{0, "\0\0\0\x0cJXL "sv, "a JPEG XL picture", kConvert},
    Refused{0, "%PDF"sv, "a PDF document", kConvert},
};

bool stands_at(std::string_view head, std::size_t offset, std::string_view mark) {
  return head.size() >= offset && head.substr(offset).starts_with(mark);
}

bool is_one_of(std::string_view word, std::initializer_list<std::string_view> known) {
  return std::find(known.begin(), known.end(), word) != known.end();
}

// "BM" alone begins many a text: the length of the second header tells.
bool is_bmp(std::string_view head) {
  constexpr std::size_t kSecondHeader = 14;
  if (!head.starts_with("BM") || head.size() < kSecondHeader + 4) return false;
  return head.substr(kSecondHeader + 1, 3) == "\0\0\0"sv &&
         is_one_of(head.substr(kSecondHeader, 1),
                   {"\x0c"sv, "\x28"sv, "\x34"sv, "\x38"sv, "\x40"sv, "\x6c"sv, "\x7c"sv});
}

bool is_pnm(std::string_view head) {
  return head.size() > 2 && is_one_of(head.substr(0, 2), {"P2", "P3", "P5", "P6"}) &&
         (std::isspace(static_cast<unsigned char>(head[2])) != 0 || head[2] == '#');
}

// Pictures and movies share one kind of file; its brands tell, the first one above all.
bool is_heif(std::string_view head) {
  if (!stands_at(head, 4, "ftyp")) return false;
  const std::string_view brands = head.substr(0, static_cast<unsigned char>(head[3]));
  const auto brand = [&](std::size_t offset) {
    return brands.size() > offset ? brands.substr(offset, kBrandBytes) : "";
  };
  if (is_one_of(brand(8), {"heic", "heix", "heim", "heis", "hevc", "hevx", "mif1", "msf1", "avif", "avis"}))
    return true;
  // Behind the first brand and its version stand those that a reader may go by as well.
  for (std::size_t offset = 16; offset < brands.size(); offset += kBrandBytes) {
    if (is_one_of(brand(offset), {"heic", "avif", "mif1"})) return brand(8) != "qt  " && brand(8) != "crx ";
  }
  return false;
}

// Packets of 188 bytes that all begin with one letter.
bool is_transport_stream(std::string_view head) {
  constexpr std::size_t kPacket = 188;
  return head.size() > 2 * kPacket && head[0] == 'G' && head[kPacket] == 'G' && head[2 * kPacket] == 'G';
}

// Reads whole numbers of a TIFF's byte order.
class TiffNumbers {
 public:
  TiffNumbers(std::istream& file, bool little_endian) : file_(file), little_endian_(little_endian) {}

  // 0 behind the end of the file.
  std::uint32_t next(int bytes) {
    std::uint32_t value = 0;
    for (int i = 0; i < bytes; ++i) {
      const int byte = file_.get();
      if (byte == std::char_traits<char>::eof()) return 0;
      value |= static_cast<std::uint32_t>(byte) << 8 * (little_endian_ ? i : bytes - 1 - i);
    }
    return value;
  }

 private:
  std::istream& file_;
  bool little_endian_;
};

// Raw files of cameras are TIFFs whose first picture is a small copy for viewers. It must not pass for the
// frame.
bool is_raw_tiff(std::istream& file, std::string_view head) {
  constexpr std::uint32_t kSubfileType = 254;
  constexpr std::uint32_t kDngVersion = 50706;
  if (stands_at(head, 8, "CR")) return true;
  TiffNumbers numbers(file, head.starts_with("II"));
  file.clear();
  file.seekg(4);
  file.seekg(numbers.next(4));
  const std::uint32_t entries = numbers.next(2);
  for (std::uint32_t i = 0; i < entries && file; ++i) {
    const std::uint32_t tag = numbers.next(2);
    numbers.next(2);  // the type: both tags have but one
    numbers.next(4);  // and so the count
    const std::uint32_t value = numbers.next(4);
    if (tag == kDngVersion || (tag == kSubfileType && (value & 1) != 0)) return true;
  }
  return false;
}

// The first bytes as a person may recognise them.
std::string quoted(std::string_view head) {
  constexpr std::size_t kShown = 8;
  std::string text;
  for (const char c : head.substr(0, kShown)) {
    const auto byte = static_cast<unsigned char>(c);
    text += byte >= 0x20 && byte < 0x7f ? std::string(1, c) : fmt::format("\\x{:02x}", byte);
  }
  return text;
}

std::optional<PictureKind> taken_kind(std::string_view head) {
  for (const Taken& each : kTaken) {
    if (head.starts_with(each.mark)) return each.kind;
  }
  if (is_bmp(head)) return PictureKind{"BMP", "bmp"};
  if (is_pnm(head)) return PictureKind{"PPM or PGM", "pnm"};
  if (head.starts_with("RIFF") && stands_at(head, 8, "WEBP")) return PictureKind{"WebP", "webp"};
  if (is_heif(head)) return kHeif;
  return std::nullopt;
}

}  // namespace

std::variant<PictureKind, PictureProblem> recognise_picture(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string head(kHeadBytes, '\0');
  file.read(head.data(), static_cast<std::streamsize>(head.size()));
  head.resize(static_cast<std::size_t>(file.gcount()));

  if (const auto kind = taken_kind(head)) {
    if (kind->reader != kTiff.reader || !is_raw_tiff(file, head)) return *kind;
    return PictureProblem{"a camera's raw file, whose first picture is a small copy", kExpected, kDevelop};
  }
  for (const Refused& each : kRefused) {
    if (stands_at(head, each.offset, each.mark)) return PictureProblem{each.found, kExpected, each.remedy};
  }
  if (is_transport_stream(head)) return PictureProblem{"a movie (MPEG)", kExpected, kExtract};
  return PictureProblem{
      fmt::format("no picture of a known format; the file begins with \"{}\"", quoted(head)), kExpected,
      "check that the file is a picture, or convert it to PNG"};
}

}  // namespace twintrue::cli
