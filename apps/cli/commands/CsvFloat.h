#pragma once

#include <string>

#include <fmt/format.h>

namespace twintrue::cli {

// A 32-bit float with enough digits to read back exactly: "%.9g".
inline std::string csv_float(float value) { return fmt::format("{:.9g}", static_cast<double>(value)); }

}  // namespace twintrue::cli
