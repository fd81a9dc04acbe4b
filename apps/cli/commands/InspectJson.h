#pragma once

// How `inspect` writes its documents, so that other tools can read them value for value.

#include <cstdint>
#include <nlohmann/json_fwd.hpp>
#include <span>
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

// Arrays of numbers.
Json json_array(std::span<const double> values);
Json json_array(std::span<const float> values);
Json json_array(std::span<const std::int32_t> values);

}  // namespace twintrue::cli
