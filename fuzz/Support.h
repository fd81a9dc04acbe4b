#pragma once

// What the fuzz targets share.

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace fuzzing {

// Ends the process if a property doesn't hold, so that the fuzzer keeps the input.
inline void require(bool holds, const char* property) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", property);
  std::abort();
}

// Takes the input apart from its front. Behind its end there are zeros.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(reinterpret_cast<const char*>(data), size) {}

  template <typename T>
  T take() {
    T value{};
    const std::size_t count = std::min(sizeof value, rest_.size());
    std::memcpy(static_cast<void*>(&value), rest_.data(), count);
    rest_.remove_prefix(count);
    return value;
  }

  // One of 0 to `last`.
  unsigned pick(unsigned last) { return take<std::uint8_t>() % (last + 1); }

  // What stands in front of the next `mark`, which is taken as well; all the rest if there is none.
  std::string_view take_until(char mark) {
    const std::size_t at = std::min(rest_.find(mark), rest_.size());
    const std::string_view part = rest_.substr(0, at);
    rest_.remove_prefix(std::min(at + 1, rest_.size()));
    return part;
  }

  bool empty() const { return rest_.empty(); }
  std::string_view rest() const { return rest_; }

 private:
  std::string_view rest_;
};

// A file in memory, for what is only read by its name.
class MemoryFile {
 public:
  MemoryFile() : descriptor_(memfd_create("twintrue-fuzz", MFD_CLOEXEC)) {
    if (descriptor_ < 0) throw std::runtime_error("no file in memory");
    path_ = "/proc/self/fd/" + std::to_string(descriptor_);
  }
  MemoryFile(const MemoryFile&) = delete;
  MemoryFile& operator=(const MemoryFile&) = delete;
  ~MemoryFile() { close(descriptor_); }

  const std::string& path() const { return path_; }

  // Replaces what the file holds. Returns its path.
  const std::string& write(std::string_view bytes) const {
    require(ftruncate(descriptor_, 0) == 0, "a file in memory can be emptied");
    require(pwrite(descriptor_, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
            "a file in memory takes its bytes");
    return path_;
  }

 private:
  int descriptor_;
  std::string path_;
};

// A second name for a file, with an ending of choice.
class Alias {
 public:
  Alias(const std::string& target, const std::string& ending) {
    std::string pattern = (std::filesystem::temp_directory_path() / "twintrue-fuzz-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no temporary folder");
    folder_ = pattern;
    std::filesystem::create_symlink(target, path_ = (folder_ / ("alias" + ending)).string());
  }
  Alias(const Alias&) = delete;
  Alias& operator=(const Alias&) = delete;
  ~Alias() {
    std::error_code ignored;
    std::filesystem::remove_all(folder_, ignored);
  }
  const std::string& path() const { return path_; }

 private:
  std::filesystem::path folder_;
  std::string path_;
};

}  // namespace fuzzing

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
