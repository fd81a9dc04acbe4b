// The tree of a parameter file.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "inspect/Inspection.h"
#include "support/TempDir.h"

namespace {

using inspect_test::inspect_json;
using inspect_test::inspect_text;
using inspect_test::Json;
using inspect_test::run_inspect;
using testing_support::TempDir;

TEST(InspectParams, ShowsEveryKindOfNode) {
  const TempDir dir;
  struct Case {
    const char* text;
    const char* tree;
  };
  const Case cases[] = {
      {"", "null"},
      {"plain", "\"plain\""},
      {"b: 2\na: \"x y\"\nB: -1\n", R"({"B": "-1", "a": "x y", "b": "2"})"},
      {"list:\n  - 1\n  - k: v\n", R"({"list": ["1", {"k": "v"}]})"},
      {"s: [1, 2 ,,3]\n", R"({"s": ["1", " 2 ", "3"]})"},
      {"deep:\n  er:\n    est: |\n      one\n      two\n", R"({"deep": {"er": {"est": "one\ntwo\n"}}})"},
      {"q: \"a: b # c\"\n", R"({"q": "a: b # c"})"},
  };
  for (const Case& each : cases) {
    // The file and the text itself are one source.
    for (const std::string& source : {dir.write("params.yaml", each.text), std::string(each.text)}) {
      const Json json = inspect_json({"params", source});
      EXPECT_EQ(json.at("loaded"), true) << each.text;
      EXPECT_EQ(json.at("error"), nullptr);
      EXPECT_EQ(json.at("tree"), Json::parse(each.tree)) << each.text;
    }
  }
}

TEST(InspectParams, ShowsKeysInByteOrder) {
  EXPECT_EQ(inspect_text({"params", "z: 1\na: 2\nZ: 3\n_: 4\n"}),
            "{\"loaded\": true, \"error\": null, \"tree\": {\"Z\": \"3\", \"_\": \"4\", \"a\": \"2\", \"z\": "
            "\"1\"}}\n");
}

TEST(InspectParams, TellsWhyADocumentDoesNotParse) {
  const TempDir dir;
  struct Case {
    const char* text;
    const char* message;
  };
  const Case cases[] = {{"a: \"b\n", "Invalid quote."}, {"a: 1\n\tb: 2\n", "Tab found in offset."}};
  for (const Case& each : cases) {
    for (const std::string& source : {dir.write("params.yaml", each.text), std::string(each.text)}) {
      const Json json = inspect_json({"params", source});
      EXPECT_EQ(json.at("loaded"), false);
      EXPECT_EQ(json.at("error").at("class"), "ParsingException");
      EXPECT_EQ(json.at("error").at("message").get<std::string>().find(each.message), 0u) << json;
      EXPECT_EQ(json.at("tree"), nullptr);
    }
  }
}

// The system refuses names of that length; a text may have it.
TEST(InspectParams, TakesTextsThatAreTooLongForAName) {
  const std::string value(6000, 'v');
  EXPECT_EQ(inspect_json({"params", "k: " + value}).at("tree").at("k"), value);
  EXPECT_EQ(inspect_json({"params", "k: \"" + value}).at("error").at("class"), "ParsingException");
}

TEST(InspectParams, WritesToAFileInPlaceOfStandardOutput) {
  const TempDir dir;
  const std::string out = dir.file("tree.json");
  const std::string source = dir.write("params.yaml", "a: 1\n");
  const std::string document = inspect_text({"params", source});
  EXPECT_EQ(inspect_text({"params", source, "-o", out}), "");
  EXPECT_EQ(testing_support::read_file(out), document);
  EXPECT_EQ(run_inspect({"params", source, "-o", source}).exit_code, 2);
  EXPECT_EQ(run_inspect({"params", dir.path().string()}).exit_code, 3);
  EXPECT_EQ(run_inspect({"params"}).exit_code, 2);
}

}  // namespace
