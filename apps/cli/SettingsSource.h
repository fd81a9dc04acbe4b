#pragma once

// Where the settings of a run come from: a file, a text on the command line, or a built-in preset.

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "apps/cli/Preset.h"

namespace twintrue::cli {

// Lines of the keys of a settings text, for messages.
class KeyLines {
 public:
  explicit KeyLines(const std::string& text);

  // Line, counted from 1, of a key that stands under the given sections ({"calib", "right3", "tilt", "div"});
  // the last one if it is repeated. Nothing if there is none.
  std::optional<int> line_of(const std::vector<std::string>& path) const;

 private:
  std::map<std::vector<std::string>, int> lines_;
};

// Settings that calib() and the loaders take by path(): a file's path, or the text itself.
class SettingsSource {
 public:
  // `params` as given on the command line: a file's path, or a text of more than one line if no file of that
  // name exists. Nothing: the default preset. Throws Failure (input unreadable).
  explicit SettingsSource(const std::optional<std::string>& params);
  explicit SettingsSource(const Preset& preset);
  SettingsSource(const SettingsSource&) = delete;
  SettingsSource& operator=(const SettingsSource&) = delete;

  // What to hand to them.
  const std::string& path() const { return path_; }
  // How messages name it: the path, "PARAMS text" or "built-in preset NAME".
  const std::string& name() const { return name_; }
  bool is_file() const { return is_file_; }
  const KeyLines& lines() const { return *lines_; }

  // "settings.yaml:12" if the line is known, else "settings.yaml".
  std::string at_line(std::optional<int> line) const;

 private:
  void hold_preset(const Preset& preset);
  void hold_text(const std::string& text);

  std::string path_;
  std::string name_;
  bool is_file_ = false;
  std::unique_ptr<KeyLines> lines_;
};

}  // namespace twintrue::cli
