#pragma once

// Files that the program writes: never over an input, never half.

#include <filesystem>
#include <string>
#include <vector>

namespace twintrue::cli {

// A path of the command line with the name of its option or argument.
struct NamedPath {
  std::string name;
  std::filesystem::path path;
};

// A file that comes into being beside its target and takes the target's place by a rename. Until commit() the
// target, be it there or not, stays as it is.
class OutputFile {
 public:
  // Picks a fresh temporary name in the target's folder and tries whether a file can be made there; leaves
  // none. A target that is a symbolic link stands for what it points to. Throws Failure (usage) if the folder
  // is missing or not writable, if the target exists and is no regular file, or if it is one of `taken`.
  OutputFile(const NamedPath& target, const std::vector<NamedPath>& taken);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  // Removes the temporary file if there still is one.
  ~OutputFile();

  const std::filesystem::path& temporary() const { return temporary_; }
  const std::filesystem::path& target() const { return target_; }

  // Writes the whole temporary file. Throws Failure (other).
  void write(const std::string& bytes) const;
  // Puts the temporary file on the disk and then in the target's place. Throws Failure (other).
  void commit();

 private:
  std::string name_;
  std::filesystem::path target_;
  std::filesystem::path temporary_;
};

// Throws Failure (usage) for a name that ends in .pin, whatever the case: such files are read as scrambled,
// and the library writes plain text.
void refuse_scrambled_name(const NamedPath& target);

}  // namespace twintrue::cli
