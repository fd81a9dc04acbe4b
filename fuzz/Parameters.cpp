// The reader of parameter files: a file gives the tree of its text, and looking up any key in any tree is
// harmless.

#include "Support.h"
#include "params/ParamDocument.h"
#include "params/Yaml.h"

namespace {

using namespace twintrue;

// The tree as text with lengths, so that different trees give different texts.
void dump(const Yaml::Node& node, std::string& out) {
  out += std::to_string(static_cast<int>(node.kind())) + " " + std::to_string(node.size()) + " " +
         std::to_string(node.text().size()) + ":" + node.text();
  node.for_each_child([&](const std::string& key, const Yaml::Node& child) {
    out += std::to_string(key.size()) + ":" + key;
    dump(child, out);
  });
}

std::string outcome(const std::string& text) {
  Yaml::Node root;
  std::string out;
  try {
    Yaml::parse_text(root, text.data(), text.size());
  } catch (const Yaml::Exception& error) {
    out = error.what();
  }
  dump(root, out);
  return out;
}

void look_up(const ParamNode& node) {
  std::int32_t whole = 7;
  double real = 7.0;
  float narrow = 7.0f;
  param_get_int(node, &whole, &whole);
  param_get_float(node, &narrow, &narrow);
  param_get_double(node, &real, &real);
  param_read_int_scaled(node, &whole, 0.37, real);
  param_read_double_scaled(node, &real, 1e300, real);
  std::int32_t whole_levels[kParamLevels] = {};
  double real_levels[kParamLevels] = {};
  for (const char* key : {"a", "sigma", "max", ""}) {
    for (const Broadcast mode : {Broadcast::kAlways, Broadcast::kIfGiven}) {
      param_read_int_levels(node, key, whole_levels, mode);
      param_read_double_levels(node, key, real_levels, mode, mode == Broadcast::kAlways);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const fuzzing::MemoryFile file;
  const std::string text(reinterpret_cast<const char*>(data), size);

  ParamDocument document;
  try {
    if (!param_document_open(document, file.write(text))) return 0;
  } catch (const Yaml::Exception&) {
    return 0;
  }
  // Brackets make lists of texts afterwards.
  if (text.find('[') == std::string::npos) {
    std::string tree;
    dump(document.root, tree);
    fuzzing::require(tree == outcome(text), "a file reads like its text");
  }
  for (const char* key : {"calib", "grid", "RENO", "a", ""}) {
    const ParamNode section = param_root_child(document, key);
    if (param_is_sequence(section)) {
      const auto last = param_end(section);
      for (auto it = param_begin(section); it != last; ++it) look_up({"", &(*it).second});
    }
    look_up(section);
    look_up(param_child(section, "b"));
  }
  return 0;
}
