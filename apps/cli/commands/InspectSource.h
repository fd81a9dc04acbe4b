#pragma once

#include <optional>
#include <string>

#include "apps/cli/Preset.h"
#include "params/ParamDocument.h"

namespace twintrue::cli {

// A parameter file as the library takes it: the path of a file, or, if there is none of that name, the text
// itself. Other than SettingsSource it takes whatever the library takes, an empty file or a text of one line
// included.
class InspectSource {
 public:
  // Throws Failure (input unreadable) for what exists and is no readable file.
  explicit InspectSource(const std::string& source);
  explicit InspectSource(const Preset& preset);

  // What to hand to the library's loaders.
  const std::string& path() const { return path_; }
  bool is_file() const { return is_file_; }

  // Throws Failure (input unreadable) for a text that can hold no setting: most likely the misspelt name of a
  // file.
  void require_settings() const;

 private:
  std::string path_;
  bool is_file_ = false;
};

struct DocumentError {
  std::string type;  // name of the exception's class
  std::string message;
};

// Opens a document as the library does. A text or a file that doesn't parse gives the reader's exception,
// where the library hides it for a text. Nothing, with the document not loaded: the file can't be read.
std::optional<DocumentError> open_document(const InspectSource& source, ParamDocument& document);

}  // namespace twintrue::cli
