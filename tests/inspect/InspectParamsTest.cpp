// The tree of a parameter file.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <utility>

#include "inspect/Inspection.h"
#include "support/TempDir.h"

namespace {

using inspect_test::inspect_json;
using inspect_test::inspect_text;
using inspect_test::Json;
using inspect_test::run_inspect;
using testing_support::TempDir;

// A file and the text itself are one source. The system refuses names as long as the last text.
TEST(InspectParams, ShowsTheTreeOrWhyThereIsNone) {
  const TempDir dir;
  const std::string value(6000, 'v');
  const std::pair<std::string, std::string> trees[] = {
      {"", "null"},
      {"b: 2\nlist:\n  - k: \"a: b # c\"\n  - [1, 2 ,,3]\nB: -1\n",
       R"({"B": "-1", "b": "2", "list": [{"k": "a: b # c"}, ["1", " 2 ", "3"]]})"},
      {"k: " + value, "{\"k\": \"" + value + "\"}"},
  };
  for (const auto& [text, tree] : trees) {
    for (const std::string& source : {dir.write("params.yaml", text), text}) {
      EXPECT_EQ(inspect_text({"params", source}),
                "{\"loaded\": true, \"error\": null, \"tree\": " + tree + "}\n");
    }
  }
  for (const std::string& text : {std::string("a: \"b\n"), "k: \"" + value}) {
    for (const std::string& source : {dir.write("params.yaml", text), text}) {
      const Json json = inspect_json({"params", source});
      EXPECT_EQ(json.at("loaded"), false);
      EXPECT_EQ(json.at("error").at("class"), "ParsingException");
      EXPECT_EQ(json.at("error").at("message").get<std::string>().find("Invalid quote."), 0u) << json;
      EXPECT_EQ(json.at("tree"), nullptr);
    }
  }
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
