// What the machine may refuse: room on the disk, rights, standard output. A person's file is whole
// afterwards, the old one or the new one.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>

#include "SmallRun.h"
#include "support/Child.h"

namespace {

using namespace testing_support;

class Faults : public testing::Test {
 protected:
  std::size_t files_in_folder() const {
    const auto entries = std::filesystem::directory_iterator(run_.dir().path());
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
  }

  SmallRun run_;
  SmallFrame frame_;
};

constexpr const char* kOld = "the old file\n";

TEST_F(Faults, AnInterruptedWriteLeavesTheOldFile) {
  const std::string out = run_.dir().write("out.lens", kOld);
  const int status = in_child([&] {
    const rlimit limit{100, 100};  // the system ends the process in the middle of the write
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 9;
    run_.status(frame_.image, out);
    return 1;
  });
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGXFSZ) << status;
  EXPECT_EQ(read_file(out), kOld);
}

TEST_F(Faults, PlacesThatTakeNoFileChangeNothing) {
  const std::string file = run_.dir().write("file", kOld);
  const std::size_t files = files_in_folder();
  for (const std::string& out : {run_.dir().file("none/out.lens"), file + "/out.lens",
                                 run_.dir().path().string(), std::string("/proc/self/out.lens"),
                                 run_.dir().file(std::string(300, 'n')), std::string("/dev/full")}) {
    EXPECT_EQ(run_.status(frame_.image, out), TWINTRUE_CALIBRATED) << out;
  }
  EXPECT_EQ(read_file(file), kOld);
  EXPECT_EQ(files_in_folder(), files);
}

// Neither a closed standard output, nor one that refuses every byte, ends or changes a run.
TEST_F(Faults, StandardOutputMayBeGone) {
  const Outcome plain = run_.run(frame_.image);
  ASSERT_EQ(plain.status, TWINTRUE_CALIBRATED);
  for (const bool closed : {true, false}) {
    const int status = in_child([&] {
      std::setvbuf(stdout, nullptr, _IONBF, 0);  // so that every message meets the fault at once
      if (closed) {
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
      } else {
        const int full = open("/dev/full", O_WRONLY);
        dup2(full, STDOUT_FILENO);
        dup2(full, STDERR_FILENO);
      }
      if (!(run_.run(frame_.image) == plain)) return 1;
      // Messages of all kinds: the language's, the pattern's, the driver's, an exception's.
      const SmallRun chatty(small_lens() + "print(\"x\"); ) y = ;",
                            small_settings() + "RENO:\n  posLimit: 7\n  desc_bits: 128\n");
      if (chatty.status(frame_.image) == TWINTRUE_FAILED) return 2;
      const SmallRun refused(small_lens(), small_settings() + "RENO:\n  rndSeedMake: x\n");
      return refused.status(frame_.image) == TWINTRUE_FAILED ? 0 : 3;
    });
    EXPECT_TRUE(ended_with(status, 0)) << status << " closed " << closed;
  }
}

}  // namespace
