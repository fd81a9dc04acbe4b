#include "base/VectorMath.h"

#include <gtest/gtest.h>

#include <cmath>

namespace twintrue::vector_math {
namespace {

// The errors that the functions promise, and the last digit of the C library's.
TEST(VectorMath, AgreesWithTheLibraryToItsPromise) {
  for (double x = -700.0; x <= 700.0; x += 0.0371) {
    ASSERT_NEAR(exp(x), std::exp(x), 3e-13 * std::exp(x)) << x;
  }
  EXPECT_EQ(exp(0.0), 1.0);
  for (double x = -100.0; x <= 100.0; x += 0.00137) {
    double sine = 0.0, cosine = 0.0;
    sine_cosine(x, &sine, &cosine);
    ASSERT_NEAR(sine, std::sin(x), 3.5e-16) << x;
    ASSERT_NEAR(cosine, std::cos(x), 3.5e-16) << x;
  }
}

}  // namespace
}  // namespace twintrue::vector_math
