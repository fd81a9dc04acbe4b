// The numbers and texts of the documents.

#include "apps/cli/commands/InspectJson.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>
#include <random>
#include <string>

#include "apps/cli/commands/CsvFloat.h"

namespace {

using twintrue::cli::csv_float;
using twintrue::cli::Json;
using twintrue::cli::text_of_bytes;
using twintrue::cli::write_json;

std::string printed(double value) {
  std::string text = write_json(Json(value));
  text.pop_back();
  return text;
}

std::size_t significant_digits(const std::string& number) {
  const std::string mantissa = number.substr(0, number.find('e'));
  std::string digits;
  for (const char c : mantissa) {
    if (c >= '0' && c <= '9') digits += c;
  }
  const std::size_t first = digits.find_first_not_of('0');
  const std::size_t last = digits.find_last_not_of('0');
  return first == std::string::npos ? 0 : last - first + 1;
}

// Against the C library: the text reads back as the same bits, and one digit less would not.
TEST(InspectJson, DoublesAreTheShortestThatReadBack) {
  std::mt19937_64 engine(20240607);
  for (int i = 0; i < 20000; ++i) {
    // Every second one of a size that the documents hold.
    const double wild = std::bit_cast<double>(engine());
    const double value = i % 2 == 0 ? wild : std::ldexp(static_cast<double>(engine() >> 11), -60);
    if (!std::isfinite(value)) continue;
    const std::string text = printed(value);
    ASSERT_EQ(std::bit_cast<std::uint64_t>(std::strtod(text.c_str(), nullptr)),
              std::bit_cast<std::uint64_t>(value))
        << text;
    ASSERT_EQ(nlohmann::json::parse(text).get<double>(), value) << text;
    const std::size_t digits = significant_digits(text);
    ASSERT_LE(digits, 17u) << text;
    // Whole numbers stand in full as long as that is shorter than an exponent.
    if (digits < 2 || text.find_first_of(".e") == std::string::npos) continue;
    char shorter[40];
    std::snprintf(shorter, sizeof shorter, "%.*e", static_cast<int>(digits) - 2, value);
    ASSERT_NE(std::strtod(shorter, nullptr), value) << text << " could be " << shorter;
  }
}

TEST(InspectJson, SpecialNumbersKeepWhatTheyAre) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(printed(infinity), "\"inf\"");
  EXPECT_EQ(printed(-infinity), "\"-inf\"");
  EXPECT_EQ(printed(std::nan("")), "\"nan\"");
  EXPECT_EQ(printed(-std::nan("")), "\"nan\"");
  EXPECT_EQ(printed(0.0), "0");
  EXPECT_EQ(printed(1e16), "1e+16");
  EXPECT_EQ(printed(0.1), "0.1");
  // As a JSON reader takes it: the sign is there.
  EXPECT_TRUE(std::signbit(nlohmann::json::parse(printed(-0.0)).get<double>()));
  EXPECT_EQ(write_json(Json(0.02f)), printed(static_cast<double>(0.02f)) + "\n");
}

TEST(InspectJson, FieldsKeepTheirOrder) {
  Json json;
  json["z"] = {1, 2.5, nullptr, true};
  json["a"] = Json::object();
  json["m"]["y"] = "t";
  json["m"]["b"] = Json::array();
  EXPECT_EQ(write_json(json), "{\"z\": [1, 2.5, null, true], \"a\": {}, \"m\": {\"y\": \"t\", \"b\": []}}\n");
}

TEST(InspectJson, EachByteIsTheCodePointOfItsNumber) {
  std::string bytes;
  for (int c = 0; c < 256; ++c) bytes += static_cast<char>(c);
  const std::string document = write_json(Json(text_of_bytes(bytes)));
  for (const char c : document) EXPECT_LT(static_cast<unsigned char>(c), 0x80);
  const std::string utf8 = nlohmann::json::parse(document).get<std::string>();
  std::size_t at = 0;
  for (unsigned code = 0; code < 256; ++code) {
    const auto first = static_cast<unsigned char>(utf8.at(at++));
    if (code < 0x80) {
      EXPECT_EQ(first, code);
    } else {
      const auto second = static_cast<unsigned char>(utf8.at(at++));
      EXPECT_EQ((first & 0x1Fu) << 6 | (second & 0x3Fu), code);
    }
  }
  EXPECT_EQ(at, utf8.size());
}

TEST(InspectJson, FloatsOfTablesReadBack) {
  std::mt19937 engine(7);
  for (int i = 0; i < 10000; ++i) {
    const float value = std::bit_cast<float>(static_cast<std::uint32_t>(engine()));
    if (!std::isfinite(value)) continue;
    ASSERT_EQ(std::strtof(csv_float(value).c_str(), nullptr), value);
  }
  EXPECT_EQ(csv_float(167.0f), "167");
  EXPECT_EQ(csv_float(0.1f), "0.100000001");
}

}  // namespace
