#pragma once

// Files read and written whole: a read error is no end of the file, and what is written takes its place only
// when the disk has it all. The functions share nothing and may be called from any thread.

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>

namespace twintrue {

// Fills `bytes` with what the file holds. Fails with the system's error for what can't be opened or read to
// its end, with file_too_large for more than `largest` bytes, and with invalid_seek for a pipe, which holds
// nothing for a second reader; `bytes` is of no use then. Throws std::bad_alloc.
std::error_code read_whole_file(const std::filesystem::path& path, std::size_t largest, std::string& bytes);

// The path of a file once the symbolic links of its last name are followed, also if they lead to nothing yet.
// The system's own links to open files (/proc/self/fd/3) are not followed: no path need lead to such a file.
std::filesystem::path follow_links(const std::filesystem::path& path);

// A file that comes into being beside its target and takes the target's place by a rename. Until commit() the
// target, be it there or not, stays as it is.
//
// The file is made exclusively, under a name that nobody can foresee, and stays open until it is renamed. So
// nobody who can write to the folder gets bytes written to another file by a link in its place.
class AtomicFile {
 public:
  AtomicFile() = default;
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;
  // Removes the file, unless commit() has put it in place.
  ~AtomicFile();

  // Makes the empty file, with the rights that the target has or a new file gets. A target that is a symbolic
  // link stands for what it points to. Fails, with nothing left behind, if the folder takes no new file, and
  // if the target is protected itself (permission_denied) or no regular file (invalid_argument): replacing it
  // would take rights on the folder alone.
  std::error_code create(const std::filesystem::path& target);

  // Makes `bytes` all that the file holds. Here and below: a file that was created and not committed.
  std::error_code write(std::string_view bytes);

  // Puts the file on the disk and then in the target's place. Fails if either can't be done, and if the file
  // is no longer found under its name; the target is as it was then.
  std::error_code commit();

  // A path that leads to the open file whatever has become of its name, for others to read and write it. It
  // is of use where the system's /proc is mounted.
  std::filesystem::path path() const;
  // Links followed.
  const std::filesystem::path& target() const { return target_; }

 private:
  bool is_under_its_name() const;

  std::filesystem::path target_;
  std::filesystem::path name_;  // empty: nothing to remove
  int descriptor_ = -1;
};

// Writes a file by way of AtomicFile: whatever happens, it is the whole old one or the whole new one. Only
// where that can't be done (a folder that takes no new file, a target that is no regular file, the path of an
// open file) the bytes go to the target itself, which is emptied if it doesn't take them all.
std::error_code write_whole_file(const std::filesystem::path& target, std::string_view bytes);

}  // namespace twintrue
