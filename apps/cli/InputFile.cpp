#include "apps/cli/InputFile.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>

#include "apps/cli/Problem.h"
#include "base/WholeFile.h"

namespace twintrue::cli {
namespace fs = std::filesystem;
namespace {

[[noreturn]] void fail(const NamedPath& input, const std::string& found, const std::string& expected,
                       const std::string& remedy) {
  throw Failure(ExitCode::kInputUnreadable,
                Problem{fmt::format("{}: {}", input.name, input.path.string()), found, expected, remedy});
}

}  // namespace

void require_readable_file(const NamedPath& input) {
  std::error_code error;
  const fs::file_status status = fs::status(input.path, error);
  if (!fs::exists(status)) {
    const bool absent = !error || status.type() == fs::file_type::not_found;
    fail(input, absent ? "no such file" : error.message(), "a file that exists",
         "check the name and the folder it stands in");
  }
  if (fs::is_directory(status)) fail(input, "a folder", "a file", "name a file in it");
  if (!fs::is_regular_file(status)) {
    // The file is read more than once, so a pipe won't do.
    fail(input, "a pipe or a device", "a regular file", "save the data to a file and name that");
  }
  if (access(input.path.c_str(), R_OK) != 0) {
    fail(input, std::generic_category().message(errno), "a file that may be read", "change its permissions");
  }
  if (fs::file_size(input.path, error) == 0 && !error) {
    fail(input, "an empty file", "a file with contents", "check that it was copied whole");
  }
}

std::string read_text_file(const NamedPath& input, std::size_t largest) {
  require_readable_file(input);
  std::string text;
  const std::error_code error = read_whole_file(input.path, largest, text);
  if (error == std::errc::file_too_large) {
    fail(input, fmt::format("more than {} bytes", largest), fmt::format("at most {} bytes", largest),
         "name a text file; this one can hardly be one");
  }
  if (error) {
    fail(input, fmt::format("a file that can't be read to its end: {}", error.message()), "a readable file",
         "copy it again");
  }
  return text;
}

}  // namespace twintrue::cli
