#pragma once

// What checks of single keys of a settings file find.

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "apps/cli/Problem.h"
#include "apps/cli/SettingsSource.h"

namespace twintrue::cli {

class KeyProblems {
 public:
  explicit KeyProblems(const SettingsSource& source) : source_(source) {}

  // Notes a key's value as wrong unless `good`. The message tells the line where the file gives the key, or
  // that it gives none and the value is the default.
  void require(bool good, const std::string& section, const std::string& key, const std::string& found,
               const std::string& expected, const std::string& remedy);
  void require(bool good, const std::string& section, const std::string& key, std::int64_t found,
               const std::string& expected, const std::string& remedy);

  // Notes what concerns the whole document, and a whole section.
  void add_document(const std::string& found, const std::string& expected, const std::string& remedy);
  void add_section(const std::string& section, const std::string& found, const std::string& expected,
                   const std::string& remedy);

  bool gives(const std::string& section, const std::string& key) const;
  const SettingsSource& source() const { return source_; }
  const std::vector<Problem>& all() const { return problems_; }

 private:
  const SettingsSource& source_;
  std::vector<Problem> problems_;
};

}  // namespace twintrue::cli
