// What the machine may refuse: room on the disk, rights, standard output. A person's file is whole
// afterwards, the old one or the new one.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <omp.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <functional>

#include "Child.h"
#include "SmallRun.h"

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

TEST_F(Faults, AFullDiskLeavesTheOldFile) {
  const std::string out = run_.dir().write("out.lens", kOld);
  const std::size_t files = files_in_folder();
  const int status = in_child([&] {
    omp_get_max_threads();          // some runtimes write a file of their own when they are first asked
    std::signal(SIGXFSZ, SIG_IGN);  // writes fail as they do on a full disk
    const rlimit limit{100, 100};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 9;
    return run_.status(frame_.image, out) == TWINTRUE_CALIBRATED ? 0 : 1;
  });
  EXPECT_TRUE(ended_with(status, 0)) << status;
  EXPECT_EQ(read_file(out), kOld);
  EXPECT_EQ(files_in_folder(), files) << "nothing half written stays behind";
}

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

TEST_F(Faults, ReplacingKeepsTheRightsAndTheLink) {
  const std::string out = run_.dir().write("out.lens", kOld);
  ASSERT_EQ(chmod(out.c_str(), 0640), 0);
  const std::string link = run_.dir().file("link.lens");
  std::filesystem::create_symlink("out.lens", link);
  EXPECT_EQ(run_.status(frame_.image, link), TWINTRUE_CALIBRATED);
  EXPECT_TRUE(read_file(out).starts_with("[OPTRA]\n"));
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  struct stat now {};
  ASSERT_EQ(stat(out.c_str(), &now), 0);
  EXPECT_EQ(now.st_mode & 0777u, 0640u);

  const std::string fresh = run_.dir().file("fresh.lens");
  EXPECT_EQ(run_.status(frame_.image, fresh), TWINTRUE_CALIBRATED);
  const mode_t mask = umask(0);
  umask(mask);
  ASSERT_EQ(stat(fresh.c_str(), &now), 0);
  EXPECT_EQ(now.st_mode & 0777u, 0666u & ~mask);
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

// The superuser may write anywhere, so the process becomes somebody else.
TEST_F(Faults, WhatIsProtectedStays) {
  const std::string out = run_.dir().write("out.lens", kOld);
  const std::filesystem::path closed = run_.dir().path() / "closed";
  std::filesystem::create_directory(closed);
  const std::string inside = (closed / "out.lens").string();
  std::ofstream(inside) << kOld;
  ASSERT_EQ(chmod(out.c_str(), 0444), 0);
  ASSERT_EQ(chmod(inside.c_str(), 0444), 0);
  ASSERT_EQ(chmod(run_.dir().path().c_str(), 0777), 0);
  ASSERT_EQ(chmod(closed.c_str(), 0555), 0);
  const int status = in_child([&] {
    constexpr uid_t kNobody = 65534;
    if (geteuid() == 0 && setuid(kNobody) != 0) return 9;
    if (run_.status(frame_.image, out) != TWINTRUE_CALIBRATED) return 1;
    if (run_.status(frame_.image, inside) != TWINTRUE_CALIBRATED) return 2;
    return run_.status(frame_.image, (closed / "new.lens").string()) == TWINTRUE_CALIBRATED ? 0 : 3;
  });
  EXPECT_TRUE(ended_with(status, 0)) << status;
  EXPECT_EQ(read_file(out), kOld);
  EXPECT_EQ(read_file(inside), kOld);
  EXPECT_FALSE(std::filesystem::exists(closed / "new.lens"));
  ASSERT_EQ(chmod(closed.c_str(), 0755), 0);
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
