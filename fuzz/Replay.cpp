// Runs a target over files instead of under a fuzzer: every file that is named, and every file of a folder.
// The library's messages go nowhere.

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "Support.h"

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::vector<fs::path> files;
  for (int i = 1; i < argc; ++i) {
    if (!fs::is_directory(argv[i])) {
      files.emplace_back(argv[i]);
      continue;
    }
    for (const auto& entry : fs::directory_iterator(argv[i])) files.push_back(entry.path());
  }
  if (files.empty()) {
    std::fputs("name files or folders to replay\n", stderr);
    return 2;
  }
  std::sort(files.begin(), files.end());
  if (std::freopen("/dev/null", "w", stdout) == nullptr) return 1;
  for (const fs::path& file : files) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
      std::fprintf(stderr, "%s can't be read\n", file.c_str());
      return 1;
    }
    const std::string bytes{std::istreambuf_iterator<char>(stream), {}};
    std::fprintf(stderr, "%s\n", file.filename().c_str());
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  }
}
