#include "params/ParamDocument.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <locale>
#include <string>
#include <vector>

#include "support/TempDir.h"

namespace {

using namespace twintrue;
using testing::ElementsAre;

constexpr std::int32_t kIntMin = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kIntMax = std::numeric_limits<std::int32_t>::max();

// The document of one key `k` with that scalar.
ParamNode scalar(ParamDocument& document, const std::string& text) {
  document.root["k"].make_scalar(text);
  return param_root_child(document, "k");
}

std::vector<std::string> texts(const ParamNode& node) {
  std::vector<std::string> all;
  for (auto it = param_begin(node); it != param_end(node); it++) all.push_back((*it).second.text());
  return all;
}

TEST(ParamDocument, OpensAFileOrTheTextItself) {
  const testing_support::TempDir folder;
  ParamDocument from_text;
  ASSERT_TRUE(param_document_open(from_text, "a: 1"));
  EXPECT_EQ(param_text(param_root_child(from_text, "a")), "1");
  EXPECT_TRUE(from_text.loaded);

  ParamDocument from_file;
  ASSERT_TRUE(param_document_open(from_file, folder.write("settings.yml", "a: 2\n")));
  EXPECT_EQ(param_text(param_root_child(from_file, "a")), "2");

  // No system takes names of these lengths, so nothing can have them.
  for (const std::size_t length : {256u, 5000u, 1u << 20}) {
    ParamDocument from_long_text;
    ASSERT_TRUE(param_document_open(from_long_text, "a: " + std::string(length, 'x')));
    EXPECT_EQ(param_text(param_root_child(from_long_text, "a")).size(), length);
  }

  ParamDocument empty;
  EXPECT_TRUE(param_document_open(empty, ""));
  EXPECT_EQ(empty.root.kind(), Yaml::Kind::kNone);
}

TEST(ParamDocument, RefusesWhatItCannotRead) {
  const testing_support::TempDir folder;
  ParamDocument document;
  EXPECT_FALSE(param_document_open(document, "a: 'b"));
  EXPECT_FALSE(param_document_open(document, folder.path().string()));
  EXPECT_THROW(param_document_open(document, folder.write("bad.yml", "a: 'b")), Yaml::ParsingException);
  std::filesystem::create_symlink("circle", folder.file("circle"));
  EXPECT_THROW(param_document_open(document, folder.file("circle")), std::filesystem::filesystem_error);
  EXPECT_THROW(param_document_open(document, "/proc/self/mem"), std::filesystem::filesystem_error)
      << "what can't be read is not what is missing";

  const std::string large = folder.write("large.yml", "a: 1\n");
  std::filesystem::resize_file(large, (std::size_t{64} << 20) + 1);
  EXPECT_FALSE(param_document_open(document, large));
  EXPECT_FALSE(document.loaded);
}

TEST(ParamDocument, ExpandsInlineLists) {
  const struct {
    std::string text;
    std::vector<std::string> pieces;  // none: it stays a scalar
  } cases[] = {
      {"[1, 2, 3]", {"1", " 2", " 3"}},
      {"\"[1,2]\"", {"1", "2"}},
      {"ab[1,2]", {"1", "2]"}},
      {"x ] [ 1,2", {" "}},
      {"][1,2", {"1", "2"}},
      {"[[1,2],[3]]", {"[1", "2"}},
      {"[,1,,2,]", {"1", "2"}},
      {"[ ]", {" "}},
      {"[]", {}},
      {"[,]", {}},
      {"[1", {}},
  };
  for (const auto& c : cases) {
    ParamDocument document;
    ASSERT_TRUE(param_document_open(document, "m:\n  - k: " + c.text)) << c.text;
    const ParamNode list = param_root_child(document, "m");
    const ParamNode node = param_child({"", &(*param_begin(list)).second}, "k");
    EXPECT_EQ(param_is_sequence(node), !c.pieces.empty()) << c.text;
    if (!param_is_sequence(node)) continue;
    EXPECT_EQ(texts(node), c.pieces) << c.text;
  }
}

TEST(ParamDocument, LookingUpChangesTheTree) {
  ParamDocument document;
  ASSERT_TRUE(param_document_open(document, "a: 1\nb:"));
  EXPECT_FALSE(param_is_none(param_root_child(document, "b")));
  EXPECT_TRUE(param_is_none(param_root_child(document, "c")));
  EXPECT_EQ(document.root.size(), 3u);
  const ParamNode a = param_root_child(document, "a");
  EXPECT_TRUE(param_is_none(param_child(a, "x")));
  EXPECT_TRUE(param_is_map(a));
  EXPECT_EQ(param_text(a), "");
}

// A global locale in which numbers look different: extraction must not follow it.
struct CommaNumbers : std::numpunct<char> {
  char do_decimal_point() const override { return ','; }
  char do_thousands_sep() const override { return '.'; }
  std::string do_grouping() const override { return "\3"; }
};

TEST(ParamDocument, ExtractsLikeAStreamInTheClassicLocale) {
  const std::locale before = std::locale::global(std::locale(std::locale::classic(), new CommaNumbers));
  const struct {
    std::string text;
    std::int32_t as_int;  // -7 where the read fails
    float as_float;
    double as_double;
  } cases[] = {
      {"12abc", 12, 12.0f, 12.0},
      {" \t-3", -3, -3.0f, -3.0},
      {"1.5", 1, 1.5f, 1.5},
      {"1.234,5", 1, 1.234f, 1.234},
      {"0x10", 0, 0.0f, 0.0},
      {"1e3", 1, 1e3f, 1e3},
      {"", -7, -7.0f, -7.0},
      {"x1", -7, -7.0f, -7.0},
      {"nan", -7, -7.0f, -7.0},
      {"2147483647", kIntMax, 2147483647.0f, 2147483647.0},
      {"2147483648", -7, 2147483648.0f, 2147483648.0},
      {"-2147483649", -7, -2147483649.0f, -2147483649.0},
      {"1e39", 1, -7.0f, 1e39},
      {"1e400", 1, -7.0f, -7.0},
  };
  for (const auto& c : cases) {
    ParamDocument document;
    const ParamNode node = scalar(document, c.text);
    std::int32_t i = -7;
    float f = -7.0f;
    double d = -7.0;
    param_get_int(node, &i, &i);
    param_get_float(node, &f, &f);
    param_get_double(node, &d, &d);
    EXPECT_EQ(i, c.as_int) << c.text;
    EXPECT_EQ(f, c.as_float) << c.text;
    EXPECT_EQ(d, c.as_double) << c.text;
  }
  std::locale::global(before);
}

TEST(ParamDocument, ScaledReadsTellWhetherAValueWasThere) {
  const struct {
    std::string text;
    double scale;
    double fallback;
    bool int_given;
    std::int32_t as_int;
    bool double_given;
    double as_double;
  } cases[] = {
      {"7", 0.5, 1.0, true, 3, true, 3.5},
      {"-7", 0.5, 1.0, true, -3, true, -3.5},
      {"x", 2.0, -1.75, false, -1, false, -1.75},
      {"", 2.0, 1e10, false, kIntMin, false, 1e10},
      {"2147483647", 1.0, 5.5, false, 5, true, 2147483647.0},
      {"2147483646", 2.0, 5.5, true, kIntMin, true, 4294967292.0},
      {"1.7976931348623157e+308", 2.0, 5.5, true, 2, false, 5.5},
  };
  for (const auto& c : cases) {
    ParamDocument document;
    const ParamNode node = scalar(document, c.text);
    std::int32_t i = 99;
    double d = 99.0;
    EXPECT_EQ(param_read_int_scaled(node, &i, c.scale, c.fallback), c.int_given) << c.text;
    EXPECT_EQ(param_read_double_scaled(node, &d, c.scale, c.fallback), c.double_given) << c.text;
    EXPECT_EQ(i, c.as_int) << c.text;
    EXPECT_EQ(d, c.as_double) << c.text;
  }
}

TEST(ParamDocument, LevelsComeFromOneValueOrAList) {
  const Broadcast other = static_cast<Broadcast>(2);
  const struct {
    std::string document;
    Broadcast mode;
    bool hold_last;
    std::vector<double> start;  // entries 0, 1, 2, 3 of the result; entry 3 stands for all that follow
  } cases[] = {
      {"k: [1, 2, 3]", Broadcast::kAlways, false, {1, 2, 3, 1}},
      {"k: [1, 2, 3]", other, true, {1, 2, 3, 3}},
      {"k: [1, x, 1e400]", Broadcast::kIfGiven, true, {1, 0, 0, 0}},
      {"k: [x, 2.5]", Broadcast::kIfGiven, false, {0, 2.5, 0, 0}},
      {"k:\n  - 4\n  - a: 1\n  -\n    - 5", Broadcast::kAlways, false, {4, 0, 0, 4}},
      {"k: 7", Broadcast::kAlways, false, {7, 7, 7, 7}},
      {"k: 7", Broadcast::kIfGiven, true, {7, 7, 7, 7}},
      {"k: 7", other, false, {10, 11, 12, 13}},
      {"k: x", Broadcast::kAlways, false, {10, 10, 10, 10}},
      {"k: x", Broadcast::kIfGiven, false, {10, 11, 12, 13}},
      {"j: 1", Broadcast::kIfGiven, false, {10, 11, 12, 13}},
      {"k:\n  a: 1", Broadcast::kAlways, false, {10, 10, 10, 10}},
  };
  for (const auto& c : cases) {
    std::int32_t ints[kParamLevels] = {10, 11, 12};
    double doubles[kParamLevels] = {10, 11, 12};
    std::fill(ints + 3, ints + kParamLevels, 13);
    std::fill(doubles + 3, doubles + kParamLevels, 13.0);
    ParamDocument document;
    ASSERT_TRUE(param_document_open(document, c.document));
    const ParamNode root{"", &document.root};
    param_read_int_levels(root, "k", ints, c.mode);
    param_read_double_levels(root, "k", doubles, c.mode, c.hold_last);
    for (std::size_t i = 0; i < kParamLevels; ++i) {
      const double expected = c.start[std::min<std::size_t>(i, 3)];
      EXPECT_EQ(doubles[i], expected) << c.document << " at " << i;
      if (c.hold_last) continue;
      EXPECT_EQ(ints[i], static_cast<int>(expected)) << c.document << " at " << i;
    }
  }
}

TEST(ParamDocument, IntegerLevelsGoBackToTheFirstAndStayInRange) {
  ParamDocument document;
  std::string list = "k: [-1.9, 3e9, -1e300";
  for (int i = 3; i < 30; ++i) list += ", " + std::to_string(i);
  ASSERT_TRUE(param_document_open(document, list + "]\ns: [2147483647, 6]"));
  std::int32_t out[kParamLevels + 1] = {};
  out[kParamLevels] = 77;
  const ParamNode root{"", &document.root};
  param_read_int_levels(root, "k", out, Broadcast::kAlways);
  EXPECT_THAT(std::vector<std::int32_t>(out, out + 4), ElementsAre(-1, kIntMin, kIntMin, 3));
  EXPECT_EQ(out[kParamLevels - 1], kParamLevels - 1);
  EXPECT_EQ(out[kParamLevels], 77);
  param_read_int_levels(root, "s", out, Broadcast::kAlways);
  EXPECT_THAT(std::vector<std::int32_t>(out, out + 3), ElementsAre(kIntMax, 6, kIntMax));
}

}  // namespace
