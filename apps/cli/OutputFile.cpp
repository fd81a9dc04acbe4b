#include "apps/cli/OutputFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <random>
#include <system_error>
#include <utility>

#include "apps/cli/Problem.h"

namespace twintrue::cli {
namespace fs = std::filesystem;
namespace {

std::string system_text(int error) { return std::generic_category().message(error); }

fs::path folder_of(const fs::path& path) {
  return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

// Follows symbolic links of the last name, dangling ones included, so that the rename replaces the file and
// not the link.
fs::path follow_links(fs::path path) {
  constexpr int kMostLinks = 40;  // as many as the system itself follows
  std::error_code error;
  for (int i = 0; i < kMostLinks && fs::is_symlink(path, error); ++i) {
    const fs::path next = fs::read_symlink(path, error);
    if (error) break;
    path = next.is_absolute() ? next : folder_of(path) / next;
  }
  return path;
}

// True for two names of one file, be it there already or not.
bool same_file(const fs::path& a, const fs::path& b) {
  std::error_code error;
  if (fs::equivalent(a, b, error) && !error) return true;
  const fs::path absolute_a = fs::weakly_canonical(a, error);
  if (error) return false;
  const fs::path absolute_b = fs::weakly_canonical(b, error);
  return !error && absolute_a == absolute_b;
}

fs::path temporary_name(const fs::path& target) {
  std::random_device device;
  const std::uint64_t number = (std::uint64_t{device()} << 32) | device();
  return folder_of(target) / fmt::format(".twintrue-{:016x}.tmp", number);
}

[[noreturn]] void fail_usage(const NamedPath& target, std::string found, std::string expected,
                             std::string remedy) {
  throw Failure(ExitCode::kUsage, Problem{fmt::format("{}: {}", target.name, target.path.string()),
                                          std::move(found), std::move(expected), std::move(remedy)});
}

}  // namespace

OutputFile::OutputFile(const NamedPath& target, const std::vector<NamedPath>& taken)
    : name_(target.name), target_(follow_links(target.path)) {
  std::error_code error;
  const fs::path folder = folder_of(target_);
  if (target_.empty() || !target_.has_filename()) {
    fail_usage(target, "no file name", "the name of the file to write", "add a file name to the path");
  }
  if (!fs::is_directory(folder, error)) {
    fail_usage(target, fmt::format("no folder {}", folder.string()), "a folder that exists",
               fmt::format("make it (mkdir -p '{}') or choose another", folder.string()));
  }
  const fs::file_status status = fs::status(target_, error);
  if (fs::is_directory(status)) {
    fail_usage(target, "a folder", "a file name", "add a file name to the path");
  }
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    fail_usage(target, "neither a regular file nor a free name", "a name that is free or a file to replace",
               "choose another name");
  }
  for (const NamedPath& other : taken) {
    if (same_file(target_, other.path)) {
      fail_usage(target, fmt::format("the file that {} names", other.name), "a file of its own",
                 "choose another name; nothing that was read or written is ever overwritten");
    }
  }
  const fs::path trial = temporary_name(target_);
  const int descriptor = open(trial.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (descriptor < 0) {
    fail_usage(target, fmt::format("folder {}: {}", folder.string(), system_text(errno)),
               "a folder that files can be written to", "choose another folder or change its permissions");
  }
  close(descriptor);
  unlink(trial.c_str());
  temporary_ = trial;
}

OutputFile::~OutputFile() {
  std::error_code ignored;
  if (!temporary_.empty()) fs::remove(temporary_, ignored);
}

void OutputFile::write(const std::string& bytes) const {
  std::ofstream stream(temporary_, std::ios::binary);
  stream << bytes;
  stream.close();
  if (!stream) {
    throw Failure(ExitCode::kOther,
                  Problem{fmt::format("{}: {}", name_, target_.string()), "the file could not be written",
                          "room for it on the disk", "free some space or choose another folder"});
  }
}

void OutputFile::commit() {
  const auto fail = [this](int error) {
    throw Failure(ExitCode::kOther,
                  Problem{fmt::format("{}: {}", name_, target_.string()),
                          fmt::format("the file could not be put in place: {}", system_text(error)), "",
                          "free some space, or choose another folder"});
  };
  const int descriptor = open(temporary_.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) fail(errno);
  const int sync_error = fsync(descriptor) == 0 ? 0 : errno;
  close(descriptor);
  // Some file systems can't sync; the rename is all that can be had there.
  if (sync_error != 0 && sync_error != EINVAL) fail(sync_error);
  std::error_code error;
  fs::rename(temporary_, target_, error);
  if (error) fail(error.value());
  temporary_.clear();
}

void refuse_scrambled_name(const NamedPath& target) {
  for (const fs::path& path : {target.path, follow_links(target.path)}) {
    std::string ending = path.filename().string();
    ending = ending.size() > 4 ? ending.substr(ending.size() - 4) : ending;
    std::transform(ending.begin(), ending.end(), ending.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (ending == ".pin") {
      fail_usage(
          target, "a name that ends in .pin", "any other ending, .lens for instance",
          "choose another name: .pin files are read as scrambled text, and the corrected file is written "
          "plain, so it could not be read back");
    }
  }
}

}  // namespace twintrue::cli
