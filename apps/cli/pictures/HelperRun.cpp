#include "apps/cli/pictures/HelperRun.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <thread>

#include "apps/cli/pictures/Descriptor.h"

namespace twintrue::cli {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kCannotRun = 127;  // as shells say it
constexpr std::size_t kMostSaid = 4096;
constexpr std::chrono::milliseconds kLook{50};  // how often a child is looked at whose pipe stays open

// A name that other processes, such as the one that kills when memory ends, go by.
constexpr const char* kMemoryScore = "/proc/self/oom_score_adj";
constexpr const char* kFirstToGo = "1000";

// Pointers to texts, with the null that the system wants at the end.
std::vector<char*> pointers(const std::vector<std::string>& texts) {
  std::vector<char*> list;
  list.reserve(texts.size() + 1);
  for (const std::string& text : texts) list.push_back(const_cast<char*>(text.c_str()));
  list.push_back(nullptr);
  return list;
}

// Nothing else: variables name colour configurations and plug-ins, and libraries would open those.
std::vector<std::string> helper_environment() {
  // Threads that libraries start on each processor, and their heaps, would fill the address space.
  std::vector<std::string> environment{"OMP_NUM_THREADS=1", "OPENBLAS_NUM_THREADS=1", "MALLOC_ARENA_MAX=2"};
  for (const char* name :
       {"LD_LIBRARY_PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS"}) {
    if (const char* const value = std::getenv(name)) environment.push_back(std::string(name) + "=" + value);
  }
  return environment;
}

// All that the child needs, made before it is: between its start and the program's, memory must not be asked
// for, since another thread of the parent may have held the allocator's lock.
struct Start {
  const HelperRun& run;
  std::vector<int> descriptors;  // what becomes 0, 1, 2, ...
  std::vector<char*> argv;
  std::vector<char*> environment;
  rlim_t processor_seconds;
  pid_t parent;
};

void limit(int resource, rlim_t soft, rlim_t hard) {
  rlimit now{};
  getrlimit(static_cast<__rlimit_resource>(resource), &now);
  const rlimit next{std::min(soft, now.rlim_max), std::min(hard, now.rlim_max)};
  if (setrlimit(static_cast<__rlimit_resource>(resource), &next) != 0) _exit(kCannotRun);
}

void set_limits(const Start& start) {
  limit(RLIMIT_CORE, 0, 0);
  limit(RLIMIT_CPU, start.processor_seconds, start.processor_seconds + 1);
#ifndef TWINTRUE_SANITIZED
  limit(RLIMIT_AS, start.run.memory, start.run.memory);
#endif
  if (start.run.file_bytes > 0) limit(RLIMIT_FSIZE, start.run.file_bytes, start.run.file_bytes);
  const int score = open(kMemoryScore, O_WRONLY);
  if (score >= 0) {
    // Where it can't be set, the system chooses by itself.
    [[maybe_unused]] const ssize_t ignored = write(score, kFirstToGo, std::strlen(kFirstToGo));
    close(score);
  }
}

void close_from(unsigned first) {
#ifdef SYS_close_range
  if (syscall(SYS_close_range, first, ~0U, 0U) == 0) return;
#endif
  rlimit files{};
  getrlimit(RLIMIT_NOFILE, &files);
  const auto end = static_cast<unsigned>(std::min<rlim_t>(files.rlim_cur, 1U << 16));
  for (unsigned descriptor = first; descriptor < end; ++descriptor) close(static_cast<int>(descriptor));
}

void lay_descriptors(const Start& start) {
  // First out of the way of the places that are to be taken.
  constexpr int kClear = 32;
  std::array<int, kClear> copies{};
  const std::size_t count = std::min<std::size_t>(start.descriptors.size(), kClear);
  for (std::size_t i = 0; i < count; ++i) copies[i] = fcntl(start.descriptors[i], F_DUPFD, kClear);
  for (std::size_t i = 0; i < count; ++i) {
    if (copies[i] < 0 || dup2(copies[i], static_cast<int>(i)) < 0) _exit(kCannotRun);
  }
  close_from(static_cast<unsigned>(count));
}

[[noreturn]] void be_helper(const Start& start) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (getppid() != start.parent) _exit(kCannotRun);  // it died before it was watched
  setsid();                                          // a group of its own, so that all of it can be killed
  sigset_t none;
  sigemptyset(&none);
  sigprocmask(SIG_SETMASK, &none, nullptr);
  lay_descriptors(start);
  set_limits(start);
  if (start.run.stand_in != nullptr) {
    _exit(start.run.stand_in(static_cast<int>(start.argv.size()) - 1, const_cast<char**>(start.argv.data())));
  }
  execve(start.argv[0], start.argv.data(), start.environment.data());
  _exit(kCannotRun);
}

// Takes some of what stands in the pipe. False at its end.
bool take(int pipe, std::string& said) {
  std::array<char, kMostSaid> chunk{};
  const ssize_t got = read(pipe, chunk.data(), chunk.size());
  if (got < 0) return errno == EAGAIN || errno == EINTR;
  said.append(chunk.data(), std::min(static_cast<std::size_t>(got), kMostSaid - said.size()));
  return got > 0;
}

bool has_ended(pid_t child) {
  siginfo_t info{};
  // Left to be waited for, so that its number stays its own.
  return waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
         info.si_pid == child;
}

void wait_a_little(int pipe, bool open, std::chrono::milliseconds time) {
  pollfd watched{open ? pipe : -1, POLLIN, 0};
  poll(&watched, 1, static_cast<int>(time.count()));
}

HelperEnd follow(pid_t child, int pipe, std::chrono::milliseconds time) {
  const Clock::time_point deadline = Clock::now() + time;
  HelperEnd end;
  bool open = true;
  while (!has_ended(child)) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) {
      end.how = HelperEnd::How::kTime;
      kill(child, SIGKILL);  // it may not have its group yet
      break;
    }
    // The pipe wakes at once when the helper ends, which closes it. Where it was closed before, or a process
    // that the helper left holds it open, looking has to do.
    constexpr std::chrono::milliseconds kSoon{1};
    wait_a_little(pipe, open, std::min(left, open ? kLook : kSoon));
    if (open) open = take(pipe, end.said);
  }
  kill(-child, SIGKILL);  // with all that it may have started
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  take(pipe, end.said);
  if (end.how == HelperEnd::How::kTime) return end;
  if (WIFSIGNALED(status)) {
    end.how = WTERMSIG(status) == SIGXCPU ? HelperEnd::How::kTime : HelperEnd::How::kSignal;
    end.number = WTERMSIG(status);
  } else {
    end.number = WEXITSTATUS(status);
  }
  return end;
}

}  // namespace

HelperEnd run_helper(const HelperRun& run, const std::vector<std::string>& arguments,
                     const std::vector<int>& files) {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    throw std::system_error(errno, std::generic_category(), "pipe");
  }
  const Descriptor out_end(ends[0], "pipe");
  Descriptor in_end(ends[1], "pipe");
  const Descriptor nothing(open("/dev/null", O_RDWR | O_CLOEXEC), "/dev/null");

  std::vector<std::string> texts{run.program};
  texts.insert(texts.end(), arguments.begin(), arguments.end());
  const std::vector<std::string> environment = helper_environment();
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(run.time).count();
  Start start{run,
              {nothing.get(), nothing.get(), in_end.get()},
              pointers(texts),
              pointers(environment),
              static_cast<rlim_t>(seconds) * std::max(1U, std::thread::hardware_concurrency()),
              getpid()};
  start.descriptors.insert(start.descriptors.end(), files.begin(), files.end());

  const pid_t child = fork();
  if (child < 0) throw std::system_error(errno, std::generic_category(), "fork");
  if (child == 0) be_helper(start);
  in_end.reset();
  return follow(child, out_end.get(), run.time);
}

}  // namespace twintrue::cli
