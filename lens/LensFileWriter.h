#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace twintrue {

// Writes lines of a lens file that the language reads back: no exponents, a blank on either side of the `=`.
class LensFileWriter {
 public:
  // Replaces an old file of that name.
  explicit LensFileWriter(const std::string& path);

  bool is_open() const { return file_ != nullptr; }

  // The rest needs an open file. Errors of the disk are not reported.
  void write_section(const std::string& name);
  void write(const char* key, std::int32_t value);
  void write(const char* key, double value);  // ten digits behind the point
  void write(const char* key, const std::string& text);

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  void write_line(const std::string& line);

  std::unique_ptr<std::FILE, Closer> file_;
};

}  // namespace twintrue
