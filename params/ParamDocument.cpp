#include "params/ParamDocument.h"

#include <algorithm>
#include <filesystem>
#include <limits>
#include <locale>
#include <new>
#include <optional>
#include <sstream>
#include <system_error>
#include <vector>

#include "base/Saturate.h"
#include "base/WholeFile.h"

namespace twintrue {
namespace {

// Larger files are no parameter files, and the tree of a text takes many times its bytes.
constexpr std::size_t kMaxFileBytes = std::size_t{64} << 20;

// Whether anything of that name exists. Throws std::filesystem::filesystem_error if that can't be found out.
bool names_a_file(const std::string& source) {
  std::error_code error;
  const bool exists = std::filesystem::exists(source, error);
  // No file can have a name that the system finds too long, so it is a text.
  if (error && error != std::errc::filename_too_long) {
    throw std::filesystem::filesystem_error("looking for the file", source, error);
  }
  return exists;
}

// False for what can be no settings. Throws std::filesystem::filesystem_error for what may be some but can't
// be read to its end: whoever took half a file for the whole would go on with defaults.
bool read_settings(const std::string& path, std::string& text) {
  const std::error_code error = read_whole_file(path, kMaxFileBytes, text);
  if (!error) return true;
  for (const std::errc refusal :
       {std::errc::is_a_directory, std::errc::file_too_large, std::errc::invalid_seek,
        std::errc::permission_denied, std::errc::no_such_file_or_directory}) {
    if (error == refusal) return false;
  }
  throw std::filesystem::filesystem_error("reading the settings", path, error);
}

// Elements of all inline lists of a document: each takes many times its bytes.
constexpr std::size_t kMaxElements = std::size_t{1} << 20;

// A scalar with brackets becomes the sequence of what stands between its commas, blanks included. The
// substring's length is counted from the start of the text, so that with characters in front of the bracket
// it reaches beyond the closing one. False if the elements are more than `room`, which is reduced by them.
bool expand_inline_list(Yaml::Node& node, std::size_t& room) {
  const std::string text = node.text();
  const std::size_t open = text.find('[');
  const std::size_t close = text.find(']');
  if (open == std::string::npos || close == std::string::npos) return true;
  const std::string_view list = std::string_view(text).substr(open + 1, close - 1);
  std::size_t start = 0;
  while (start <= list.size()) {
    const std::size_t comma = std::min(list.find(',', start), list.size());
    if (comma > start) {
      if (room == 0) return false;
      --room;
      node.push_back().make_scalar(std::string(list.substr(start, comma - start)));
    }
    start = comma + 1;
  }
  return true;
}

bool expand_inline_lists(Yaml::Node& root) {
  std::size_t room = kMaxElements;
  std::vector<Yaml::Node*> pending{&root};
  while (!pending.empty()) {
    Yaml::Node& node = *pending.back();
    pending.pop_back();
    if (node.kind() == Yaml::Kind::kScalar) {
      if (!expand_inline_list(node, room)) return false;
    } else if (node.size() > 0) {
      for (auto it = node.begin(); it != node.end(); ++it) pending.push_back(&(*it).second);
    }
  }
  return true;
}

template <typename T>
std::optional<T> extract(const std::string& text) {
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  T value{};
  const bool read = static_cast<bool>(stream >> value);
  // A stream keeps exceptions to itself. Taken for an unreadable text, the end of memory would put a default
  // in the place of what the file says.
  if (stream.bad()) throw std::bad_alloc();
  if (!read) return std::nullopt;
  return value;
}

template <typename T>
void get_value(const ParamNode& node, T* out, const T* fallback) {
  *out = extract<T>(param_text(node)).value_or(*fallback);
}

void store(std::int32_t& out, double value) { out = truncate_to_int32(value); }
void store(double& out, double value) { out = value; }

// The largest value of the type stands for absent.
template <typename T>
bool read_scaled(const ParamNode& node, T* out, double scale, double fallback) {
  const std::optional<T> value = extract<T>(param_text(node));
  const bool given = value && *value != std::numeric_limits<T>::max();
  store(*out, given ? static_cast<double>(*value) * scale : fallback);
  return given;
}

template <typename T>
void read_levels(const ParamNode& parent, const std::string& key, T* out, Broadcast mode, bool hold_last) {
  const ParamNode levels = param_child(parent, key);
  if (param_is_sequence(levels)) {
    int count = 0;
    for (auto it = param_begin(levels); it != param_end(levels) && count < kParamLevels; ++it, ++count) {
      store(out[count], extract<double>((*it).second.text()).value_or(0.0));
    }
    for (int i = std::max(count, 1); i < kParamLevels; ++i) out[i] = hold_last ? out[i - 1] : out[0];
    return;
  }
  if (mode != Broadcast::kAlways && mode != Broadcast::kIfGiven) return;
  const bool given = read_scaled(levels, out, 1.0, static_cast<double>(out[0]));
  if (given || mode == Broadcast::kAlways) std::fill(out + 1, out + kParamLevels, out[0]);
}

}  // namespace

bool param_document_open(ParamDocument& document, const std::string& source) {
  if (names_a_file(source)) {
    std::string text;
    if (!read_settings(source, text)) return false;
    Yaml::parse_text(document.root, text.data(), text.size());
  } else {
    try {
      Yaml::parse_text(document.root, source.data(), source.size());
    } catch (const Yaml::Exception&) {
      return false;
    }
  }
  if (!expand_inline_lists(document.root)) return false;
  document.loaded = true;
  return true;
}

ParamNode param_root_child(ParamDocument& document, const std::string& key) {
  return {key, &document.root[key]};
}

ParamNode param_child(const ParamNode& parent, const std::string& key) { return {key, &(*parent.node)[key]}; }

bool param_is_none(const ParamNode& node) { return node.node->kind() == Yaml::Kind::kNone; }

bool param_is_sequence(const ParamNode& node) { return node.node->kind() == Yaml::Kind::kSequence; }

bool param_is_map(const ParamNode& node) { return node.node->kind() == Yaml::Kind::kMap; }

std::string param_text(const ParamNode& node) { return node.node->text(); }

Yaml::Iterator param_begin(const ParamNode& node) { return node.node->begin(); }

Yaml::Iterator param_end(const ParamNode& node) { return node.node->end(); }

void param_get_int(const ParamNode& node, std::int32_t* out, const std::int32_t* fallback) {
  get_value(node, out, fallback);
}

void param_get_float(const ParamNode& node, float* out, const float* fallback) {
  get_value(node, out, fallback);
}

void param_get_double(const ParamNode& node, double* out, const double* fallback) {
  get_value(node, out, fallback);
}

bool param_read_int_scaled(const ParamNode& node, std::int32_t* out, double scale, double fallback) {
  return read_scaled(node, out, scale, fallback);
}

bool param_read_double_scaled(const ParamNode& node, double* out, double scale, double fallback) {
  return read_scaled(node, out, scale, fallback);
}

void param_read_int_levels(const ParamNode& parent, const std::string& key, std::int32_t* out,
                           Broadcast mode) {
  read_levels(parent, key, out, mode, false);
}

void param_read_double_levels(const ParamNode& parent, const std::string& key, double* out, Broadcast mode,
                              bool hold_last) {
  read_levels(parent, key, out, mode, hold_last);
}

}  // namespace twintrue
