// What the picture helper is held to, and what the program makes of one that crashes, hangs, lies or takes
// all it can get. Scripts and functions stand in for the helper.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "apps/cli/PictureFiles.h"
#include "apps/cli/Problem.h"
#include "apps/cli/pictures/Exchange.h"
#include "apps/cli/pictures/Helper.h"
#include "support/TempDir.h"

namespace twintrue::cli {
namespace {

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr auto kShort = 300ms;

class PictureHelper : public testing::Test {
 protected:
  // A helper that does what the lines of a shell script say.
  HelperRun script(const std::string& lines) const {
    HelperRun helper;
    helper.program = dir.write("helper", "#!/bin/sh\n" + lines + "\n");
    std::filesystem::permissions(helper.program, std::filesystem::perms::owner_all);
    return helper;
  }

  // What comes of reading a TIFF of that name by the helper; 0 for a picture.
  int outcome(const HelperRun& helper, std::string* text, const std::string& name = "a.tif") const {
    const std::string path = dir.write(name, std::string("II*\0\0\0\0\0", 8));
    try {
      read_frame(path, helper);
      return 0;
    } catch (const Failure& failure) {
      *text = failure.what();
      EXPECT_THAT(*text,
                  failure.code() == ExitCode::kInputUnreadable ? HasSubstr(path) : HasSubstr(helper.program));
      return static_cast<int>(failure.code());
    }
  }

  testing_support::TempDir dir;
};

TEST_F(PictureHelper, ItsFaultsAreProblemsOfThePicture) {
  struct Row {
    std::string lines;
    int code;
    std::vector<std::string> words;
  };
  const std::vector<Row> rows{
      {"kill -SEGV $$", 3, {"TIFF", "signal 11", "save it as PNG"}},
      {"kill -ABRT $$", 3, {"signal 6"}},
      {"kill -XCPU $$", 3, {"longer than 0.3 s"}},
      {"sleep 60", 3, {"TIFF", "longer than 0.3 s", "save it as PNG"}},
      {"trap '' TERM INT HUP; exec 2>&-; while :; do :; done", 3, {"longer than"}},
      {"while :; do echo words words words words >&2; done", 3, {"longer than"}},
      // One that does not get to its work is a fault of the installation.
      {"echo libOpenImageIO.so.9: not there >&2; exit 127", 1, {"libOpenImageIO.so.9: not there", "install"}},
      {"exit 0", 1, {"does not start"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.lines);
    HelperRun helper = script(row.lines);
    helper.time = row.code == 3 ? std::chrono::milliseconds(kShort) : 20s;
    // A signal of its own is not to be overtaken by the time on a busy machine.
    if (row.lines.starts_with("kill") && !row.lines.starts_with("kill -XCPU")) helper.time = 20s;
    std::string text;
    EXPECT_EQ(outcome(helper, &text), row.code) << text;
    for (const std::string& word : row.words) EXPECT_THAT(text, HasSubstr(word));
  }
  HelperRun missing;
  missing.program = dir.file("none");
  std::string text;
  EXPECT_EQ(outcome(missing, &text), 1);
  EXPECT_THAT(text, AllOf(HasSubstr("no such file"), HasSubstr("install")));
}

TEST_F(PictureHelper, NothingOfItOutlivesIt) {
  // It ends at once and leaves a process that holds its standard error open.
  const HelperRun helper = script("sleep 1000 & echo $! >&2");
  const auto start = std::chrono::steady_clock::now();
  const HelperEnd end = run_helper(helper, {}, {});
  EXPECT_LT(std::chrono::steady_clock::now() - start, 20s) << "waited for what it left";
  EXPECT_EQ(end.how, HelperEnd::How::kExit);
  const pid_t left = std::stoi(end.said);
  const auto runs = [left] {
    // Dead ones that nobody has waited for yet still have their number.
    std::string state;
    std::ifstream file("/proc/" + std::to_string(left) + "/stat");
    std::getline(file, state);
    return !state.empty() && state.find(") Z") == std::string::npos;
  };
  for (int i = 0; i < 1000 && runs(); ++i) usleep(10000);
  EXPECT_FALSE(runs());
}

TEST_F(PictureHelper, IsLimited) {
  setenv("OCIO", "/a/configuration", 1);
  setenv("LD_LIBRARY_PATH", dir.path().c_str(), 1);
  const int open_here = open(dir.write("other", "x").c_str(), O_RDONLY);  // as a caller leaves one
  ASSERT_GE(open_here, 0);
  rlimit core{};
  getrlimit(RLIMIT_CORE, &core);
  const rlimit all{core.rlim_max, core.rlim_max};  // as a developer's shell has it
  setrlimit(RLIMIT_CORE, &all);
  const int input = dup(STDIN_FILENO);
  dup2(open_here, STDIN_FILENO);
  HelperRun helper = script(
      "exec >&2; ls /proc/$$/fd\n"
      "echo core $(ulimit -c); echo time $(ulimit -t); echo memory $(ulimit -v); echo file $(ulimit "
      "-f)\n"
      "echo input $(wc -c); echo score $(cat /proc/self/oom_score_adj); env");
  helper.time = 20s;
  helper.memory = std::uint64_t{1} << 30;
  helper.file_bytes = 1 << 20;
  const std::string said = run_helper(helper, {}, {open_here, open_here}).said;
  close(open_here);
  setrlimit(RLIMIT_CORE, &core);
  dup2(input, STDIN_FILENO);
  close(input);
  unsetenv("OCIO");
  unsetenv("LD_LIBRARY_PATH");
  const auto processors = std::max(1L, sysconf(_SC_NPROCESSORS_ONLN));
  EXPECT_THAT(said, AllOf(HasSubstr("core 0\n"), HasSubstr("time " + std::to_string(20 * processors) + "\n"),
                          HasSubstr("file 2048\n"), HasSubstr("input 0\n"), HasSubstr("score 1000\n")));
#ifndef TWINTRUE_SANITIZED
  EXPECT_THAT(said, HasSubstr("memory 1048576\n"));
#endif
  // The shell keeps its script at 10.
  EXPECT_THAT(said, testing::StartsWith("0\n1\n10\n2\n3\n4\ncore"));
  EXPECT_THAT(said, AllOf(HasSubstr("LD_LIBRARY_PATH=" + dir.path().string()), Not(HasSubstr("OCIO"))));
}

#ifndef TWINTRUE_SANITIZED
int eat_memory(int /*argc*/, char** /*argv*/) {
  for (std::size_t total = 0; total < std::size_t{4} << 30; total += std::size_t{16} << 20) {
    void* const block = std::malloc(std::size_t{16} << 20);
    if (block == nullptr) return 42;
    std::memset(block, 1, std::size_t{16} << 20);
  }
  return 0;
}

TEST_F(PictureHelper, GetsNoMoreMemoryThanItMay) {
  HelperRun helper;
  helper.stand_in = &eat_memory;
  helper.memory = std::uint64_t{1} << 30;
  EXPECT_EQ(run_helper(helper, {}, {}).number, 42);

  // A small file of a large picture, for whose bytes alone there is no room.
  helper.stand_in = &picture_helper;
  const std::string path = dir.write("large", "P6 20000 13000 255\n");
  try {
    read_frame(path, helper);
    ADD_FAILURE() << "was read";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.code(), ExitCode::kInputUnreadable);
    EXPECT_THAT(failure.what(), AllOf(HasSubstr(path), HasSubstr("more than 1 GiB of memory")));
  }
}
#endif

TEST_F(PictureHelper, IsHeardToAMeasure) {
  const HelperRun helper = script("i=0; while [ $i -lt 2000 ]; do echo words words >&2; i=$((i+1)); done");
  EXPECT_EQ(run_helper(helper, {}, {}).said.size(), 4096u);
}

TEST_F(PictureHelper, TellsWhatCouldNotBeWritten) {
  const OutputFile file({"-o", dir.file("out.tif")}, {});
  const std::vector<float> pixels(64, 1.0f);
  struct Row {
    std::string lines;
    std::vector<std::string> words;
  };
  for (const Row& row :
       {Row{"kill -SEGV $$", {"signal 11", "could not be written"}}, Row{"exit 0", {"install"}}}) {
    try {
      write_float_picture(file, 8, 8, pixels, script(row.lines));
      ADD_FAILURE() << "was written";
    } catch (const Failure& failure) {
      EXPECT_EQ(failure.code(), ExitCode::kOther);
      for (const std::string& word : row.words) EXPECT_THAT(failure.what(), HasSubstr(word));
    }
  }
}

// What a helper leaves: at first a picture of 4 x 4 pixels.
struct Legacy {
  ExchangeHeader header;
  std::int64_t samples = 4 * 4 * 3;
  int exit_code = 0;
};

// What one that was taken over might leave, by the name of the picture.
const std::map<std::string, std::function<void(Legacy&)>>& lies() {
  static const std::map<std::string, std::function<void(Legacy&)>> table{
      {"truth", [](Legacy&) {}},
      {"no width", [](Legacy& it) { it.header.width = 0, it.samples = 0; }},
      {"negative", [](Legacy& it) { it.header.width = it.header.height = -4; }},
      {"too wide",
       [](Legacy& it) {
         it.header.width = kLargestPictureSide + 1;
         it.samples = std::int64_t{it.header.width} * 4 * 3;
       }},
      {"too large", [](Legacy& it) { it.header.width = it.header.height = kLargestPictureSide; }},
      {"more than is there", [](Legacy& it) { it.header.height = 5; }},
      {"less than is there", [](Legacy& it) { it.header.height = 3; }},
      {"no pictures", [](Legacy& it) { it.header.pictures = 0; }},
      {"no samples", [](Legacy& it) { it.header.sample_bytes = 0, it.samples = 0; }},
      {"samples of three bytes", [](Legacy& it) { it.header.sample_bytes = 3, it.samples *= 3; }},
      {"deeper than was asked for", [](Legacy& it) { it.header.sample_bytes = 4, it.samples *= 4; }},
      {"other state", [](Legacy& it) { it.header.state = static_cast<ExchangeState>(77); }},
      {"started", [](Legacy& it) { it.header.state = ExchangeState::kStarted; }},
      {"no memory", [](Legacy& it) { it.header.state = ExchangeState::kNoMemory; }},
      {"failed in the end", [](Legacy& it) { it.exit_code = 5; }},
      {"huge file", [](Legacy& it) { it.samples = std::int64_t{1} << 40; }},
      {"words",
       [](Legacy& it) {
         it.header.state = ExchangeState::kProblem;
         it.header.found.fill('\x1b');
         it.header.expected.fill('e');
       }},
  };
  return table;
}

int lie(int /*argc*/, char** argv) {
  Legacy it;
  it.header.state = ExchangeState::kDone;
  it.header.width = it.header.height = 4;
  it.header.pictures = 1;
  lies().at(std::filesystem::path(argv[3]).filename().string())(it);
  const bool good =
      pwrite(kExchangeDescriptor, &it.header, sizeof it.header, 0) == sizeof it.header &&
      ftruncate(kExchangeDescriptor, static_cast<off_t>(kExchangeHeaderBytes) + it.samples) == 0;
  return good ? it.exit_code : 9;
}

TEST_F(PictureHelper, IsNotBelieved) {
  HelperRun helper;
  helper.stand_in = &lie;
  for (const auto& [name, unused] : lies()) {
    SCOPED_TRACE(name);
    std::string text;
    EXPECT_EQ(outcome(helper, &text, name), name == "truth" ? 0 : 3) << text;
    EXPECT_TRUE(std::all_of(text.begin(), text.end(), [](char c) { return c == '\n' || c >= ' '; }));
    const std::map<std::string, std::string> words{{"words", "expected  " + std::string(512, 'e') + "\n"},
                                                   {"no memory", "more than 8 GiB"},
                                                   {"started", "exit code 0"},
                                                   {"failed in the end", "exit code 5"},
                                                   {"huge file", "File size limit"}};
    const auto wanted = words.find(name);
    if (wanted != words.end()) {
      EXPECT_THAT(text, HasSubstr(wanted->second));
    }
  }
}

}  // namespace
}  // namespace twintrue::cli
