#include "apps/TwinTrue/ImageFormatConverter.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "apps/TwinTrue/LuminanceKernel.h"
#include "base/InstructionSet.h"

namespace twintrue {
namespace {

// Ends the process as a failed assertion does, in builds with assertions off as well: the lines are part of
// the text that people search for.
[[noreturn]] void assertion_failed(const char* text, int line) {
  std::fprintf(stderr, "apps/TwinTrue/ImageFormatConverter:%d: Assertion `%s' failed.\n", line, text);
  std::fflush(stderr);
  std::abort();
}

class ThreadRowRunner final : public RowRunner {
 public:
  explicit ThreadRowRunner(RowTask& task)
      : maxThreadCount_(std::thread::hardware_concurrency()),
        currentThreadCount_(maxThreadCount_ / 2),
        task_(task) {
    if (!(0 < maxThreadCount_)) assertion_failed("0 < maxThreadCount", 260);
    if (!(0 < currentThreadCount_)) assertion_failed("0 < currentThreadCount", 261);
    currentThreadCount_ = std::min(maxThreadCount_, currentThreadCount_);
    handles_.reserve(currentThreadCount_);
  }

  void run() override {
    const std::lock_guard lock(mutex_);
    const std::uint32_t n = currentThreadCount_;
    const std::uint32_t rows = task_.row_count();
    if (n <= 1) {
      task_.run_rows(0, rows);
      return;
    }
    const std::uint32_t per_thread = rows / n;
    const Joiner joiner{handles_};  // joins what was started, also when a later start throws
    for (std::uint32_t i = 0; i + 1 < n; ++i) {
      handles_.emplace_back([this, i, per_thread] { task_.run_rows(i * per_thread, (i + 1) * per_thread); });
    }
    task_.run_rows((n - 1) * per_thread, rows);
  }

  std::uint32_t max_thread_count() const override { return maxThreadCount_; }
  bool set_current_thread_count(std::uint32_t n) override {
    if (n > maxThreadCount_) return false;
    currentThreadCount_ = n;
    return true;
  }
  std::uint32_t current_thread_count() const override { return currentThreadCount_; }

 private:
  struct Joiner {
    std::vector<std::thread>& handles;
    ~Joiner() {
      for (std::thread& handle : handles) handle.join();
      handles.clear();
    }
  };

  std::mutex mutex_;
  std::uint32_t maxThreadCount_;
  std::uint32_t currentThreadCount_;
  RowTask& task_;
  std::vector<std::thread> handles_;
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
  LuminanceFn kernel_ = luminance_kernel(twintrue::best_instruction_set());
};

}  // namespace

std::unique_ptr<RowRunner> make_row_runner(RowTask& task) { return std::make_unique<ThreadRowRunner>(task); }

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
  // Larger sizes than an int holds are larger than memory too.
  constexpr std::uint32_t kMaxSide = 0x7fffffff;
  if (image.width > kMaxSide || image.height > kMaxSide) throw std::bad_alloc();
  if (!output.create(static_cast<std::int32_t>(image.height), static_cast<std::int32_t>(image.width))) {
    assertion_failed("bok", 399);
  }
  FrameConverter converter(output, image);
  make_row_runner(converter)->run();
  return true;
}

}  // namespace twintrue
