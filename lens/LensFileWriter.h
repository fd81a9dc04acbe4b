#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

namespace twintrue {

// Writes lines of a lens file that the language reads back: no exponents, a blank on either side of the `=`.
//
// The lines go to a file beside the target, which takes the target's place by close(). So whatever happens
// on the way, the target is the whole old file or the whole new one. Where that can't be done (a target that
// is no regular file, a folder that takes no new files) the lines go to the target itself.
class LensFileWriter {
 public:
  // Nothing changes at the target yet, but that a target without a file beside it is emptied.
  explicit LensFileWriter(const std::string& path);
  LensFileWriter(const LensFileWriter&) = delete;
  LensFileWriter& operator=(const LensFileWriter&) = delete;
  // Leaves the old file, unless close() came first.
  ~LensFileWriter();

  bool is_open() const { return file_ != nullptr; }

  // The rest needs an open file.
  void write_section(const std::string& name);
  void write(const char* key, std::int32_t value);
  void write(const char* key, double value);  // ten digits behind the point
  void write(const char* key, const std::string& text);

  // Puts the new file in the old one's place, if the disk has taken it all. An error is not reported.
  void close();

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };
  void write_line(const std::string& line);

  std::filesystem::path target_;
  std::filesystem::path beside_;  // empty: the target itself is written
  std::unique_ptr<std::FILE, Closer> file_;
};

}  // namespace twintrue
