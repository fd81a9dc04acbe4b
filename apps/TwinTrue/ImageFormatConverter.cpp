#include "apps/TwinTrue/ImageFormatConverter.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <thread>
#include <vector>

#include "apps/TwinTrue/LuminanceKernel.h"
#include "base/InstructionSet.h"
#include "base/ParallelEach.h"

namespace twintrue {
namespace {

// Ends the process as a failed assertion does, in builds with assertions off as well: the lines are part of
// the text that people search for.
[[noreturn]] void assertion_failed(const char* text, int line) {
  std::fprintf(stderr, "apps/TwinTrue/ImageFormatConverter:%d: Assertion `%s' failed.\n", line, text);
  std::fflush(stderr);
  std::abort();
}

// Joins what was started, also when a later start throws.
struct Joiner {
  std::vector<std::thread>& handles;
  ~Joiner() {
    for (std::thread& handle : handles) handle.join();
  }
};

class FrameConverter final : public RowTask {
 public:
  FrameConverter(const cve::XMat_<float>& output, const CalibImage& image) : output_(output), image_(image) {}

  // Rows without pixels are no work, and there may be billions.
  std::uint32_t row_count() const override { return image_.width == 0 ? 0 : image_.height; }

  void run_rows(std::uint32_t from, std::uint32_t to) override {
    for (std::uint32_t y = from; y < to; ++y) {
      const std::uint8_t* source = image_.pixels + static_cast<std::ptrdiff_t>(y) * image_.stride;
      kernel_(table_, source, image_.width, image_.bgr_order != 0,
              output_.row(static_cast<std::ptrdiff_t>(y)));
    }
  }

 private:
  cve::XMat_<float> output_;
  CalibImage image_;
  LuminanceTable table_;
  LuminanceFn kernel_ = luminance_kernel(best_instruction_set());
};

bool create_for(cve::XMat_<float>& output, const CalibImage& image) {
  // Larger sizes than an int holds are larger than memory too.
  constexpr std::uint32_t kMaxSide = 0x7fffffff;
  if (image.width > kMaxSide || image.height > kMaxSide) throw std::bad_alloc();
  return output.create(static_cast<std::int32_t>(image.height), static_cast<std::int32_t>(image.width));
}

}  // namespace

RowRunner::RowRunner(RowTask& task)
    : maxThreadCount_(std::thread::hardware_concurrency()),
      currentThreadCount_(maxThreadCount_ / 2),
      task_(task) {
  if (!(0 < maxThreadCount_)) assertion_failed("0 < maxThreadCount", 260);
  if (!(0 < currentThreadCount_)) assertion_failed("0 < currentThreadCount", 261);
}

bool RowRunner::set_current_thread_count(std::uint32_t n) {
  if (n > maxThreadCount_) return false;
  currentThreadCount_ = n;
  return true;
}

void RowRunner::run() {
  const std::lock_guard lock(mutex_);
  const std::uint32_t n = currentThreadCount_;
  const std::uint32_t rows = task_.row_count();
  if (n <= 1) {
    task_.run_rows(0, rows);
    return;
  }
  const std::uint32_t per_thread = rows / n;
  std::vector<std::thread> handles;
  handles.reserve(n);
  const Joiner joiner{handles};
  for (std::uint32_t i = 0; i + 1 < n; ++i) {
    handles.emplace_back([this, i, per_thread] { task_.run_rows(i * per_thread, (i + 1) * per_thread); });
  }
  task_.run_rows((n - 1) * per_thread, rows);
}

float linear_luminance(std::uint8_t red, std::uint8_t green, std::uint8_t blue) {
  const double sum = static_cast<double>(static_cast<float>(red) * 0.299f) + green * 0.587 +
                     static_cast<double>(static_cast<float>(blue) * 0.114f);
  const float luminance = static_cast<float>(sum);
  const float v = luminance * 0.003921569f;  // 1 / 255
  // The threshold of the sRGB curve is meant for 0 to 1 and meets 0 to 255 here: only black lies below it.
  if (luminance >= 0.04045f) {
    return static_cast<float>(
        std::pow(static_cast<double>(v) * 0.9478673457039061 + 0.05213270401371484, 2.4000000953674316));
  }
  return v * 0.07739938f;
}

bool convert_frame(cve::XMat_<float>& output, const CalibImage& image) {
  std::fputs("Convert using std::thread \n", stdout);
  if (!create_for(output, image)) assertion_failed("bok", 399);
  FrameConverter converter(output, image);
  RowRunner(converter).run();
  return true;
}

void convert_frame_by_team(cve::XMat_<float>& output, const CalibImage& image) {
  create_for(output, image);
  FrameConverter converter(output, image);
  parallel_rows(0, static_cast<int>(converter.row_count()), [&](int y) {
    converter.run_rows(static_cast<std::uint32_t>(y), static_cast<std::uint32_t>(y) + 1);
  });
}

}  // namespace twintrue
