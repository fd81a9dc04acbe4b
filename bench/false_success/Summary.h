#pragma once

#include <cstdio>
#include <vector>

#include <nlohmann/json.hpp>

namespace twintrue::false_success {

// Pixels of core error, of frames scaled to 4096 wide.
inline constexpr double kRightError = 0.3;
inline constexpr double kWrongError = 0.5;
inline constexpr double kFarOffError = 1.0;

// Counts, in all, by half (inputs of even and odd number) and by kind: plainly calibrated poses that are
// wrong, and right ones that are doubted or refused. An input that no frame shows to be wrong has a line of
// its own.
void print_summary(std::FILE* out, const std::vector<nlohmann::json>& answers);

}  // namespace twintrue::false_success
