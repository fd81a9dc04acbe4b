/* TwinTrue: calibration of dual-fisheye stereo lenses from one captured frame.
 *
 * This header is the whole interface of libtwintrue. It compiles as C11 and as C++.
 */
#ifndef TWINTRUE_CALIB_H_
#define TWINTRUE_CALIB_H_

#include <stdint.h>

#if defined(__GNUC__)
#define TWINTRUE_API __attribute__((visibility("default")))
#else
#define TWINTRUE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* Statuses that calib() returns. */
enum {
  TWINTRUE_CALIBRATED = 0,         /* the search ended and its quality test passed */
  TWINTRUE_FAILED = -1,            /* conversion failed, unusable parameter file, no pixels, no memory */
  TWINTRUE_LENS_UNREADABLE = -996, /* the lens file can't be read or describes no lens */
  TWINTRUE_QUALITY_FAILED = -997,  /* the quality test after the search failed */
  TWINTRUE_TOO_FEW_MATCHES = -999  /* too few keypoints or matches */
};

/* One captured frame with both fisheye pictures side by side. The right eye's picture lies in the left
 * half and the left eye's in the right half. The caller owns the record and its pixels; both are only read,
 * and only until calib() returns. */
typedef struct CalibImage {
  uint32_t width;        /* pixels of a row, both halves together */
  uint32_t height;       /* rows */
  int32_t stride;        /* bytes from one row to the next; negative for a picture stored bottom up */
  const uint8_t* pixels; /* first byte of row 0; three interleaved bytes a pixel */
  int32_t bgr_order;     /* 0: red, green, blue; any other value: blue, green, red */
} CalibImage;

/* Ten corrections and four numbers about them. The corrections are added to what the lens file holds:
 * rotations are in radians (pan about y, tilt about x, roll about z), offsets in pixels of the frame, x to
 * the right and y downward as the lens file's own offsets. Ten zeros and four times -1.0 stand in it until
 * the search has run. */
typedef struct CalibResult {
  double right_pan;
  double right_tilt;
  double right_roll;
  double right_offset_x;
  double right_offset_y;
  double left_pan;
  double left_tilt;
  double left_roll;
  double left_offset_x;
  double left_offset_y;
  double score;           /* best final score of the search; the more, the better */
  double quality;         /* matches within 4 pixels a wanted place, divided by their rms error in pixels */
  double detection_ratio; /* share of the grid's wanted places that hold a usable match, 0 to 1 */
  double error16;         /* rms error in pixels of the matches within 16 pixels */
} CalibResult;

/* Measures the misalignment of the two eyes and, on request, writes the corrected lens file.
 *
 * image              the frame; at least as large as the lens file says. Pixels that it lacks count as black.
 * lens_path          lens description file, of either format.
 * param_path         parameter file, or, if no file of that name exists, the text of the settings itself.
 * out_lens_path      where to write the corrected lens file; "" writes none. The file is written after a
 *                    failed quality test too. A name ending in ".pin" can't be read back: pick another.
 * ignore_thresholds  non-zero: go on with fewer keypoints and matches than the settings ask for. The
 *                    quality test stays.
 * result             receives the fourteen numbers for every status but a failed conversion; may be null.
 *
 * The three strings are NUL-terminated and never null; a null one gives TWINTRUE_FAILED, as does a null
 * image or one without pixels.
 *
 * Returns one of the statuses above. No exception leaves the call. Messages go to standard output, texts of
 * exceptions to standard error. Settings that can't be carried out (a `mode` other than 28, an unknown
 * weight or score mode, ...) end the process by abort().
 *
 * Thread-safety: the library holds no state between calls. Calls may run at the same time on several
 * threads of a host; each uses threads of its own while it runs.
 */
TWINTRUE_API int32_t calib(const CalibImage* image, const char* lens_path, const char* param_path,
                           const char* out_lens_path, int32_t ignore_thresholds, CalibResult* result);

#ifdef __cplusplus
}
#endif

#endif /* TWINTRUE_CALIB_H_ */
