#include "apps/cli/checks/KeyProblems.h"

#include <fmt/format.h>

#include <algorithm>
#include <optional>

namespace twintrue::cli {

void KeyProblems::require(Reach stops, bool good, const std::string& section, const std::string& key,
                          const std::string& found, const std::string& expected, const std::string& remedy) {
  if (good) return;
  const std::optional<int> line = source_.lines().line_of({section, key});
  const std::string where =
      fmt::format("PARAMS: {}: section `{}`, key `{}`",
                  source_.at_line(line ? line : source_.lines().line_of({section})), section, key);
  problems_.push_back({where,
                       line ? found : fmt::format("{} (the key is not given; this is its default)", found),
                       expected, remedy});
  first_stop_ = std::min(first_stop_, stops);
}

void KeyProblems::require(Reach stops, bool good, const std::string& section, const std::string& key,
                          std::int64_t found, const std::string& expected, const std::string& remedy) {
  require(stops, good, section, key, std::to_string(found), expected, remedy);
}

void KeyProblems::add_document(Reach stops, const std::string& found, const std::string& expected,
                               const std::string& remedy) {
  problems_.push_back({fmt::format("PARAMS: {}", source_.name()), found, expected, remedy});
  first_stop_ = std::min(first_stop_, stops);
}

void KeyProblems::add_section(Reach stops, const std::string& section, const std::string& found,
                              const std::string& expected, const std::string& remedy) {
  problems_.push_back(
      {fmt::format("PARAMS: {}: section `{}`", source_.at_line(source_.lines().line_of({section})), section),
       found, expected, remedy});
  first_stop_ = std::min(first_stop_, stops);
}

void KeyProblems::fail_if_any_stops(Reach reach) const {
  if (!problems_.empty() && first_stop_ <= reach) throw Failure(ExitCode::kFileUnusable, problems_);
}

bool KeyProblems::gives(const std::string& section, const std::string& key) const {
  return source_.lines().line_of({section, key}).has_value();
}

}  // namespace twintrue::cli
