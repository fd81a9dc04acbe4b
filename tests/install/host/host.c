// The least that a C host does: it asks for a calibration with a lens file that does not exist, and expects
// to be told so.
#include "example.h"  // what the header shows, taken out of it

int main(void) {
  const uint8_t pixels[2 * 2 * 3] = {0};
  const CalibImage image = {2, 2, 6, pixels, 0};
  CalibResult result;
  const int32_t status = calib(&image, "no such file.lens", "", "", 0, &result);
  printf("status %d, score %g\n", (int)status, result.score);
  if (calibrate_rgb(pixels, 2, 2) != 1) return 1;
  return status == TWINTRUE_LENS_UNREADABLE && result.score == -1.0 ? 0 : 1;
}
