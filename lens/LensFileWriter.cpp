#include "lens/LensFileWriter.h"

#include <fmt/format.h>

#include "lens/LensNumbers.h"

namespace twintrue {

LensFileWriter::LensFileWriter(const std::string& path) : file_(std::fopen(path.c_str(), "w")) {}

void LensFileWriter::write_section(const std::string& name) { write_line(fmt::format("[{}]\n", name)); }

void LensFileWriter::write(const char* key, std::int32_t value) {
  write_line(fmt::format("{} = {};\n", key, value));
}

void LensFileWriter::write(const char* key, double value) {
  write_line(fmt::format("{} = {};\n", key, double_to_text(value, 10)));
}

void LensFileWriter::write(const char* key, const std::string& text) {
  write_line(fmt::format("{} = \"{}\";\n", key, text));
}

void LensFileWriter::write_line(const std::string& line) { std::fputs(line.c_str(), file_.get()); }

}  // namespace twintrue
