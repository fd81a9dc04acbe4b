/* TwinTrue: calibration of dual-fisheye stereo lenses from one captured frame.
 *
 * This header is the whole interface of libtwintrue. It compiles as C11 and as C++.
 *
 * A calibration of a frame of packed RGB bytes:
 *
 *   #include <stdio.h>
 *   #include <twintrue/calib.h>
 *
 *   int calibrate_rgb(const uint8_t *rgb, uint32_t width, uint32_t height) {
 *     const CalibImage frame = {width, height, (int32_t)(3 * width), rgb, 0};
 *     CalibResult result = {0};
 *     int32_t status = calib(&frame, "maker.lens", "default.yaml", "corrected.lens", 0, &result);
 *     if (status == TWINTRUE_CALIBRATED)
 *       printf("right eye: tilt %+.4f rad, error16 %.2f px\n", result.right_tilt, result.error16);
 *     else if (status == TWINTRUE_QUALITY_FAILED)
 *       fprintf(stderr, "measured, but not to be trusted: quality %.3f\n", result.quality);
 *     else
 *       fprintf(stderr, "no calibration: status %d\n", (int)status);
 *     return status == TWINTRUE_CALIBRATED ? 0 : 1;
 *   }
 *
 * Settings for `default.yaml` are installed as share/twintrue/presets/NAME.yaml below the prefix (`default`,
 * `fast`, `wide`), and `twintrue presets show NAME` prints them.
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

/* Statuses that calib() returns, with what stands in `result` and what was written then. "At its start" means
 * ten zeros and four times -1.0. */
enum {
  /* The search ended and its quality test passed. All fourteen numbers; the lens file is written. */
  TWINTRUE_CALIBRATED = 0,
  /* A null pointer where none may be, pixels that can't be read, no memory or thread to convert the frame:
   * `result` untouched. Settings that can't be used, a frame without pixels, no memory later on: `result` at
   * its start, or as the search left it if memory ended while the lens file was being written. No lens file.
   */
  TWINTRUE_FAILED = -1,
  /* The lens file can't be read, or describes no lens. `result` at its start. No lens file. */
  TWINTRUE_LENS_UNREADABLE = -996,
  /* The search ended and its quality test failed: too few matches fit, or not closely enough. All fourteen
   * numbers; the lens file is written all the same, with the corrections that were found. */
  TWINTRUE_QUALITY_FAILED = -997,
  /* Too few keypoints in a half, or too few matches: `result` at its start, no lens file. Or too few of them
   * usable: then `detection_ratio` is set, and a lens file without any correction is written. Which it was
   * shows in `detection_ratio`. */
  TWINTRUE_TOO_FEW_MATCHES = -999
};

/* One captured frame with both fisheye pictures side by side. The right eye's picture lies in the left
 * half and the left eye's in the right half. The caller owns the record and its pixels; both are only read,
 * and only until calib() returns. */
typedef struct CalibImage {
  uint32_t width;        /* pixels of a row, both halves together; 65536 at most */
  uint32_t height;       /* rows; 65536 at most */
  int32_t stride;        /* bytes from one row to the next; negative for a picture stored bottom up */
  const uint8_t* pixels; /* first byte of row 0; three interleaved bytes a pixel, encoded as sRGB */
  int32_t bgr_order;     /* 0: red, green, blue; any other value: blue, green, red */
} CalibImage;

/* Ten corrections and four numbers about them. The corrections are what is to be added to the lens file's
 * values, so that it describes the lens in hand: angles in radians, offsets in pixels of the frame.
 *
 * Signs, for a corrected lens against the lens file, with the frame upright and seen from behind the camera:
 *
 *   pan       positive: the eye looks further to the right; what it sees lies further left in its picture
 *   tilt      positive: the eye looks further down; what it sees lies higher
 *   roll      positive: the eye is turned clockwise; what it sees is turned counterclockwise about the
 * picture's centre offset_x  positive: the picture lies further right on the sensor (larger columns) offset_y
 * positive: the picture lies higher on the sensor (smaller rows)
 *
 * Rows count downward from 0 at the top, columns to the right, and whole numbers are pixel centres. The rig's
 * axes are x to the right, y upward, z to the rear; pan turns about y, tilt about x, roll about z. */
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
 * image              the frame; at least as large as the lens file says. Pixels that it lacks count as black,
 * those that it has beyond are not looked at. lens_path          lens description file, of either format.
 * param_path         parameter file, or, if no file of that name exists, the text of the settings itself, of
 * any length up to 64 MiB. out_lens_path      where to write the corrected lens file; "" writes none. An
 * older file is replaced at once or stays as it is. A path that can't be written changes no status and says
 * nothing: look whether the file is there. A name ending in ".pin" can't be read back: pick another.
 * ignore_thresholds  non-zero: go on with fewer keypoints and matches than the settings ask for. The
 *                    quality test stays.
 * result             receives the fourteen numbers, see the statuses; may be null.
 *
 * The three strings are NUL-terminated and never null; a null one gives TWINTRUE_FAILED, as does a null
 * image or one whose pixels can't be read (a null pointer, rows that run into each other).
 *
 * Returns one of the statuses above. It does not say whether the matches speak for the result: a wrong lens
 * file can fit as well as a right one does. The program `twintrue` judges that too.
 *
 * Messages go to standard output (what the run says, and what the lens file prints), texts of exceptions and
 * of the lens language to standard error. No exception leaves the call.
 *
 * What ends the process: settings that can't be carried out (a `mode` other than 28, an unknown weight or
 * score mode and their like) call abort(), as does a machine on which the process runs one thread at a time;
 * and memory that ends while a lens file is parsed or keypoints are sought. A host that takes settings from
 * strangers runs the call in a process of its own, and one for which that machine matters asks for its
 * processors beforehand.
 *
 * Threads: safe on any number of the host's threads at the same time; nothing is kept between calls. Each
 * call makes threads of its own, which sleep while they have nothing to do and are gone when it returns: as
 * many as the OpenMP runtime would give the calling thread (OMP_NUM_THREADS, omp_set_num_threads()), at most
 * those that the machine runs at once. The system may refuse some of them. The result is the same to the last
 * bit for every number. No signal is delivered to them. Hosts that calibrate several frames side by side do
 * best with as many calls as processors and one thread each.
 *
 * Stack: any size that the system makes, 256 KiB included; a call that finds less than 4 MiB left goes on on
 * a thread that has them.
 *
 * fork(): a child may call, whether or not its parent did or is doing so on another thread.
 *
 * Memory: 5 to 6 bytes for each pixel of the frame with the default settings, freed at the end.
 */
TWINTRUE_API int32_t calib(const CalibImage* image, const char* lens_path, const char* param_path,
                           const char* out_lens_path, int32_t ignore_thresholds, CalibResult* result);

#ifdef __cplusplus
}
#endif

#endif /* TWINTRUE_CALIB_H_ */
