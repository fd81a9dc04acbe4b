#include "apps/cli/OutputFile.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <system_error>
#include <utility>

#include "apps/cli/Problem.h"

namespace twintrue::cli {
namespace fs = std::filesystem;
namespace {

fs::path folder_of(const fs::path& path) {
  return path.has_parent_path() ? path.parent_path() : fs::path(".");
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

[[noreturn]] void fail_usage(const NamedPath& target, std::string found, std::string expected,
                             std::string remedy) {
  throw Failure(ExitCode::kUsage, Problem{fmt::format("{}: {}", target.name, target.path.string()),
                                          std::move(found), std::move(expected), std::move(remedy)});
}

}  // namespace

OutputFile::OutputFile(const NamedPath& target, const std::vector<NamedPath>& taken) : name_(target.name) {
  std::error_code error;
  const fs::path place = follow_links(target.path);
  const fs::path folder = folder_of(place);
  if (place.empty() || !place.has_filename()) {
    fail_usage(target, "no file name", "the name of the file to write", "add a file name to the path");
  }
  if (!fs::is_directory(folder, error)) {
    fail_usage(target, fmt::format("no folder {}", folder.string()), "a folder that exists",
               fmt::format("make it (mkdir -p '{}') or choose another", folder.string()));
  }
  const fs::file_status status = fs::symlink_status(place, error);
  if (fs::is_directory(status)) {
    fail_usage(target, "a folder", "a file name", "add a file name to the path");
  }
  if (fs::exists(status) && !fs::is_regular_file(status)) {
    fail_usage(target, "neither a regular file nor a free name", "a name that is free or a file to replace",
               "choose another name");
  }
  for (const NamedPath& other : taken) {
    if (same_file(place, other.path)) {
      fail_usage(target, fmt::format("the file that {} names", other.name), "a file of its own",
                 "choose another name; nothing that was read or written is ever overwritten");
    }
  }
  if (fs::exists(status) && access(place.c_str(), W_OK) != 0) {
    fail_usage(target, std::generic_category().message(errno), "a file that may be replaced",
               "choose another name or change its permissions");
  }
  if (const std::error_code refusal = file_.create(place)) {
    fail_usage(target, fmt::format("folder {}: {}", folder.string(), refusal.message()),
               "a folder that files can be written to", "choose another folder or change its permissions");
  }
}

std::string OutputFile::where() const { return fmt::format("{}: {}", name_, target().string()); }

fs::path OutputFile::temporary() const {
  fs::path path = file_.path();
  if (access(path.c_str(), F_OK) == 0) return path;
  throw Failure(ExitCode::kOther,
                Problem{where(), fmt::format("no {}", path.string()), "a mounted /proc", "mount it"});
}

void OutputFile::write(const std::string& bytes) {
  if (const std::error_code error = file_.write(bytes)) {
    throw Failure(ExitCode::kOther,
                  Problem{where(), fmt::format("the file could not be written: {}", error.message()),
                          "room for it on the disk", "free some space or choose another folder"});
  }
}

void OutputFile::commit() {
  if (const std::error_code error = file_.commit()) {
    throw Failure(ExitCode::kOther,
                  Problem{where(), fmt::format("the file could not be put in place: {}", error.message()), "",
                          "free some space, or choose another folder"});
  }
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
          "choose another name: .pin files are read as scrambled text, and lens files are written plain, "
          "so it could not be read back");
    }
  }
}

}  // namespace twintrue::cli
