#pragma once

// Turns the caller's 8-bit frame into one plane of linear luminance.

#include <cstdint>
#include <mutex>

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

// Runs a task over all of its rows on plain threads of its own, half as many as the machine runs at once; the
// calling thread takes the last share. A machine that runs fewer than two threads ends the process by an
// assertion.
class RowRunner {
 public:
  // `task` must outlive the object.
  explicit RowRunner(RowTask& task);

  // Returns when all rows are done. Throws std::system_error if a thread can't be had.
  void run();
  std::uint32_t max_thread_count() const { return maxThreadCount_; }
  // Accepted, with true, only up to the maximum.
  bool set_current_thread_count(std::uint32_t n);
  std::uint32_t current_thread_count() const { return currentThreadCount_; }

 private:
  std::mutex mutex_;
  std::uint32_t maxThreadCount_;
  std::uint32_t currentThreadCount_;
  RowTask& task_;
};

// Linear luminance of one pixel, 0 to a little over 1.
float linear_luminance(std::uint8_t red, std::uint8_t green, std::uint8_t blue);

// Converts the whole frame; `output` becomes a packed image of the frame's size. The pixels of `image` must
// be readable as its fields say. True; announces itself on standard output. Throws std::bad_alloc and
// std::system_error.
bool convert_frame(cve::XMat_<float>& output, const CalibImage& image);

// The same pixels, made by the team of the calling thread: on any machine, and without a word.
void convert_frame_by_team(cve::XMat_<float>& output, const CalibImage& image);

}  // namespace twintrue
