#include "lens/LensFileWriter.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>
#include <system_error>

#include "lens/LensNumbers.h"

namespace twintrue {
namespace {

namespace fs = std::filesystem;

// The file that a path stands for, links followed. A link to nothing stands for itself.
fs::path target_of(const std::string& path) {
  std::error_code error;
  const fs::path real = fs::canonical(path, error);
  return error ? fs::path(path) : real;
}

fs::path name_beside(const fs::path& target) {
  std::random_device device;
  return target.parent_path() / fmt::format(".twintrue-{:08x}{:08x}.tmp", device(), device());
}

// Makes a file for what is to replace the target, with the rights that the target has or a new file gets.
// Null, with `beside` empty, if the target is to be written itself.
std::FILE* open_beside(const fs::path& target, fs::path& beside) {
  struct stat old {};
  if (!target.has_filename()) return nullptr;
  const bool exists = lstat(target.c_str(), &old) == 0;
  // Replacing a file takes rights on its folder alone: one that is protected itself must stay.
  if (exists && (!S_ISREG(old.st_mode) || access(target.c_str(), W_OK) != 0)) return nullptr;
  fs::path name = name_beside(target);
  const int descriptor = open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
  if (descriptor < 0) return nullptr;
  constexpr mode_t kRights = 0777;
  const bool ready = !exists || fchmod(descriptor, old.st_mode & kRights) == 0;
  std::FILE* const file = ready ? fdopen(descriptor, "w") : nullptr;
  if (file == nullptr) {
    ::close(descriptor);
    unlink(name.c_str());
    return nullptr;
  }
  beside = std::move(name);
  return file;
}

}  // namespace

LensFileWriter::LensFileWriter(const std::string& path)
    : target_(target_of(path)), file_(open_beside(target_, beside_)) {
  if (!file_) file_.reset(std::fopen(path.c_str(), "w"));
}

LensFileWriter::~LensFileWriter() {
  if (!beside_.empty()) unlink(beside_.c_str());
}

void LensFileWriter::close() {
  const bool written = std::fflush(file_.get()) == 0 && std::ferror(file_.get()) == 0;
  // Without this a crash of the machine could leave a name without its bytes. Not every file system has it.
  if (!beside_.empty()) fsync(fileno(file_.get()));
  const bool closed = std::fclose(file_.release()) == 0;
  if (beside_.empty() || !written || !closed) return;
  if (std::rename(beside_.c_str(), target_.c_str()) == 0) beside_.clear();
}

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
