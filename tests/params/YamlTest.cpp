#include "params/Yaml.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/SmallStack.h"

namespace {

// The tree as text: JSON, but for None, written ~.
std::string dump(const Yaml::Node& node) {
  const auto quoted = [](const std::string& text) {
    std::string out = "\"";
    for (const char c : text) {
      if (c == '\n') {
        out += "\\n";
      } else if (c == '"' || c == '\\') {
        (out += '\\') += c;
      } else {
        out += c;
      }
    }
    return out + '"';
  };
  if (node.kind() == Yaml::Kind::kNone) return "~";
  if (node.kind() == Yaml::Kind::kScalar) return quoted(node.text());
  const bool map = node.kind() == Yaml::Kind::kMap;
  std::string out;
  node.for_each_child([&](const std::string& key, const Yaml::Node& child) {
    out += (out.empty() ? "" : ",") + (map ? quoted(key) + ":" : "") + dump(child);
  });
  return map ? "{" + out + "}" : "[" + out + "]";
}

std::string parsed(const std::string& text) {
  Yaml::Node root;
  Yaml::parse_text(root, text.data(), text.size());
  return dump(root);
}

// The exception that the text draws, class first.
std::string refusal(const std::string& text) {
  Yaml::Node root;
  try {
    Yaml::parse_text(root, text.data(), text.size());
  } catch (const Yaml::ParsingException& error) {
    return std::string("parsing: ") + error.what();
  } catch (const Yaml::InternalException& error) {
    return std::string("internal: ") + error.what();
  }
  return "none: " + dump(root);
}

struct Case {
  std::string text;
  std::string expected;
};

void expect_trees(const std::vector<Case>& cases) {
  for (const Case& c : cases) {
    std::string tree;
    EXPECT_NO_THROW(tree = parsed(c.text)) << c.text;
    EXPECT_EQ(tree, c.expected) << c.text;
  }
}

TEST(Yaml, LinesAndDocuments) {
  expect_trees({
      {"", "~"},
      {"# only a comment: \xc3\xa9~\n\n", "~"},
      {"a: 1\r\nb: 2\r\n", R"({"a":"1","b":"2"})"},
      {"a#b", R"("a")"},
      {"a: \"x # y\" # z", R"({"a":"x # y"})"},
      {"a: 1 \\\" #\" 2", R"({"a":"1 \\\""})"},
      {"lost: 1\n# c\n---\na: 1\n---\nb: 2", R"({"a":"1"})"},
      {"---\na: 1\n...\n---\nb: 2", R"({"a":"1"})"},
      {"---# start\na: 1\n...# end\n~", R"({"a":"1"})"},
      {"---\r\n", R"("---")"},
      {"a: 1 ", R"({"a":"1"})"},
  });
}

TEST(Yaml, EntriesAndKeys) {
  expect_trees({
      {"- 1\n- -1\n- - a\n-\n  - x\n- k: v\n  l: w", R"(["1","-1","- a",["x"],{"k":"v","l":"w"}])"},
      {"-\n- a\n- b", R"([["a","b"]])"},
      {"-1", R"("-1")"},
      {"x: -1\ny:2\nz:", R"({"x":"-1","y":"2","z":""})"},
      {"b:\n  c: 1\n\n  d:\n    - 2\na: 3", R"({"a":"3","b":{"c":"1","d":["2"]}})"},
      {"a:\nb: 1", R"({"a":"","b":"1"})"},
      {"a: \"b: c\"\n\"a:b\": 1\n\"\": 2\na\\\\b\\c\\: 3", R"({"":"2","a":"b: c","a:b":"1","a\\bc\\":"3"})"},
      {"url: http://x:1", R"({"url":"http://x:1"})"},
      {"key \t : v", R"({"key":"v"})"},
      // One key, one child: values overwrite, maps join, lists grow, another kind starts afresh.
      {"a: 1\na: 2", R"({"a":"2"})"},
      {"a:\n  b: 1\na:\n  c: 2", R"({"a":{"b":"1","c":"2"}})"},
      {"a:\n  - 1\na:\n  - 2", R"({"a":["1","2"]})"},
      {"a:\n  - 1\na:\n  b: 2", R"({"a":{"b":"2"}})"},
      {"{a}: [1, 2]", R"({"{a}":"[1, 2]"})"},
  });
}

TEST(Yaml, Scalars) {
  expect_trees({
      {"a: 1\n  b", R"({"a":"1 b"})"},
      {"a: 1\n\n  b  \n\t\nc: 2", R"({"a":"1 b","c":"2"})"},
      {"x\n\ny", R"("x y")"},
      {"a: 1\n  b\n\n\n  c", R"({"a":"1 b \n \n c"})"},
      {"a:\nb", R"({"a":" b"})"},
      {"a: \t", "{\"a\":\"\\n\"}"},
      {"a: 'x'\nb: \"it's\"\nc: 'say \"x\"'\nd: \"\\\"\"",
       R"({"a":"x","b":"it's","c":"say \"x\"","d":"\\\""})"},
      {"a: |\n  x\n    y \n\n  z\nb: 1", R"({"a":"x\n  y \n\nz\n","b":"1"})"},
      {"a: |-\n  x\n  y\n", R"({"a":"x\ny"})"},
      {"a: | x\n  1\n", R"({"a":"1"})"},
      {"a: >\n  x\n  y\n\n  z\n    w\n  v\n", R"({"a":"x y\nz\n  w v\n"})"},
      {"a: >-\n  x\n  y\n", R"({"a":"x y"})"},
      {"a: |-\n  x\n\n\n  y", R"({"a":"x\n\n\ny"})"},
      {"a: >-\n  x\n\n\n  y\n\n    z", R"({"a":"x\n\ny\n\n  z"})"},
      {"a: 'x\\'y'\nb: 'x\\''", R"({"a":"x\\'y","b":"x\\'"})"},
      {"a: |\n\n  x\n", R"({"a":"x\n"})"},
      {"- |\n  x: 1\n- >-\n  - y", R"(["x: 1\n","- y"])"},
      {"a: |-\n  \"x\n  yz", R"({"a":"x\ny"})"},
      {"a: |-\n  '", R"({"a":""})"},
      {"a: |\nb: 1", R"({"a":~,"b":"1"})"},
      {"|\n x\n y", "\"x\\ny\\n\""},
  });
}

TEST(Yaml, Refusals) {
  const std::vector<Case> cases = {
      {"ab~", "parsing: Invalid character found. Line 1 column 3"},
      {"~", "parsing: Invalid character found. Line 1 column 1"},
      {"a: 1\n\nb: \xc3\xa9", "parsing: Invalid character found. Line 3 column 4"},
      {std::string("a\0b", 3), "parsing: Invalid character found. Line 1 column 2"},
      {"a:\n \tb: 1", "parsing: Tab found in offset. Line 2 column 1"},
      {": 1", "parsing: Missing key. Line 1: : 1"},
      {"\"a\" \"b\": 1", "parsing: Incorrect key. Line 1: \"a\" \"b\": 1"},
      {"x \"a\": 1", "parsing: Incorrect key. Line 1: x \"a\": 1"},
      {"\"a:b:c\": 1", "parsing: Incorrect key. Line 1: \"a:b:c\": 1"},
      {"- key:  - x",
       "parsing: Sequence entries are not allowed in this context. Line 1 column 7: key:  - x"},
      {"a: -", "parsing: Sequence entries are not allowed in this context. Line 1 column 4: a: -"},
      {"b: 1\na: |x", "parsing: Invalid block scalar. Line 2: |x"},
      // Behind a key the head is looked at before the lines that follow it, elsewhere after them all.
      {"a: >1\n: 1", "parsing: Invalid block scalar. Line 1: >1"},
      {"- >1\n- : 1", "parsing: Missing key. Line 2: : 1"},
      {"- >1", "parsing: Invalid block scalar. Line 1: >1"},
      {"a: 1\n b: 2\n c: 3\nd: 4\n  e: 5", "none: {\"a\":\"1 b: 2 c: 3\",\"d\":\"4 e: 5\"}"},
      {"a:\n  b: 1\n   c: 2\n d: 3", "parsing: Incorrect offset. Line 4: d"},
      {"- a\n  - b\n - c", "none: [\"a - b - c\"]"},
      {"-\n   a: 1\n  b: 2", "parsing: Incorrect offset. Line 3: b"},
      {"  k: 1\n\n    2\n\n    3", "parsing: Incorrect offset. Line 4: "},
      {"- |\n    x\n  y", "parsing: Incorrect offset. Line 3: y"},
      {"|\nx", "parsing: Incorrect offset. Line 2: x"},
      {"a: \"\"", "parsing: Invalid quote. Line 1: \"\""},
      {"a: 'x # y'", "parsing: Invalid quote. Line 1: 'x "},
      {"a: i'ts", "parsing: Invalid quote. Line 1: i'ts"},
      {"a: 'x' y", "parsing: Invalid quote. Line 1: 'x' y"},
      {"a: 1\n-", "parsing: Unexpected document end. Line 2: -"},
      {"a:\n- 1", "internal: Different entry is not allowed in this context. Line 2: "},
      {"- 1\na: 1", "internal: Different entry is not allowed in this context. Line 2: a"},
      {"  a: 1\nb: 2", "internal: Unexpected document end. Line 2: b"},
  };
  for (const Case& c : cases) EXPECT_EQ(refusal(c.text), c.expected) << c.text;
}

TEST(Yaml, KeepsWhatWasBuiltBeforeARefusal) {
  Yaml::Node root;
  root["old"].make_scalar("x");
  const std::string text = "a: 1\nb: \"\"";
  EXPECT_THROW(Yaml::parse_text(root, text.data(), text.size()), Yaml::ParsingException);
  EXPECT_EQ(dump(root), R"({"a":"1","b":~})");
}

// Any tree of maps, lists and block texts, written out by the rules of the language, reads back as it was.
void write(const Yaml::Node& node, std::size_t indent, std::string& out) {
  const std::string margin(indent, ' ');
  node.for_each_child([&](const std::string& key, const Yaml::Node& child) {
    out += margin + (node.kind() == Yaml::Kind::kMap ? '"' + key + "\":" : "-");
    if (child.kind() == Yaml::Kind::kScalar) {
      out += " |-\n" + margin + "  " + child.text() + "\n";
    } else {
      out += "\n";
      write(child, indent + 1, out);
    }
  });
}

void grow(Yaml::Node& node, unsigned& state, int depth) {
  const auto draw = [&state](unsigned n) {
    return (state = state * 1664525u + 1013904223u) >> 16 & 0x7fff % n;
  };
  const bool map = draw(2) == 0;
  for (unsigned i = 0; i <= draw(4); ++i) {
    Yaml::Node* const child = map ? &node["k: #" + std::to_string(draw(100))] : &node.push_back();
    if (depth < 5 && draw(3) != 0) {
      grow(*child, state, depth + 1);
    } else {
      child->make_scalar("v: - 'x" + std::to_string(draw(1000)) + " ");
    }
  }
}

TEST(Yaml, RoundTripsAnyTree) {
  for (unsigned seed = 0; seed < 200; ++seed) {
    Yaml::Node tree;
    unsigned state = seed;
    grow(tree, state, 0);
    std::string text;
    write(tree, 0, text);
    EXPECT_EQ(parsed(text), dump(tree)) << text;
  }
}

TEST(Yaml, NestingEndsAtItsLimit) {
  const auto lists = [](int depth) {
    std::string text;
    for (int i = 0; i < depth; ++i) text += "-\n";
    return text + "x";
  };
  const auto sections = [](std::size_t depth) {
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) text += std::string(i, ' ') + "a:\n";
    return text + std::string(depth, ' ') + "x";
  };
  std::string closed = "\"x\"";
  for (int i = 0; i < Yaml::kMaxNesting; ++i) closed = "[" + closed + "]";
  EXPECT_EQ(parsed(lists(1000)), closed);
  // Neither reading nor taking apart a tree takes stack for each of its levels.
  testing_support::on_small_stack([&] {
    Yaml::Node root;
    for (const std::string& text : {lists(1000), sections(1000)}) {
      Yaml::parse_text(root, text.data(), text.size());
      EXPECT_EQ(root.size(), 1u);
    }
  });
  EXPECT_EQ(refusal(lists(1001)), "parsing: Incorrect offset. Line 1001: -");
  EXPECT_EQ(refusal(lists(1000000)), "parsing: Incorrect offset. Line 1001: -");
}

TEST(Yaml, NodesChangeKindWhenIndexed) {
  Yaml::Node node;
  node.make_scalar("x");
  EXPECT_EQ(dump(node), R"("x")");
  const Yaml::Node* const kept = &node["b"];
  node["a"].push_back();
  node["\xff"];
  EXPECT_EQ(&node["b"], kept);
  EXPECT_EQ(dump(node), "{\"a\":[~],\"b\":~,\"\xff\":~}");
  EXPECT_EQ(node.size(), 3u);
  EXPECT_EQ(node.text(), "");
  node.push_back();
  EXPECT_EQ(dump(node), "[~]");
}

TEST(Yaml, IteratorsWalkChildrenAndNothingElse) {
  Yaml::Node node;
  EXPECT_FALSE(node.begin() == node.end());
  EXPECT_THROW(*node.begin(), std::logic_error);
  node["b"].make_scalar("2");
  node["a"].make_scalar("1");
  std::string seen;
  for (auto it = node.begin(); it != node.end(); it++) seen += (*it).first + "=" + (*it).second.text() + ";";
  EXPECT_EQ(seen, "a=1;b=2;");
  node.push_back().make_scalar("3");
  EXPECT_EQ((*node.begin()).first, "");
  EXPECT_EQ((*node.begin()).second.text(), "3");
  EXPECT_TRUE(++node.begin() == node.end());
}

}  // namespace
