#include "lens/LensTextWriter.h"

#include <fmt/format.h>

#include "lens/LensNumbers.h"

namespace twintrue {
namespace {

constexpr int kDigits = 10;  // behind the point

}  // namespace

void LensTextWriter::write_section(const std::string& name) { text_ += fmt::format("[{}]\n", name); }

void LensTextWriter::write(const char* key, std::int32_t value) {
  text_ += fmt::format("{} = {};\n", key, value);
}

void LensTextWriter::write(const char* key, double value) {
  text_ += fmt::format("{} = {};\n", key, double_to_text(value, kDigits));
}

void LensTextWriter::write(const char* key, const std::string& text) {
  text_ += fmt::format("{} = \"{}\";\n", key, text);
}

}  // namespace twintrue
