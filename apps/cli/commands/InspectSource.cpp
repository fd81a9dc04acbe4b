#include "apps/cli/commands/InspectSource.h"

#include <filesystem>
#include <system_error>

#include "apps/cli/InputFile.h"
#include "apps/cli/Problem.h"

namespace twintrue::cli {
namespace fs = std::filesystem;

InspectSource::InspectSource(const std::string& source) : path_(source) {
  std::error_code error;
  const fs::file_status status = fs::status(source, error);
  if (fs::exists(status)) {
    is_file_ = true;
    // An empty file is fine: it is the document without any setting.
    if (!fs::is_regular_file(status) || fs::file_size(source, error) != 0) {
      require_readable_file({"SOURCE", source});
    }
  } else if (status.type() != fs::file_type::not_found && error != std::errc::filename_too_long) {
    require_readable_file({"SOURCE", source});
  }
}

InspectSource::InspectSource(const Preset& preset) : path_(preset.text) {}

void InspectSource::require_settings() const {
  if (is_file_ || path_.empty()) return;
  if (path_.find_first_of(":\n") == std::string::npos) require_readable_file({"SOURCE", path_});
}

std::optional<DocumentError> open_document(const InspectSource& source, ParamDocument& document) {
  try {
    if (param_document_open(document, source.path()) || source.is_file()) return std::nullopt;
    // The library drops what is wrong with a text.
    Yaml::Node root;
    Yaml::parse_text(root, source.path().data(), source.path().size());
  } catch (const Yaml::ParsingException& error) {
    return DocumentError{"ParsingException", error.what()};
  } catch (const Yaml::InternalException& error) {
    return DocumentError{"InternalException", error.what()};
  }
  return std::nullopt;
}

}  // namespace twintrue::cli
