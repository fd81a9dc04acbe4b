#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include "Trial.h"

namespace twintrue::accuracy {

void print_header(std::FILE* out);
void print_trial(std::FILE* out, const Trial& trial);

// Median and worst over trials, also of the excess brought to a frame 4096 wide.
void print_summary(std::FILE* out, const std::string& name, const std::vector<Trial>& trials);

// All numbers of the trials as one JSON array.
std::string to_json(const std::vector<Trial>& trials);

}  // namespace twintrue::accuracy
