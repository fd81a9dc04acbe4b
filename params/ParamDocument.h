#pragma once

// Typed, forgiving access to a parsed parameter file.

#include <cstdint>
#include <string>

#include "params/Yaml.h"

namespace twintrue {

struct ParamDocument {
  Yaml::Node root;
  bool loaded = false;
};

// Reads `source` into the document: a file if anything of that name exists, else `source` is the text
// itself, of any length. True if loaded. False: the file may not be read, is a folder, a pipe or above 64
// MiB, its inline lists have more than 2^20 elements, or the text (not a file) does not parse. A file that
// does not parse throws Yaml::Exception; a file that can't be read to its end, or looked for, throws
// std::filesystem::filesystem_error.
bool param_document_open(ParamDocument& document, const std::string& source);

// A named reference into a document's tree, which must outlive it.
struct ParamNode {
  std::string key;
  Yaml::Node* node = nullptr;
};

// The child of that key. Looking up changes the tree: a node that is no Map becomes an empty one, an absent
// key becomes a child of kind None.
ParamNode param_root_child(ParamDocument& document, const std::string& key);
ParamNode param_child(const ParamNode& parent, const std::string& key);

bool param_is_none(const ParamNode& node);
bool param_is_sequence(const ParamNode& node);
bool param_is_map(const ParamNode& node);

// A copy of the node's text; empty for every kind but Scalar.
std::string param_text(const ParamNode& node);

// Children in order. Loop only over a Sequence or a Map.
Yaml::Iterator param_begin(const ParamNode& node);
Yaml::Iterator param_end(const ParamNode& node);

// One formatted stream extraction in the classic locale: leading blanks skipped, as much as fits taken, the
// rest ignored. On failure *out takes *fallback, which usually points to *out itself.
void param_get_int(const ParamNode& node, std::int32_t* out, const std::int32_t* fallback);
void param_get_float(const ParamNode& node, float* out, const float* fallback);
void param_get_double(const ParamNode& node, double* out, const double* fallback);

// Value times scale; true if a value was read. On failure, or for the largest value of the type, which stands
// for absent, *out takes the unscaled fallback (truncated for the integer) and the result is false.
bool param_read_int_scaled(const ParamNode& node, std::int32_t* out, double scale, double fallback);
bool param_read_double_scaled(const ParamNode& node, double* out, double scale, double fallback);

// A row of 20 values, one a level, from a key that holds one value or a list.
inline constexpr int kParamLevels = 20;
// List: its elements, then the first one again (hold_last, doubles only: the last one); an element that does
// not parse is 0. No list: broadcast kAlways copies entry 0, read or not, to all; kIfGiven only if it was
// read.
enum class Broadcast { kAlways = 0, kIfGiven = 1 };
void param_read_int_levels(const ParamNode& parent, const std::string& key, std::int32_t* out,
                           Broadcast mode);
void param_read_double_levels(const ParamNode& parent, const std::string& key, double* out, Broadcast mode,
                              bool hold_last);

}  // namespace twintrue
