#include "apps/cli/pictures/PictureCount.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "apps/cli/pictures/Frame.h"

namespace twintrue::cli {
namespace {

using namespace std::string_view_literals;

// Whole numbers at places that may lie behind the end, where 0 is read.
class Numbers {
 public:
  Numbers(std::string_view bytes, bool little_endian) : bytes_(bytes), little_endian_(little_endian) {}

  std::uint32_t at(std::size_t place, int count) const {
    if (place > bytes_.size() || bytes_.size() - place < static_cast<std::size_t>(count)) return 0;
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i) {
      const auto byte = static_cast<unsigned char>(bytes_[place + static_cast<std::size_t>(i)]);
      value |= std::uint32_t{byte} << 8 * (little_endian_ ? i : count - 1 - i);
    }
    return value;
  }

 private:
  std::string_view bytes_;
  bool little_endian_;
};

std::uint32_t bounded(std::uint32_t count) {
  return std::clamp(count, std::uint32_t{1}, kMostPicturesCounted);
}

// The index is laid out as a TIFF's directory.
std::uint32_t count_in_index(std::string_view index) {
  constexpr std::uint32_t kEntriesTag = 0xb002;
  constexpr std::size_t kEntryBytes = 16;
  constexpr std::uint32_t kTypeMask = 0xffffff;
  constexpr std::uint32_t kPrimary = 0x030000;
  constexpr std::uint32_t kMultiFrame = 0x020000;
  const Numbers numbers(index, index.starts_with("II"));
  const std::size_t directory = numbers.at(4, 4);
  const std::uint32_t fields = numbers.at(directory, 2);
  for (std::uint32_t field = 0; field < fields; ++field) {
    const std::size_t place = directory + 2 + std::size_t{field} * 12;
    if (numbers.at(place, 2) != kEntriesTag) continue;
    const std::size_t begin = numbers.at(place + 8, 4);
    const std::size_t end = std::min(begin + numbers.at(place + 4, 4), index.size());
    std::uint32_t count = 0;
    for (std::size_t entry = begin; entry + kEntryBytes <= end; entry += kEntryBytes) {
      const std::uint32_t type = numbers.at(entry, 4) & kTypeMask;
      if (type == kPrimary || (type & 0xff0000) == kMultiFrame) ++count;
    }
    return bounded(count);
  }
  return 1;
}

}  // namespace

std::uint32_t jpeg_picture_count(std::string_view file) {
  constexpr std::uint32_t kScan = 0xffda;
  constexpr std::uint32_t kIndexMarker = 0xffe2;
  constexpr std::string_view kIndexName = "MPF\0"sv;
  const Numbers numbers(file, false);
  // Segments follow one another up to the first scan.
  std::size_t place = 2;
  while (place < file.size()) {
    const std::uint32_t marker = numbers.at(place, 2);
    const std::uint32_t length = numbers.at(place + 2, 2);
    if (marker < 0xff00 || marker == kScan || length < 2) return 1;
    const std::string_view body = file.substr(std::min(place + 4, file.size()), length - 2);
    if (marker == kIndexMarker && body.starts_with(kIndexName))
      return count_in_index(body.substr(kIndexName.size()));
    place += 2 + length;
  }
  return 1;
}

std::uint32_t png_picture_count(std::string_view file) {
  const Numbers numbers(file, false);
  // Chunks of a length, a name, the body and a sum follow the signature.
  std::size_t place = 8;
  while (place + 8 <= file.size()) {
    const std::string_view name = file.substr(place + 4, 4);
    if (name == "acTL") return bounded(numbers.at(place + 8, 4));
    if (name == "IDAT") return 1;
    place += 12 + std::size_t{numbers.at(place, 4)};
  }
  return 1;
}

}  // namespace twintrue::cli
