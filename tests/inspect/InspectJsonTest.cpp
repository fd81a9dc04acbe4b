// The numbers and texts of the documents.

#include "apps/cli/commands/InspectJson.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>
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

TEST(InspectJson, SpecialNumbersKeepWhatTheyAre) {
  const double infinity = std::numeric_limits<double>::infinity();
  EXPECT_EQ(printed(infinity), "\"inf\"");
  EXPECT_EQ(printed(-infinity), "\"-inf\"");
  EXPECT_EQ(printed(std::nan("")), "\"nan\"");
  EXPECT_EQ(printed(-std::nan("")), "\"nan\"");
  EXPECT_EQ(printed(0.0), "0");
  EXPECT_EQ(printed(1e16), "1e+16");
  EXPECT_EQ(printed(0.1), "0.1");
  // The digits that tell a double and no others, where whole numbers would stand in full too.
  EXPECT_EQ(printed(123456789012345680000.0), "1.2345678901234568e+20");
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
  for (float value = 1e-38f; value < 1e38f; value *= 1.37f) {
    ASSERT_EQ(std::strtof(csv_float(value).c_str(), nullptr), value);
  }
  EXPECT_EQ(csv_float(167.0f), "167");
  EXPECT_EQ(csv_float(0.1f), "0.100000001");
}

}  // namespace
