// The program that reads and writes pictures for twintrue. It is none for people: see
// apps/cli/pictures/Helper.h.

#include <unistd.h>

#include "apps/cli/pictures/Helper.h"

#ifdef TWINTRUE_SANITIZED
// The limits that the system can't keep while a sanitizer has mapped its terabytes.
extern "C" __attribute__((visibility("default"))) const char* __asan_default_options() {
  return "hard_rss_limit_mb=8192:max_allocation_size_mb=8192";
}
#endif

int main(int argc, char** argv) {
  // Without the libraries' farewells: what a damaged file did to them may show there at last.
  _exit(twintrue::cli::picture_helper(argc, argv));
}
