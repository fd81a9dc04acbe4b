#pragma once

// How `inspect` writes its documents, so that other tools can read them value for value.

#include <cstddef>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>

namespace twintrue::cli {

// Fields keep the order in which they are added.
using Json = nlohmann::ordered_json;

// The document on one line, newline at the end, ASCII alone. A double stands as the shortest text that reads
// back exactly; what is no number or infinite as the text "nan", "inf" or "-inf".
std::string write_json(const Json& json);

// Text of a file, which may be any bytes, as UTF-8: each byte becomes the code point of that number.
std::string text_of_bytes(std::string_view bytes);

// An array of `count` numbers.
template <typename T>
Json json_array(const T* values, std::size_t count) {
  Json array = Json::array();
  for (std::size_t i = 0; i < count; ++i) array.push_back(values[i]);
  return array;
}
template <typename Container>
Json json_array(const Container& values) {
  return json_array(values.data(), values.size());
}

// A 32-bit float as "%.9g" prints it: enough digits to read back exactly.
std::string csv_float(float value);

}  // namespace twintrue::cli
