// Writes the manual pages and the completions of the program into a folder: man1/, bash/, zsh/, fish/.

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

#include "apps/manual/CommandPages.h"
#include "apps/manual/Completions.h"
#include "apps/manual/ManPages.h"

namespace {

void write(const std::filesystem::path& path, const std::string& text) {
  std::filesystem::create_directories(path.parent_path());
  std::ofstream file(path, std::ios::binary);
  if (!(file << text).flush()) throw std::runtime_error(path.string() + " could not be written");
}

}  // namespace

int main(int argc, char** argv) {
  using namespace twintrue::manual;
  if (argc != 2) {
    std::cerr << "usage: twintrue_manual FOLDER\n";
    return 2;
  }
  try {
    const std::filesystem::path folder = argv[1];
    // A command that is gone leaves no page behind.
    std::filesystem::remove_all(folder / "man1");
    const std::vector<CommandPage> pages = command_pages();
    for (const CommandPage& page : pages) {
      write(folder / "man1" / (page.joined("-") + ".1"), man_page(page, pages, TWINTRUE_VERSION));
    }
    write(folder / "bash" / "twintrue", bash_completion(pages));
    write(folder / "zsh" / "_twintrue", zsh_completion(pages));
    write(folder / "fish" / "twintrue.fish", fish_completion(pages));
  } catch (const std::exception& error) {
    std::cerr << "twintrue_manual: " << error.what() << "\n";
    return 1;
  }
  return 0;
}
