#include "base/WholeFile.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <random>
#include <utility>

namespace twintrue {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kRightsOfANewFile = 0666;  // less what the process masks
constexpr mode_t kRights = 0777;

std::error_code system_error(int number = errno) { return {number, std::generic_category()}; }

// Repeats a call of the system that a signal broke off.
template <typename Call>
auto uninterrupted(Call call) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) return result;
  }
}

class Descriptor {
 public:
  Descriptor(const fs::path& path, int flags)
      : number_(uninterrupted([&] { return open(path.c_str(), flags | O_CLOEXEC, kRightsOfANewFile); })) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number_ >= 0) close(number_);
  }
  int number() const { return number_; }
  // The caller closes it.
  int release() { return std::exchange(number_, -1); }

 private:
  int number_;
};

// The system may take less at a time than it is given.
std::error_code write_all(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = uninterrupted([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
    if (count < 0) return system_error();
    if (count == 0) return system_error(EIO);
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return {};
}

// Puts what was written on the disk: without this a crash of the machine could leave a name without its
// bytes. Some files can't be synced; the write is all that can be had of them.
std::error_code sync(int descriptor) {
  if (fsync(descriptor) == 0 || errno == EINVAL || errno == EROFS) return {};
  return system_error();
}

fs::path folder_of(const fs::path& path) {
  return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

// Whether a path stands in the folders of the system's processes.
bool is_of_processes(const fs::path& path) {
  struct statfs system {};
  return statfs(folder_of(path).c_str(), &system) == 0 && system.f_type == PROC_SUPER_MAGIC;
}

fs::path name_beside(const fs::path& target) {
  std::random_device device;
  const std::uint64_t number = (std::uint64_t{device()} << 32) | device();
  std::array<char, 16> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr;
  return folder_of(target) / (".twintrue-" + std::string(digits.data(), end) + ".tmp");
}

// Whether a target can be written, if at all, only where it stands.
bool has_no_room_beside(const std::error_code& error) {
  return error == std::errc::permission_denied || error == std::errc::operation_not_permitted ||
         error == std::errc::read_only_file_system || error == std::errc::filename_too_long ||
         error == std::errc::invalid_argument;
}

std::error_code write_in_place(const fs::path& target, std::string_view bytes) {
  const Descriptor file(target, O_WRONLY | O_CREAT | O_TRUNC);
  if (file.number() < 0) return system_error();
  std::error_code error = write_all(file.number(), bytes);
  if (!error) error = sync(file.number());
  // Half a file could pass for a whole one.
  if (error) [[maybe_unused]]
    const int emptied = ftruncate(file.number(), 0);
  return error;
}

}  // namespace

std::error_code read_whole_file(const fs::path& path, std::size_t largest, std::string& bytes) {
  constexpr std::size_t kChunk = std::size_t{1} << 16;
  bytes.clear();
  const Descriptor file(path, O_RDONLY);
  if (file.number() < 0 || lseek(file.number(), 0, SEEK_CUR) < 0) return system_error();
  for (;;) {
    const std::size_t done = bytes.size();
    bytes.resize(done + kChunk);
    const ssize_t count = uninterrupted([&] { return read(file.number(), bytes.data() + done, kChunk); });
    if (count < 0) return system_error();
    bytes.resize(done + static_cast<std::size_t>(count));
    if (count == 0) return {};
    if (bytes.size() > largest) return std::make_error_code(std::errc::file_too_large);
  }
}

fs::path follow_links(const fs::path& path) {
  constexpr int kMostLinks = 40;  // as many as the system itself follows
  std::error_code error;
  fs::path place = path;
  for (int i = 0; i < kMostLinks && fs::is_symlink(place, error) && !is_of_processes(place); ++i) {
    const fs::path next = fs::read_symlink(place, error);
    if (error) break;
    place = next.is_absolute() ? next : folder_of(place) / next;
  }
  return place;
}

AtomicFile::~AtomicFile() {
  if (!name_.empty() && is_under_its_name()) unlink(name_.c_str());
  if (descriptor_ >= 0) close(descriptor_);
}

std::error_code AtomicFile::create(const fs::path& target) {
  target_ = follow_links(target);
  struct stat old {};
  const bool exists = lstat(target_.c_str(), &old) == 0;
  if (!exists && errno != ENOENT) return system_error();
  if (!target_.has_filename() || (exists && !S_ISREG(old.st_mode))) {
    return std::make_error_code(std::errc::invalid_argument);
  }
  if (exists && access(target_.c_str(), W_OK) != 0) return system_error();
  fs::path name = name_beside(target_);
  Descriptor file(name, O_RDWR | O_CREAT | O_EXCL);
  if (file.number() < 0) return system_error();
  if (exists && fchmod(file.number(), old.st_mode & kRights) != 0) {
    const std::error_code error = system_error();
    unlink(name.c_str());
    return error;
  }
  name_ = std::move(name);
  descriptor_ = file.release();
  return {};
}

std::error_code AtomicFile::write(std::string_view bytes) {
  if (ftruncate(descriptor_, 0) != 0 || lseek(descriptor_, 0, SEEK_SET) != 0) return system_error();
  return write_all(descriptor_, bytes);
}

std::error_code AtomicFile::commit() {
  if (const std::error_code error = sync(descriptor_)) return error;
  if (!is_under_its_name()) return system_error(ESTALE);
  if (std::rename(name_.c_str(), target_.c_str()) != 0) return system_error();
  name_.clear();
  return {};
}

fs::path AtomicFile::path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

bool AtomicFile::is_under_its_name() const {
  struct stat own {
  }, found{};
  return fstat(descriptor_, &own) == 0 && lstat(name_.c_str(), &found) == 0 && own.st_dev == found.st_dev &&
         own.st_ino == found.st_ino;
}

std::error_code write_whole_file(const fs::path& target, std::string_view bytes) {
  AtomicFile file;
  std::error_code error = file.create(target);
  if (error) return has_no_room_beside(error) ? write_in_place(target, bytes) : error;
  error = file.write(bytes);
  return error ? error : file.commit();
}

}  // namespace twintrue
