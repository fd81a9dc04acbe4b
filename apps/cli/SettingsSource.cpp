#include "apps/cli/SettingsSource.h"

#include <fmt/format.h>

#include <filesystem>
#include <string_view>
#include <system_error>

#include "apps/cli/InputFile.h"

namespace twintrue::cli {
namespace {

constexpr std::size_t kLargestSettings = std::size_t{64} << 20;  // as the reader of the library has it

// The line up to a comment; a # within double quotes is text.
std::string_view without_comment(std::string_view line) {
  bool quoted = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    if (line[i] == '"' && (i == 0 || line[i - 1] != '\\')) quoted = !quoted;
    if (line[i] == '#' && !quoted) return line.substr(0, i);
  }
  return line;
}

std::string_view key_text(std::string_view text) {
  const std::size_t last = text.find_last_not_of(" \t");
  text = text.substr(0, last == std::string_view::npos ? 0 : last + 1);
  if (text.size() >= 2 && text.front() == '"' && text.back() == '"') text = text.substr(1, text.size() - 2);
  return text;
}

}  // namespace

KeyLines::KeyLines(const std::string& text) {
  std::vector<std::size_t> indents;
  std::vector<std::string> path;
  std::string_view rest = text;
  for (int number = 1; !rest.empty(); ++number) {
    const std::size_t end = rest.find('\n');
    const std::string_view line = without_comment(rest.substr(0, end));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    const std::size_t indent = line.find_first_not_of(' ');
    if (indent == std::string_view::npos || line[indent] == '-') continue;
    const std::size_t colon = line.find(':', indent);
    if (colon == std::string_view::npos) continue;
    while (!indents.empty() && indents.back() >= indent) {
      indents.pop_back();
      path.pop_back();
    }
    indents.push_back(indent);
    path.emplace_back(key_text(line.substr(indent, colon - indent)));
    lines_[path] = number;
  }
}

std::optional<int> KeyLines::line_of(const std::vector<std::string>& path) const {
  const auto found = lines_.find(path);
  if (found == lines_.end()) return std::nullopt;
  return found->second;
}

SettingsSource::SettingsSource(const std::optional<std::string>& params) {
  if (!params) {
    hold_preset(presets().front());
    return;
  }
  std::error_code error;
  const bool exists = std::filesystem::exists(*params, error);
  if (!exists && params->find('\n') != std::string::npos) {
    name_ = "PARAMS text";
    hold_text(*params);
    return;
  }
  name_ = *params;
  path_ = *params;
  is_file_ = true;
  lines_ = std::make_unique<KeyLines>(read_text_file({"PARAMS", *params}, kLargestSettings));
}

SettingsSource::SettingsSource(const Preset& preset) { hold_preset(preset); }

std::string SettingsSource::at_line(std::optional<int> line) const {
  return line ? fmt::format("{}:{}", name_, *line) : name_;
}

void SettingsSource::hold_preset(const Preset& preset) {
  name_ = "built-in preset " + preset.name;
  hold_text(preset.text);
}

void SettingsSource::hold_text(const std::string& text) {
  lines_ = std::make_unique<KeyLines>(text);
  path_ = text;
}

}  // namespace twintrue::cli
