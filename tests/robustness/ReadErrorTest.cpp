// Disks that fail in the middle of a file: half a file is no file.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "SmallRun.h"

namespace {

struct stat failing {};    // the file whose reads fail
std::size_t readable = 0;  // bytes of it, from its start, that can be read all the same
int spared = 0;            // how often it can be read whole before
std::string vanishing;     // its name, to be taken from it when it is read

}  // namespace

// In the place of the C library's.
extern "C" __attribute__((visibility("default"))) ssize_t read(int descriptor, void* buffer, size_t size) {
  struct stat status {};
  if (failing.st_ino != 0 && fstat(descriptor, &status) == 0 && status.st_ino == failing.st_ino &&
      status.st_dev == failing.st_dev) {
    const auto done = static_cast<std::size_t>(lseek(descriptor, 0, SEEK_CUR));
    if (done == 0) --spared;
    if (!vanishing.empty()) unlink(vanishing.c_str());
    if (spared < 0) {
      if (done >= readable) {
        errno = EIO;
        return -1;
      }
      size = std::min(size, readable - done);
    }
  }
  return syscall(SYS_read, descriptor, buffer, size);
}

namespace {

using namespace testing_support;

class ReadErrors : public testing::Test {
 protected:
  // What a run ends with when only so many bytes of the file, one of its two, can be read after it was read
  // whole so often.
  std::int32_t status_with(const std::string& file, std::size_t bytes, int times) const {
    if (stat(file.c_str(), &failing) != 0) return 9;
    readable = bytes;
    spared = times;
    CalibResult result{};
    const std::int32_t status =
        calib(&frame_.image, lens_.c_str(), params_.c_str(), out_.c_str(), 1, &result);
    failing = {};
    vanishing.clear();
    return status;
  }

  TempDir dir_;
  SmallFrame frame_;
  std::string lens_ = dir_.write("small.lens", small_lens());
  std::string params_ = dir_.write("small.yaml", small_settings());
  std::string out_ = dir_.write("out.lens", "old");
};

// However often a run reads a file: each time it needs the whole of it.
TEST_F(ReadErrors, InTheMiddleOfEitherFileEndARun) {
  const std::size_t lens_size = small_lens().size(), params_size = small_settings().size();
  const struct {
    const std::string& file;
    std::size_t bytes;
    std::int32_t status;  // if the first reading fails
  } cases[] = {{lens_, 0, TWINTRUE_LENS_UNREADABLE},         {lens_, 7, TWINTRUE_LENS_UNREADABLE},
               {lens_, lens_size, TWINTRUE_LENS_UNREADABLE}, {params_, 0, TWINTRUE_FAILED},
               {params_, params_size / 2, TWINTRUE_FAILED},  {params_, params_size, TWINTRUE_FAILED}};
  for (const auto& test : cases) {
    SCOPED_TRACE(test.file + " " + std::to_string(test.bytes));
    dir_.write("out.lens", "old");
    std::int32_t status = status_with(test.file, test.bytes, 0);
    EXPECT_EQ(status, test.status);
    for (int times = 1; status != TWINTRUE_CALIBRATED; ++times) {
      ASSERT_TRUE(status == test.status || status == TWINTRUE_FAILED) << status;
      EXPECT_EQ(read_file(out_), "old");
      status = status_with(test.file, test.bytes, times);
    }
  }
}

// A second look would find other settings than the first, or take the name of none for a text.
TEST_F(ReadErrors, SettingsAreReadOnce) {
  vanishing = params_;
  EXPECT_EQ(status_with(params_, 0, 1), TWINTRUE_CALIBRATED);
  EXPECT_FALSE(std::filesystem::exists(params_));
}

}  // namespace
