// The reader of parameter files against yaml-cpp, on documents of the subset that both understand alike:
// block maps and lists, plain and quoted scalars, block texts, flat inline lists, comments, one document.

#include <gtest/gtest.h>
#include <yaml-cpp/yaml.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "params/ParamDocument.h"
#include "support/TempDir.h"

namespace {

std::string trimmed(const std::string& text) {
  const std::size_t first = text.find_first_not_of(' ');
  return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(' ') + 1 - first);
}

std::string quoted(const std::string& text) { return '<' + text + '>'; }

// One text for a tree of either reader, keys in byte order. What has no value is an empty text to the reader
// under test.
std::string dump(const Yaml::Node& node) {
  if (node.kind() == Yaml::Kind::kScalar) return quoted(node.text());
  const bool map = node.kind() == Yaml::Kind::kMap;
  std::string out;
  node.for_each_child([&](const std::string& key, const Yaml::Node& child) {
    out += (map ? quoted(key) + ": " : "") + dump(child) + ", ";
  });
  return map ? '{' + out + '}' : '[' + out + ']';
}

std::string dump(const YAML::Node& node) {
  if (node.IsMap()) {
    std::map<std::string, std::string> children;
    for (const auto& entry : node) children[entry.first.Scalar()] = dump(entry.second);
    std::string out;
    for (const auto& [key, child] : children) out += quoted(key) + ": " + child + ", ";
    return '{' + out + '}';
  }
  if (node.IsSequence()) {
    std::string out;
    for (const auto& child : node) out += dump(child) + ", ";
    return '[' + out + ']';
  }
  return quoted(node.IsNull() ? "" : node.Scalar());
}

// Writes random documents.
class Writer {
 public:
  explicit Writer(std::uint64_t seed) : engine_(seed) {}

  std::string document() {
    if (one_in(4)) text_ += "# a comment in front: \xc3\xa9 ~\n\n";
    // Without a start of its own, the first document ends at `...` alone.
    const bool started = one_in(4);
    if (started) text_ += "---\n";
    container(0, 1);
    if (one_in(4)) text_ += started && one_in(2) ? "---\nnot: read\n" : "...\nnot: read\n";
    return text_;
  }

  // How often each form was written.
  const std::map<std::string, int>& forms() const { return forms_; }

 private:
  std::uint64_t below(std::uint64_t n) { return engine_() % n; }
  bool one_in(std::uint64_t n) { return below(n) == 0; }

  std::string margin(std::size_t indent) { return std::string(indent, ' '); }

  std::string word() {
    static const char* const kWords[] = {"a",   "b7",  "1.5", "-3",  "x-y",  "1e3", "Path/to", "it",
                                         "0x1", "+.5", "wd",  "(2)", "50%",  "s_t", "=4",      "k;l",
                                         "_",   "b!c", "yes", "a,b", "2@3",  "<",   "$v",      "q?",
                                         "^z",  "a&b", "x[1", "y]2", "{z}m", "p|q", "r>s",     "t*u"};
    std::string one;
    do {
      one = kWords[below(std::size(kWords))];
    } while (!lists_allowed_ && one.find_first_of("[]") != std::string::npos);
    return one;
  }

  // Plain text of some words. It begins with a letter or digit, has no brackets (they would make a list) and
  // no quotes.
  std::string plain() {
    lists_allowed_ = false;
    std::string text = one_in(3)   ? std::to_string(below(1000))
                       : one_in(2) ? "-" + std::to_string(below(9))
                                   : "v";
    for (std::uint64_t n = below(4); n > 0; --n) text += ' ' + word();
    return text;
  }

  void end_line() {
    if (one_in(6)) text_ += "   ";
    if (one_in(6)) text_ += " # c: [d, \"e";
    text_ += '\n';
    if (one_in(6)) text_ += one_in(2) ? "\n" : "  # between\n\n";
  }

  void block(std::size_t indent) {
    const bool folded = one_in(2);
    text_ += folded ? " >" : " |";
    if (one_in(2)) text_ += '-';
    text_ += '\n';
    lists_allowed_ = false;
    for (std::uint64_t n = 1 + below(4); n > 0; --n) {
      // Folded texts with deeper lines are not alike.
      const bool deeper = !folded && last_.size() > 2 && one_in(3);
      last_ = margin(indent) + (deeper ? "  " : "") + word() + ": - 'w " + word();
      text_ += last_ + '\n';
      if (n > 1 && one_in(4)) text_ += '\n';
    }
    last_.clear();
    ++forms_[folded ? "folded text" : "literal text"];
  }

  // What stands behind `key:` or `-`, on the line and below it. `indent` is that of the entry.
  void value(std::size_t indent, int depth, bool in_map) {
    switch (below(depth < 5 ? 10 : 6)) {
      case 0:
        text_ += " \"" + plain() + ": # " + word() + "\"";
        end_line();
        ++forms_["double quotes"];
        break;
      case 1:
        text_ += " '" + plain() + (in_map ? ": " : " ") + word() + "'";
        end_line();
        ++forms_["single quotes"];
        break;
      case 2:
        block(indent + 1 + below(3));
        break;
      case 3: {
        text_ += " [";
        for (std::uint64_t n = below(5); n > 0; --n) text_ += std::to_string(below(100)) + " x, ";
        text_ += "last]";
        end_line();
        ++forms_["inline list"];
        break;
      }
      case 4:
        text_ += ' ' + plain() + '\n' + margin(indent + 1 + below(3)) + plain();
        end_line();
        ++forms_["continued line"];
        break;
      case 5:
        if (in_map && one_in(2)) {
          ++forms_["no value"];
        } else {
          text_ += margin(1 + below(3)) + plain() + (in_map && one_in(3) ? ":" + word() : "");
          ++forms_["plain"];
        }
        end_line();
        break;
      default:
        end_line();
        container(indent + 1 + below(3), depth + 1);
    }
  }

  void container(std::size_t indent, int depth) {
    const bool map = one_in(2);
    ++forms_[map ? "map" : "list"];
    for (std::uint64_t i = 0, n = 1 + below(4); i < n; ++i) {
      text_ += margin(indent);
      if (map) {
        text_ += key(i);
        value(indent, depth, true);
      } else if (one_in(4)) {
        // A map that begins on the line of its entry.
        const std::size_t space = 1 + below(3);
        text_ += '-' + margin(space) + key(0) + ' ' + plain();
        end_line();
        if (one_in(2)) {
          text_ += margin(indent + 1 + space) + key(1);
          value(indent + 1 + space, depth + 1, true);
        }
        ++forms_["map in an entry"];
      } else {
        text_ += '-';
        value(indent, depth, false);
      }
    }
  }

  std::string key(std::uint64_t number) {
    const std::string name = "k" + std::to_string(number);
    if (one_in(5)) return '"' + name + ": # -\":";
    return name + (one_in(5) ? " w-1" : "") + (one_in(5) ? "  :" : ":");
  }

  std::mt19937_64 engine_;
  std::string text_;
  std::string last_;
  bool lists_allowed_ = true;
  std::map<std::string, int> forms_;
};

// Inline lists are pieces with their blanks to one reader and trimmed to the other.
void trim_pieces(Yaml::Node& node) {
  if (node.kind() == Yaml::Kind::kScalar) node.make_scalar(trimmed(node.text()));
  if (node.size() == 0) return;
  for (auto it = node.begin(); it != node.end(); ++it) trim_pieces((*it).second);
}

TEST(ParameterReader, ReadsTheCommonSubsetAsYamlCppDoes) {
  const testing_support::TempDir dir;
  std::map<std::string, int> forms;
  for (std::uint64_t seed = 0; seed < 500; ++seed) {
    Writer writer(seed);
    const std::string text = writer.document();
    for (const auto& [form, count] : writer.forms()) forms[form] += count;

    YAML::Node expected;
    ASSERT_NO_THROW(expected = YAML::Load(text)) << seed << ":\n" << text;
    twintrue::ParamDocument document;
    ASSERT_TRUE(twintrue::param_document_open(document, dir.write("settings.yaml", text))) << seed << ":\n"
                                                                                           << text;
    trim_pieces(document.root);
    ASSERT_EQ(dump(document.root), dump(expected)) << seed << ":\n" << text;
  }
  EXPECT_EQ(forms.size(), 11u);
  for (const auto& [form, count] : forms) EXPECT_GT(count, 80) << form;
}

}  // namespace
