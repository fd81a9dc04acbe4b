#include "base/WholeFile.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "support/Child.h"
#include "support/TempDir.h"

namespace twintrue {
namespace {

namespace fs = std::filesystem;
using testing_support::ended_with;
using testing_support::in_child;
using testing_support::read_file;
using testing_support::TempDir;

std::vector<fs::path> files_in(const fs::path& folder) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) files.push_back(entry.path());
  return files;
}

mode_t rights_of(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_mode & 0777u : 0;
}

TEST(WholeFile, ReadsToTheEndOrFails) {
  const TempDir dir;
  std::string bytes = "old";
  for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{1} << 16, std::size_t{200000}}) {
    const std::string file = dir.write("file", std::string(size, 'x') + "end");
    EXPECT_FALSE(read_whole_file(file, size + 3, bytes));
    EXPECT_EQ(bytes, std::string(size, 'x') + "end");
    EXPECT_EQ(read_whole_file(file, size + 2, bytes), std::errc::file_too_large);
  }
  EXPECT_EQ(read_whole_file(dir.file("none"), 9, bytes), std::errc::no_such_file_or_directory);
  EXPECT_EQ(read_whole_file(dir.path(), 9, bytes), std::errc::is_a_directory);
  EXPECT_EQ(read_whole_file("/proc/self/mem", 9, bytes), std::errc::io_error);
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_EQ(read_whole_file("/proc/self/fd/" + std::to_string(ends[0]), 9, bytes), std::errc::invalid_seek);
  close(ends[0]);
  close(ends[1]);
}

TEST(WholeFile, TheTargetStaysUntilTheCommit) {
  const TempDir dir;
  const std::string target = dir.write("target", "old");
  {
    AtomicFile dropped;
    ASSERT_FALSE(dropped.create(target));
    ASSERT_FALSE(dropped.write("new"));
    EXPECT_EQ(read_file(dropped.path()), "new");
    EXPECT_EQ(read_file(target), "old");
  }
  EXPECT_EQ(files_in(dir.path()), std::vector<fs::path>{target});

  AtomicFile kept;
  ASSERT_FALSE(kept.create(target));
  ASSERT_FALSE(kept.write("a longer text that goes"));
  ASSERT_FALSE(kept.write("new"));
  ASSERT_FALSE(kept.commit());
  EXPECT_EQ(read_file(target), "new");
  EXPECT_EQ(files_in(dir.path()), std::vector<fs::path>{target});
}

// Whoever can write to the folder may take the file away and put a link in its place.
TEST(WholeFile, ALinkInItsPlaceLeadsNowhere) {
  const TempDir dir;
  fs::create_directory(dir.path() / "shared");
  const std::string victim = dir.write("victim", "precious");
  const std::string target = dir.file("shared/target");
  auto file = std::make_unique<AtomicFile>();
  ASSERT_FALSE(file->create(target));
  const std::vector<fs::path> made = files_in(dir.path() / "shared");
  ASSERT_EQ(made.size(), 1u);
  fs::remove(made[0]);
  fs::create_symlink(victim, made[0]);
  EXPECT_FALSE(file->write("new"));
  EXPECT_FALSE(write_whole_file(file->path(), "by others"));
  EXPECT_EQ(read_file(file->path()), "by others");
  EXPECT_TRUE(file->commit());
  file.reset();
  EXPECT_EQ(read_file(victim), "precious");
  EXPECT_FALSE(fs::exists(target));
  EXPECT_TRUE(fs::is_symlink(made[0])) << "what isn't ours is not ours to remove";
}

TEST(WholeFile, LinksStandForWhatTheyPointTo) {
  const TempDir dir;
  fs::create_directory(dir.path() / "sub");
  fs::create_symlink("sub/target", dir.file("link"));
  fs::create_symlink(dir.file("link"), dir.file("chain"));
  fs::create_symlink("circle", dir.file("circle"));
  for (const char* text : {"first", "second"}) {  // the links lead to nothing at first
    EXPECT_FALSE(write_whole_file(dir.file("chain"), text));
    EXPECT_EQ(read_file(dir.file("sub/target")), text);
    EXPECT_EQ(files_in(dir.path() / "sub").size(), 1u);
  }
  EXPECT_TRUE(fs::is_symlink(dir.file("link")));
  EXPECT_TRUE(write_whole_file(dir.file("circle"), "text"));
}

TEST(WholeFile, RightsAreThoseOfTheOldFileOrOfANewOne) {
  const TempDir dir;
  const std::string old = dir.write("old", "old");
  ASSERT_EQ(chmod(old.c_str(), 0640), 0);
  EXPECT_FALSE(write_whole_file(old, "new"));
  EXPECT_EQ(rights_of(old), 0640u);
  const mode_t mask = umask(027);
  EXPECT_FALSE(write_whole_file(dir.file("fresh"), "new"));
  umask(mask);
  EXPECT_EQ(rights_of(dir.file("fresh")), 0640u);
}

TEST(WholeFile, PlacesWithoutRoomBesideTakeTheBytesThemselves) {
  const TempDir dir;
  EXPECT_FALSE(write_whole_file("/dev/null", "text"));
  EXPECT_EQ(write_whole_file("/dev/full", "text"), std::errc::no_space_on_device);
  for (const std::string& path : {dir.path().string(), dir.file(""), dir.file("none/file"),
                                  dir.file(std::string(300, 'n')), std::string()}) {
    AtomicFile file;
    EXPECT_TRUE(file.create(path)) << path;
    EXPECT_TRUE(write_whole_file(path, "text")) << path;
  }
  EXPECT_TRUE(files_in(dir.path()).empty());
}

// The superuser may write anywhere, so the process becomes somebody else.
TEST(WholeFile, ProtectedFilesStayAndProtectedFoldersTakeNone) {
  const TempDir dir;
  ASSERT_EQ(chmod(dir.path().c_str(), 0777), 0);
  const std::string kept = dir.write("kept", "old");
  ASSERT_EQ(chmod(kept.c_str(), 0444), 0);
  fs::create_directory(dir.path() / "closed");
  const std::string open_inside = dir.write("closed/open", "a longer old text");
  ASSERT_EQ(chmod(open_inside.c_str(), 0666), 0);
  ASSERT_EQ(chmod(dir.file("closed").c_str(), 0555), 0);
  const int status = in_child([&] {
    constexpr uid_t kNobody = 65534;
    if (geteuid() == 0 && setuid(kNobody) != 0) return 9;
    if (write_whole_file(kept, "new") != std::errc::permission_denied) return 1;
    if (write_whole_file(dir.file("closed/new"), "new") != std::errc::permission_denied) return 2;
    AtomicFile file;
    if (file.create(open_inside) != std::errc::permission_denied) return 3;
    return write_whole_file(open_inside, "new") ? 4 : 0;
  });
  EXPECT_TRUE(ended_with(status, 0)) << status;
  EXPECT_EQ(read_file(kept), "old");
  EXPECT_EQ(read_file(open_inside), "new");
  ASSERT_EQ(chmod(dir.file("closed").c_str(), 0755), 0);
}

TEST(WholeFile, AFullDiskLeavesTheOldFileOrAnEmptyOne) {
  const TempDir dir;
  const std::string target = dir.write("target", "old");
  const int status = in_child([&] {
    std::signal(SIGXFSZ, SIG_IGN);  // writes fail as they do on a full disk
    const rlimit limit{100, 100};
    if (setrlimit(RLIMIT_FSIZE, &limit) != 0) return 9;
    if (write_whole_file(target, std::string(200, 'x')) != std::errc::file_too_large) return 1;
    AtomicFile file;
    if (file.create(dir.file("other"))) return 2;
    if (!write_whole_file(file.path(), std::string(200, 'x'))) return 3;
    return read_file(file.path()).empty() ? 0 : 4;
  });
  EXPECT_TRUE(ended_with(status, 0)) << status;
  EXPECT_EQ(read_file(target), "old");
}

}  // namespace
}  // namespace twintrue
