#pragma once

// What checks of single keys of a settings file find.

#include <cstdint>
#include <string>
#include <vector>

#include "apps/cli/Problem.h"
#include "apps/cli/SettingsSource.h"

namespace twintrue::cli {

// How far a run goes: each step needs the ones before. kResult stands for a search that finds something.
enum class Reach { kDetection, kMatching, kSearch, kResult };

class KeyProblems {
 public:
  explicit KeyProblems(const SettingsSource& source) : source_(source) {}

  // Notes a key's value as wrong unless `good`; with it no run comes as far as `stops`. The message tells the
  // line where the file gives the key, or that it gives none and the value is the default.
  void require(Reach stops, bool good, const std::string& section, const std::string& key,
               const std::string& found, const std::string& expected, const std::string& remedy);
  void require(Reach stops, bool good, const std::string& section, const std::string& key, std::int64_t found,
               const std::string& expected, const std::string& remedy);

  // Notes what concerns the whole document, and a whole section.
  void add_document(Reach stops, const std::string& found, const std::string& expected,
                    const std::string& remedy);
  void add_section(Reach stops, const std::string& section, const std::string& found,
                   const std::string& expected, const std::string& remedy);

  // Throws Failure (settings unusable), with all that was noted, if any of it keeps a run from coming so far.
  void fail_if_any_stops(Reach reach) const;

  bool gives(const std::string& section, const std::string& key) const;
  const SettingsSource& source() const { return source_; }
  std::size_t count() const { return problems_.size(); }

 private:
  const SettingsSource& source_;
  std::vector<Problem> problems_;
  Reach first_stop_ = Reach::kResult;
};

}  // namespace twintrue::cli
