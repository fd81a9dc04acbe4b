#pragma once

// Turns the caller's 8-bit frame into one plane of linear luminance.

#include <cstdint>
#include <memory>

#include "imaging/XMat.h"
#include "twintrue/calib.h"

namespace twintrue {

// Work that splits into rows.
class RowTask {
 public:
  virtual ~RowTask() = default;
  virtual std::uint32_t row_count() const = 0;
  // Rows from `from` up to but not including `to`. Called from several threads for disjoint ranges.
  virtual void run_rows(std::uint32_t from, std::uint32_t to) = 0;
};

// Runs a task over all of its rows.
class RowRunner {
 public:
  virtual ~RowRunner() = default;
  // Returns when all rows are done. Throws std::system_error if a thread can't be had.
  virtual void run() = 0;
  virtual std::uint32_t max_thread_count() const = 0;
  // Accepted, with true, only up to the maximum.
  virtual bool set_current_thread_count(std::uint32_t n) = 0;
  virtual std::uint32_t current_thread_count() const = 0;
};

// A runner on plain threads, half as many as the machine runs at once; the calling thread takes the last
// share. A machine that runs fewer than two threads ends the process by an assertion. `task` must outlive it.
std::unique_ptr<RowRunner> make_row_runner(RowTask& task);

// Linear luminance of one pixel, 0 to a little over 1.
float linear_luminance(std::uint8_t red, std::uint8_t green, std::uint8_t blue);

// Converts the whole frame; `output` becomes a packed image of the frame's size. The pixels of `image` must
// be readable as its fields say. True; announces itself on standard output. Throws std::bad_alloc and
// std::system_error.
bool convert_frame(cve::XMat_<float>& output, const CalibImage& image);

}  // namespace twintrue
