// The reader of parameter files against yaml-cpp, on the files that people start from: both understand them
// alike.

#include <gtest/gtest.h>
#include <yaml-cpp/yaml.h>

#include <filesystem>
#include <map>
#include <string>

#include "params/ParamDocument.h"

namespace {

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

// One text for a tree of either reader, keys in byte order. What has no value is an empty text to the reader
// under test, and pieces of inline lists keep their blanks.
std::string dump(const Yaml::Node& node) {
  if (node.kind() == Yaml::Kind::kScalar) return '<' + trimmed(node.text()) + '>';
  std::string out;
  node.for_each_child(
      [&](const std::string& key, const Yaml::Node& child) { out += key + ": " + dump(child) + ", "; });
  return '{' + out + '}';
}

std::string dump(const YAML::Node& node) {
  if (!node.IsMap() && !node.IsSequence()) return '<' + (node.IsNull() ? "" : trimmed(node.Scalar())) + '>';
  std::map<std::string, std::string> children;
  std::string out;
  if (node.IsMap()) {
    for (const auto& entry : node) children[entry.first.Scalar()] = dump(entry.second);
  }
  for (const auto& [key, child] : children) out += key + ": " + child + ", ";
  if (node.IsSequence()) {
    for (const auto& child : node) out += ": " + dump(child) + ", ";
  }
  return '{' + out + '}';
}

TEST(ParameterReader, ReadsSettingsAsYamlCppDoes) {
  int files = 0;
  for (const char* folder : {TWINTRUE_SOURCE_DIR "/presets", TWINTRUE_SOURCE_DIR "/tests/support"}) {
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      if (entry.path().extension() != ".yaml") continue;
      twintrue::ParamDocument document;
      ASSERT_TRUE(twintrue::param_document_open(document, entry.path().string())) << entry.path();
      const std::string tree = dump(document.root);
      EXPECT_EQ(tree, dump(YAML::LoadFile(entry.path().string()))) << entry.path();
      EXPECT_GT(tree.size(), 1000u);
      ++files;
    }
  }
  EXPECT_GE(files, 4);
}

}  // namespace
