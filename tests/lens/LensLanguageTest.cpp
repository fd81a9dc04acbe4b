#include "lens/LensLanguage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <locale.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "lens/LensNumbers.h"
#include "support/SmallStack.h"
#include "support/TempDir.h"

namespace twintrue {
namespace {

using testing_support::TempDir;

struct Loaded {
  int result = 0;
  std::string output;
  std::string content;  // every item as "section.item type value ", in order of creation
};

std::string content_of(const ini_store& store) {
  std::string content;
  for (const ini_section& section : store.sections) {
    for (const ini_item& item : section.items) {
      content += section.name + "." + item.name + " " + std::to_string(item.type) + " " + item.value + "\n";
    }
  }
  return content;
}

class Language : public testing::Test {
 protected:
  Language() { store.current = &ini_open_section(store, "@default"); }

  Loaded load_file(const std::string& path) {
    Loaded loaded;
    testing::internal::CaptureStdout();
    loaded.result = ini_load(store, path);
    loaded.output = testing::internal::GetCapturedStdout();
    loaded.content = content_of(store);
    return loaded;
  }

  Loaded load(const std::string& text) { return load_file(dir.write("text.lens", text)); }

  TempDir dir;
  ini_store store;
};

struct Case {
  std::string text;
  std::string content;
  std::string output;
};

// Loads each text into a store of its own and looks at all that it leaves and prints.
void expect_cases(const std::vector<Case>& cases) {
  const TempDir dir;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 200));
    ini_store store;
    store.current = &ini_open_section(store, "@default");
    ini_section* const entered_with = store.current;
    testing::internal::CaptureStdout();
    const int result = ini_load(store, dir.write("case.lens", c.text));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.output);
    EXPECT_EQ(result, 1);
    EXPECT_EQ(content_of(store), c.content);
    EXPECT_EQ(store.current, entered_with);
  }
}

std::string in_default(const std::string& rest) { return "@default." + rest + "\n"; }
std::string not_found(int line) {
  return "ERROR: Not found ';' after expression in " + std::to_string(line) + ".\n";
}
std::string bad_operand(const char* op, int line) {
  return std::string("ERROR: Invalid type of operand on operator '") + op + "' in " + std::to_string(line) +
         ".\n";
}
const std::string kZeros30(30, '0');
const std::string kZeros29(29, '0');

TEST(LensLanguage, Literals) {
  expect_cases({
      {"x = 1_000;", in_default("x 2 1000"), ""},
      {"x = 0xFF; y = 0X1_0;", in_default("x 2 255") + in_default("y 2 16"), ""},
      {"x = 0xff;", in_default("x 2 0"), not_found(1)},
      {"x = 0b1_01; y = 017; z = 0x; w = 0;",
       in_default("x 2 5") + in_default("y 2 15") + in_default("z 2 0") + in_default("w 2 0"), ""},
      {"x = 09;", in_default("x 2 0"), not_found(1)},
      {"x = 1e5;", in_default("x 2 1"), not_found(1)},
      {"x = 18446744073709551615;", in_default("x 2 -1"), ""},
      {"x = 9223372036854775808;", in_default("x 2 -9223372036854775808"), ""},
      {"x = 1_000.5; y = 1.; z = _.5;",
       in_default("x 3 1." + kZeros30) + in_default("y 3 1." + kZeros30) + in_default("z 3 0." + kZeros30),
       ""},
      {"x = .5;", in_default("x 0 0"), not_found(1)},
      {R"(s = "a\tb\"\\\q" + "c";)", in_default("s 4 a\tb\"\\qc"), ""},
      // The byte behind the lead byte of a two-byte character ends no string and escapes nothing.
      {"s = \"\x83\x5c\x81\"\";", in_default("s 4 \x83\x5c\x81\""), ""},
      {"s = \"open", in_default("s 4 open"), not_found(0)},
      {"s = \"open\\", in_default("s 4 open"), not_found(0)},
      {std::string("x = 1;\0y = 2;", 13), in_default("x 2 1"), ""},
  });
}

TEST(LensLanguage, TokensAtTheirBoundaries) {
  const auto unknown = [](int line) { return "ERROR: Unknown charactor in " + std::to_string(line) + ".\n"; };
  expect_cases({
      {"", "", ""},
      {"x =1; y =-1; z =(2); s =\"a\";",
       in_default("x 2 1") + in_default("y 2 -1") + in_default("z 2 2") + in_default("s 4 a"), ""},
      {"x = 5; y = 1;\n x =y;", in_default("x 2 5") + in_default("y 2 1"), unknown(2) + not_found(0)},
      {"x = 1 <y;", in_default("x 2 1"), unknown(1) + not_found(0)},
      {"y = 2; x = 1 !=y;", in_default("y 2 2") + in_default("x 2 1"), ""},
      {"x =", in_default("x 2 "), unknown(1) + not_found(0)},
      {"print(1); print 1;", "",
       "1\n" + std::string("ERROR: There is insufficient '(' in 1.\n") + not_found(1)},
      {"printer = 1; print_x = 2;", in_default("printer 2 1") + in_default("print_x 2 2"), ""},
      {"x = 1; {", in_default("x 2 1"), unknown(1)},
      {"x = 1, y = 2;", in_default("x 2 1"), unknown(1) + not_found(0)},
      {"# no comment", "", unknown(1)},
      {"x = 1; // y = 2;\n/* z = 3; * / **/ w = 4; /*/ v = 5;", in_default("x 2 1") + in_default("w 2 4"),
       ""},
      {"x = 8 / 2; /", in_default("x 2 4"), bad_operand("/", 0) + not_found(0)},
      {"2 ** 3;", "", not_found(1)},
      {"_x = 1;", "", unknown(1)},
      {"int = 1;", "", "ERROR: There is insufficient '(' in 1.\n" + not_found(1)},
  });
}

TEST(LensLanguage, LinesInMessages) {
  const auto at = [](int line) { return not_found(line); };
  expect_cases({
      {"a = 1; )", in_default("a 2 1"), at(1)},
      {"a = 1;\n\n)", in_default("a 2 1"), at(3)},
      // A newline right behind a run of digits is seen twice.
      {"a = 1\n;)", in_default("a 2 1"), at(3)},
      {"a = 017\n;)", in_default("a 2 15"), at(3)},
      {"a = 1.5\n;)", in_default("a 3 1.5" + kZeros29), at(3)},
      {"a = 1.\n;)", in_default("a 3 1." + kZeros30), at(2)},
      {"a = 0xFF\n;)", in_default("a 2 255"), at(2)},
      {"a = 1 \n;)", in_default("a 2 1"), at(2)},
      // Newlines in a string too, and the one that ends it.
      {"a = \"x\n;)", in_default("a 4 x"), at(3)},
      {"a = \"x\\\ny\";)", in_default("a 4 x\ny"), at(3)},
      {"/* \n *\n */ )", "", at(3)},
  });
}

TEST(LensLanguage, Statements) {
  expect_cases({
      {"[a] x = 1; [b] x = 2; [A] y = 3;", "a.x 2 1\na.y 2 3\nb.x 2 2\n", ""},
      {"[a] X = 1; x = 2;", "a.X 2 2\n", ""},
      {"[1] x = 2;", in_default("x 2 2"), "ERROR: Illegal section name [1] in 1.\n" + not_found(1)},
      {"[a; x = 1;", "a.x 2 1\n", "ERROR: Illegal section name ';' in 1.\n"},
      {"[", "", "ERROR: Illegal section name [] in 0.\n"},
      {"x = 1", in_default("x 2 1"), not_found(0)},
      {"x = 1 2; y = 3;", in_default("x 2 1") + in_default("y 2 3"), not_found(1)},
      {"b.x = 1; b.y = b.x + 1;", "b.x 2 1\nb.y 2 2\n", ""},
      {"b.1;", "",
       "ERROR: Illegal item name 'b.1' in 1.\nERROR: Illegal item name 'b.1' in 1.\n" + not_found(1) +
           not_found(1)},
      {"x = y = 2;", in_default("x 2 2") + in_default("y 2 2"), ""},
      {"x = ;", in_default("x 0 0"), ""},
      {"x;", in_default("x 2 "), ""},
      {";;", "", ""},
  });
}

// Every pair of neighbours, with each unary operator in front of the operand between them: the tighter one
// goes first, and of equals the one on the left.
TEST_F(Language, NeighbouringOperatorsBindAsTheirLevelsSay) {
  using Integer = std::int64_t;
  const struct {
    const char* sign;
    int level;
    Integer (*of)(Integer, Integer);
  } binary[] = {
      {"||", 1, [](Integer a, Integer b) -> Integer { return a != 0 || b != 0; }},
      {"&&", 2, [](Integer a, Integer b) -> Integer { return a != 0 && b != 0; }},
      {"|", 3, [](Integer a, Integer b) { return a | b; }},
      {"^", 4, [](Integer a, Integer b) { return a ^ b; }},
      {"&", 5, [](Integer a, Integer b) { return a & b; }},
      {"==", 6, [](Integer a, Integer b) -> Integer { return a == b; }},
      {"!=", 6, [](Integer a, Integer b) -> Integer { return a != b; }},
      {"<", 7, [](Integer a, Integer b) -> Integer { return a < b; }},
      {"<=", 7, [](Integer a, Integer b) -> Integer { return a <= b; }},
      {">", 7, [](Integer a, Integer b) -> Integer { return a > b; }},
      {">=", 7, [](Integer a, Integer b) -> Integer { return a >= b; }},
      {"<<", 8, [](Integer a, Integer b) { return a << (b & 63); }},
      {">>", 8, [](Integer a, Integer b) { return a >> (b & 63); }},
      {"+", 9, [](Integer a, Integer b) { return a + b; }},
      {"-", 9, [](Integer a, Integer b) { return a - b; }},
      {"*", 10, [](Integer a, Integer b) { return a * b; }},
      {"/", 10, [](Integer a, Integer b) { return b == 0 ? a : a / b; }},
      {"%", 10, [](Integer a, Integer b) { return b == 0 ? a : a % b; }},
  };
  const struct {
    const char* sign;
    Integer (*of)(Integer);
  } unary[] = {{"+", [](Integer a) { return a; }},
               {"-", [](Integer a) { return -a; }},
               {"~", [](Integer a) { return ~a; }},
               {"!", [](Integer a) -> Integer { return a == 0; }}};
  constexpr Integer kOperands[][3] = {{6, 3, 2}, {1, 4, 3}, {7, 0, 5}, {2, 2, 0}};
  std::string text;
  std::vector<std::string> expected;
  for (const auto& first : binary) {
    for (const auto& second : binary) {
      for (const auto& sign : unary) {
        for (const auto& [a, b, c] : kOperands) {
          const Integer between = sign.of(b);
          text += "x = " + std::to_string(a) + ' ' + first.sign + ' ' + sign.sign + ' ' + std::to_string(b) +
                  ' ' + second.sign + ' ' + std::to_string(c) + "; print(x);\n";
          expected.push_back(std::to_string(second.level > first.level ? first.of(a, second.of(between, c))
                                                                       : second.of(first.of(a, between), c)));
        }
      }
    }
  }
  const std::string printed = load(text).output;
  std::istringstream lines(printed);
  std::size_t at = 0;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("ERROR: Divided by zero")) continue;
    ASSERT_LT(at, expected.size());
    ASSERT_EQ(line, expected[at]) << "statement " << at;
    ++at;
  }
  EXPECT_EQ(at, expected.size());
  EXPECT_EQ(at, 18u * 18 * 4 * 4);
}

TEST(LensLanguage, Operators) {
  expect_cases({
      {"a = 1 + 0.5; b = 3 / 2.0; c = 2 < 2.5;",
       in_default("a 3 1.5" + kZeros29) + in_default("b 3 1.5" + kZeros29) + in_default("c 2 1"), ""},
      {"a = 1 << 65; b = -8 >> 1; c = ~0; d = !5; e = - - 3; f = !0.5;",
       in_default("a 2 2") + in_default("b 2 -4") + in_default("c 2 -1") + in_default("d 2 0") +
           in_default("e 2 3") + in_default("f 3 0." + kZeros30),
       ""},
      {"a = 0x7FFFFFFFFFFFFFFF + 1; b = a / -1; c = a % -1; d = -a;",
       in_default("a 2 -9223372036854775808") + in_default("b 2 -9223372036854775808") + in_default("c 2 0") +
           in_default("d 2 -9223372036854775808"),
       ""},
      {"a = 7 / 0; b = 7 % 0; c = 7.5 / 0; d = 7 / 0.0;",
       in_default("a 2 7") + in_default("b 2 7") + in_default("c 3 7.5" + kZeros29) +
           in_default("d 3 0." + kZeros30),
       "ERROR: Divided by zero in 1.\nERROR: Divided by zero in 1.\nERROR: Divided by zero in 1.\n"
       "ERROR: Divided by zero in 1.\n"},
      {"a = 7.0 % 2;", in_default("a 3 0." + kZeros30), bad_operand("%", 1)},
      {"a = 7.5 % 2 + 1;", in_default("a 3 1." + kZeros30), bad_operand("%", 1)},
      {"a = \"ab\" - \"cd\";", in_default("a 4 abcd"), ""},
      {"s = \"12\"; t = s + 1;", in_default("s 4 12") + in_default("t 4 12"), bad_operand("+", 1)},
      {"a = 1.5 & 1;", in_default("a 3 1.5" + kZeros29), bad_operand("&", 1)},
      {"a = 1 && 2.0 || 1;", in_default("a 2 1"), bad_operand("&&", 1)},
      // Behind a type error the same level looks for no more operators, looser ones go on.
      {"a = \"x\" * 2 * 3; b = 4;", in_default("a 4 x") + in_default("b 2 4"),
       bad_operand("*", 1) + not_found(1)},
      {"a = \"x\" * 2 + \"y\";", in_default("a 4 xy"), bad_operand("*", 1)},
      {"a = 1 + \"x\" * 2 * 3;", in_default("a 2 1"),
       bad_operand("*", 1) + bad_operand("+", 1) + not_found(1)},
      {"a = ~1.5; b = -\"x\"; c = !\"\";",
       in_default("a 3 1.5" + kZeros29) + in_default("b 4 x") + in_default("c 4 "),
       bad_operand("~", 1) + bad_operand("-", 1) + bad_operand("!", 1)},
      {"a = ( ) + 1;", in_default("a 0 0"), bad_operand("+", 1)},
      {"n = int(\"nan\"); f = \"nan\"; ", in_default("n 2 0") + in_default("f 4 nan"), ""},
  });
}

TEST(LensLanguage, ConditionalEvaluatesBothBranches) {
  expect_cases({
      {"a = 1 ? print(1) : print(2);", in_default("a 2 1"), "1\n2\n"},
      {"a = 0 ? 1 : 0 ? 2 : 3;", in_default("a 2 3"), ""},
      {"a = \"\" ? 1 : 2.5; b = -0.1 ? \"y\" : 2;", in_default("a 3 2.5" + kZeros29) + in_default("b 4 y"),
       ""},
      {"1 ? a = 2 : 3;", in_default("a 2 "),
       "ERROR: operator '?:' without ':' in 1.\n" + not_found(1) + not_found(1)},
  });
}

TEST(LensLanguage, Calls) {
  expect_cases({
      {"print(hex(255)); print(255); print(1.5); print(\"s\");", "", "FF255\n1.5000000000\ns"},
      {"a = hex(0); b = hex(-1); c = bin(5); d = bin(0);",
       in_default("a 4 0") + in_default("b 4 FFFFFFFFFFFFFFFF") + in_default("c 4 101") + in_default("d 4 0"),
       ""},
      {"a = hex(1.5); b = bin(\"x\"); c = hex(\"x\"); d = bin(2.5);",
       in_default("a 3 1.5" + kZeros29) + in_default("b 4 x") + in_default("c 4 x") +
           in_default("d 3 2.5" + kZeros29),
       "ERROR: Illegal parameter, \"hex( FLOAT )\" in 1.\nERROR: Illegal parameter, \"bin( STRING )\" in 1.\n"
       "ERROR: Illegal parameter, \"hex( STRING )\" in 1.\nERROR: Illegal parameter, \"bin( FLOAT )\" in "
       "1.\n"},
      {"a = int(-2.9); b = int(\" 12x\"); c = str(1.5) + str(7) + str(\"s\"); d = int();",
       in_default("a 2 -2") + in_default("b 2 12") + in_default("c 4 1.50000000007s") + in_default("d 2 0"),
       ""},
      {"a = int(99999999999999999999.0); b = int(0.0 - 99999999999999999999.0);",
       in_default("a 2 -9223372036854775808") + in_default("b 2 -9223372036854775808"), ""},
      {"print(5;", "", "ERROR: There is insufficient ')' in 1.\n5\n"},
      {"a = (1 + 2 ;", in_default("a 2 3"), "ERROR: There is insufficient ')' in 1.\n"},
      {"a = hex 5;", in_default("a 0 0"), "ERROR: There is insufficient '(' in 1.\n" + not_found(1)},
  });
}

TEST(LensLanguage, MemberOfAnotherSection) {
  expect_cases({
      {"[a] x = 1.5; [b] y = \"A\" -> x; int =1;", "a.x 3 1.5" + kZeros29 + "\nb.y 3 1.5" + kZeros29 + "\n",
       "ERROR: There is insufficient '(' in 1.\n" + not_found(1)},
      {"[a] x = 1; [b] y = \"a\" -> z;", "a.x 2 1\nb.y 2 0\n", ""},
      {"y = \"no\" -> z;", in_default("y 4 no"),
       "ERROR: Operator -> left operand is invalid section \"no\" in 1.\n" + not_found(1)},
      {"y = 1 -> z;", in_default("y 2 1"), "ERROR: Operator -> left operand is NULL in 1.\n" + not_found(1)},
      {"y = \"@default\" ->", in_default("y 2 0"), not_found(0)},
      {"[a] x = \"a\"; y = \"a\" -> x -> x;", "a.x 4 a\na.y 4 a\n", not_found(1)},
      // An operator leaves the string part of its left side alone.
      {"s = \"@default\"; n = 5; n2 = (n + 1) -> n;",
       in_default("s 4 @default") + in_default("n 2 5") + in_default("n2 2 6"),
       "ERROR: Operator -> left operand is invalid section \"5\" in 1.\n" + not_found(1)},
  });
}

TEST_F(Language, ReadersConvertAndWarn) {
  load("i = 4294967297; f = -3.9; s = \"12.75x\"; big = \"99999999999999999999\"; far = 5000000000.0;");
  testing::internal::CaptureStdout();
  EXPECT_EQ(ini_get(store, "I"), 1);
  EXPECT_EQ(ini_get(store, "f"), -3);
  EXPECT_EQ(ini_get(store, "s"), 12);
  EXPECT_EQ(ini_get(store, "big"), -1);
  EXPECT_EQ(ini_get(store, "far"), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(ini_get(store, "none"), 0);
  EXPECT_EQ(ini_get_double(store, "i"), 4294967297.0);
  EXPECT_EQ(ini_get_double(store, "S"), 12.75);
  EXPECT_EQ(ini_get_double(store, "none"), 0.0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "WARNNING: ini_get() read double item @default.f\n"
            "WARNNING: ini_get() read string item @default.s\n"
            "WARNNING: ini_get() read string item @default.big\n"
            "WARNNING: ini_get() read double item @default.far\n"
            "WARNNING: ini_get() read string item @default.s\n");
}

TEST_F(Language, StoreAddsUpOverLoads) {
  load("[a] x = 1;");
  EXPECT_EQ(load("[a] y = x + 1;").content, "a.x 2 1\na.y 2 2\n");
  EXPECT_EQ(ini_find_section(store, "b"), nullptr);
  EXPECT_EQ(&ini_open_section(store, "A"), ini_find_section(store, "a"));
  EXPECT_EQ(store.sections.size(), 2u);
  ini_free(store);
  EXPECT_EQ(ini_find_section(store, "a"), nullptr);
}

TEST_F(Language, ScrambledFiles) {
  std::string text = "[a] x = 41 + 1;";
  const std::string plain = text;
  pin_scramble(text);
  EXPECT_NE(text, plain);
  EXPECT_EQ(load_file(dir.write("lens.PiN", text)).content, "a.x 2 42\n");
  pin_scramble(text);
  EXPECT_EQ(text, plain);
  std::string zeros(8, '\0');
  pin_scramble(zeros);
  EXPECT_EQ(zeros, "\xfb\x5d\xc4\xa2\xfc\x66\xbd\xa4");

  EXPECT_EQ(load_file(dir.write("lens.pin.txt", "b.y = 1;")).content, "a.x 2 42\nb.y 2 1\n");
  EXPECT_EQ(load_file(dir.write("empty.pin", "")).result, 1);
}

TEST_F(Language, UnreadableFiles) {
  const std::string missing = dir.file("missing.lens");
  Loaded loaded = load_file(missing);
  EXPECT_EQ(loaded.result, 0);
  EXPECT_EQ(loaded.output, "ERROR: Cannot read the \"" + missing + "\".\n");
  EXPECT_EQ(load_file(dir.path().string()).result, 0);
  EXPECT_EQ(load_file("/proc/self/mem").result, 0) << "a read error is no end of the file";

  const std::string large = dir.write("large.lens", std::string((4u << 20) + 1, ';'));
  loaded = load_file(large);
  EXPECT_EQ(loaded.result, 0);
  EXPECT_EQ(loaded.output, "ERROR: Not enough memory.\nERROR: Cannot read the \"" + large + "\".\n");
}

TEST_F(Language, HostileFilesEnd) {
  const auto repeated = [](const std::string& text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
  };
  // A thousand levels are evaluated, the next one isn't.
  EXPECT_EQ(load("d = " + repeated("(", 1000) + "7" + repeated(")", 1000) + ";").output, "");
  EXPECT_EQ(ini_get(store, "d"), 7);
  EXPECT_NE(load("d = " + repeated("(", 1001) + "7" + repeated(")", 1001) + ";").output, "");
  EXPECT_EQ(ini_get(store, "d"), 0);

  // No level takes stack.
  testing_support::on_small_stack([&] {
    for (const char* nested :
         {"1||1&&1|1^1&1==1<1<<1+1*(", "print(1 + ", "1 ? ", "a = ", "1 ? 1 : ", "- ! ~ "}) {
      EXPECT_EQ(load("x = " + repeated(nested, 20000)).result, 1) << nested;
    }
  });
  const Loaded doubling = load("s = \"0123456789abcdef\";" + repeated("s = s + s;", 100));
  EXPECT_EQ(doubling.result, 0);
  EXPECT_EQ(doubling.output, "ERROR: Not enough memory.\n");
}

// Numbers don't follow the locale of the host program.
TEST_F(Language, CommaLocaleChangesNothing) {
  const std::string make = "localedef -i de_DE -f UTF-8 " + dir.file("de") + " >/dev/null 2>&1";
  if (std::system(make.c_str()) != 0) GTEST_SKIP() << "localedef can't make a locale with a decimal comma";
  setenv("LOCPATH", dir.path().c_str(), 1);
  ASSERT_NE(setlocale(LC_ALL, "de"), nullptr);
  char printed[8];
  std::snprintf(printed, sizeof printed, "%.1f", 2.5);
  const Loaded loaded = load("x = 2.5; print(x);");
  const double value = ini_get_double(store, "x");
  setlocale(LC_ALL, "C");
  unsetenv("LOCPATH");

  ASSERT_STREQ(printed, "2,5");
  EXPECT_EQ(value, 2.5);
  EXPECT_EQ(loaded.output, "2.5000000000\n");
  EXPECT_EQ(loaded.content, in_default("x 3 2.5" + kZeros29));
}

TEST(LensNumbers, AgreeWithTheLibraryInTheClassicLocale) {
  for (const char* text : {"", " \t12", "-5.25e3x", "+7", "+-7", "0x1p4", "1_000", "9223372036854775808",
                           "-99999999999999999999", "abc", "1e999", "\v\f\r\n3", "- 3"}) {
    EXPECT_EQ(text_to_double(text), std::atof(text)) << text;
    EXPECT_EQ(text_to_int64(text), std::strtoll(text, nullptr, 10)) << text;
  }
  EXPECT_TRUE(std::isnan(text_to_double("nan")));
  for (const double value : {0.0, -0.0, 0.1, -1.0 / 3, 1e300, 5e-324, 2.5, 1e22 / 3}) {
    for (const int digits : {0, 6, 10, 30}) {
      char expected[400];
      std::snprintf(expected, sizeof expected, "%1.*f", digits, value);
      EXPECT_EQ(double_to_text(value, digits), expected);
    }
  }
}

}  // namespace
}  // namespace twintrue
