#include "params/ParamDocument.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <limits>
#include <locale>
#include <new>
#include <optional>
#include <sstream>
#include <vector>

namespace twintrue {
namespace {

// Larger files are no parameter files, and the tree of a text takes many times its bytes.
constexpr std::size_t kMaxFileBytes = std::size_t{64} << 20;

// Nothing if the file can't be read to its end or is too large.
std::optional<std::string> read_whole_file(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  if (!stream) return std::nullopt;
  std::string text;
  std::vector<char> chunk(std::size_t{1} << 16);
  while (stream.read(chunk.data(), static_cast<std::streamsize>(chunk.size())) || stream.gcount() > 0) {
    text.append(chunk.data(), static_cast<std::size_t>(stream.gcount()));
    if (text.size() > kMaxFileBytes) return std::nullopt;
  }
  if (stream.bad()) return std::nullopt;
  return text;
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

// Toward zero; the smallest integer for what has no 32-bit value.
std::int32_t truncate_to_int(double value) {
  if (!(value > -2147483649.0 && value < 2147483648.0)) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(value);
}

template <typename T>
void get_value(const ParamNode& node, T* out, const T* fallback) {
  *out = extract<T>(param_text(node)).value_or(*fallback);
}

void store(std::int32_t& out, double value) { out = truncate_to_int(value); }
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
  if (std::filesystem::exists(source)) {
    const std::optional<std::string> text = read_whole_file(source);
    if (!text) return false;
    Yaml::parse_text(document.root, text->data(), text->size());
  } else {
    try {
      std::istringstream stream(source);
      Yaml::parse_stream(document.root, stream);
    } catch (const Yaml::Exception&) {
      return false;
    }
  }
  if (!expand_inline_lists(document.root)) return false;
  document.name = source;
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

const std::string& param_text(const ParamNode& node) { return node.node->text(); }

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
