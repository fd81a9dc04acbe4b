#pragma once

#include <fmt/format.h>

#include <cstdio>
#include <utility>

namespace twintrue {

// Formats a message and writes it to standard output. A stream that can't take it is no error: a host may
// have closed it.
template <typename... Args>
void report(fmt::format_string<Args...> text, Args&&... args) {
  std::fputs(fmt::format(text, std::forward<Args>(args)...).c_str(), stdout);
}

}  // namespace twintrue
