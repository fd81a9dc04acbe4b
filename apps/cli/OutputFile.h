#pragma once

// Files that the program writes: never over an input, never half.

#include <filesystem>
#include <string>
#include <vector>

#include "base/WholeFile.h"

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
  // Makes an empty file in the target's folder. A target that is a symbolic link stands for what it points
  // to. Throws Failure (usage) if the folder is missing or not writable, if the target exists and is
  // protected or no regular file, or if it is one of `taken`.
  OutputFile(const NamedPath& target, const std::vector<NamedPath>& taken);

  // A path by which others can write or read the file, which is open already: no link that is planted in its
  // place leads them elsewhere. What is written to this path goes into the file at once, with no file beside
  // it. Throws Failure (other) where the system has no such paths.
  std::filesystem::path temporary() const;
  const std::filesystem::path& target() const { return file_.target(); }

  // Makes `bytes` all that the file holds. Throws Failure (other).
  void write(const std::string& bytes);
  // Puts the file on the disk and then in the target's place. Throws Failure (other).
  void commit();

 private:
  std::string where() const;

  std::string name_;
  AtomicFile file_;
};

// Throws Failure (usage) for a name that ends in .pin, whatever the case: such files are read as scrambled,
// and the library writes plain text.
void refuse_scrambled_name(const NamedPath& target);

}  // namespace twintrue::cli
