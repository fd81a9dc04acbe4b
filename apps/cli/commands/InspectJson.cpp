#include "apps/cli/commands/InspectJson.h"

#include <array>
#include <charconv>
#include <cmath>
#include <nlohmann/json.hpp>

namespace twintrue::cli {
namespace {

void append_number(std::string& out, double value) {
  if (std::isnan(value)) {
    out += "\"nan\"";
  } else if (std::isinf(value)) {
    out += value < 0 ? "\"-inf\"" : "\"inf\"";
  } else if (value == 0.0 && std::signbit(value)) {
    out += "-0.0";  // readers take "-0" for an integer, which has no sign
  } else {
    std::array<char, 32> digits;
    char* const last = digits.data() + digits.size();
    // Left to itself, to_chars writes whole numbers in full where that is shorter, with digits beyond those
    // that tell a double.
    constexpr double kLargestInFull = 1e17;
    const auto end = std::abs(value) < kLargestInFull
                         ? std::to_chars(digits.data(), last, value).ptr
                         : std::to_chars(digits.data(), last, value, std::chars_format::scientific).ptr;
    out.append(digits.data(), end);
  }
}

void append(std::string& out, const Json& json) {
  const char* separator = "";
  switch (json.type()) {
    case Json::value_t::object:
      out += '{';
      for (const auto& [key, value] : json.get_ref<const Json::object_t&>()) {
        out += separator;
        append(out, Json(key));
        out += ": ";
        append(out, value);
        separator = ", ";
      }
      out += '}';
      break;
    case Json::value_t::array:
      out += '[';
      for (const Json& value : json) {
        out += separator;
        append(out, value);
        separator = ", ";
      }
      out += ']';
      break;
    case Json::value_t::number_float:
      append_number(out, json.get<double>());
      break;
    default:
      out += json.dump(-1, ' ', true, Json::error_handler_t::replace);
  }
}

}  // namespace

std::string write_json(const Json& json) {
  std::string out;
  append(out, json);
  return out + '\n';
}

std::string text_of_bytes(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x80) {
      text += c;
    } else {
      text += static_cast<char>(0xC0 | byte >> 6);
      text += static_cast<char>(0x80 | (byte & 0x3F));
    }
  }
  return text;
}

Json json_array(std::span<const double> values) { return Json(values); }
Json json_array(std::span<const float> values) { return Json(values); }
Json json_array(std::span<const std::int32_t> values) { return Json(values); }

}  // namespace twintrue::cli
