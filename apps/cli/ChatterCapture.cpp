#include "apps/cli/ChatterCapture.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <iostream>
#include <system_error>

namespace twintrue::cli {
namespace {

void flush_all() {
  std::cout.flush();
  std::cerr.flush();
  std::fflush(stdout);
  std::fflush(stderr);
}

}  // namespace

ChatterCapture::ChatterCapture(Streams streams) {
  const std::vector<int> descriptors = streams == Streams::kOutput
                                           ? std::vector<int>{STDOUT_FILENO}
                                           : std::vector<int>{STDOUT_FILENO, STDERR_FILENO};
  saved_.reserve(descriptors.size());
  flush_all();
  file_ = memfd_create("twintrue-chatter", MFD_CLOEXEC);
  if (file_ < 0) throw std::system_error(errno, std::generic_category(), "memfd_create");
  // Both streams append to the one file, which has a single offset.
  for (const int descriptor : descriptors) {
    const int copy = fcntl(descriptor, F_DUPFD_CLOEXEC, 3);
    if (copy < 0 || dup2(file_, descriptor) < 0) {
      const int error = errno;
      if (copy >= 0) close(copy);
      restore();
      close(file_);
      throw std::system_error(error, std::generic_category(), "redirecting the standard streams");
    }
    saved_.push_back({descriptor, copy});
  }
}

ChatterCapture::~ChatterCapture() {
  restore();
  if (file_ >= 0) close(file_);
}

void ChatterCapture::restore() noexcept {
  if (saved_.empty()) return;
  flush_all();
  for (const Saved& saved : saved_) {
    dup2(saved.copy, saved.descriptor);
    close(saved.copy);
  }
  saved_.clear();
}

std::string ChatterCapture::finish() {
  restore();
  std::string text;
  if (file_ < 0) return text;
  std::array<char, 4096> chunk;
  off_t offset = 0;
  for (;;) {
    const ssize_t got = pread(file_, chunk.data(), chunk.size(), offset);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    text.append(chunk.data(), static_cast<std::size_t>(got));
    offset += got;
  }
  close(file_);
  file_ = -1;
  return text;
}

MessagesToErrors::MessagesToErrors() {
  std::cout.flush();
  // Unbuffered from here on, so that messages keep their order with those of standard error.
  std::fflush(stdout);
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  saved_ = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3);
  if (saved_ < 0 || dup2(STDERR_FILENO, STDOUT_FILENO) < 0) {
    const int error = errno;
    if (saved_ >= 0) close(saved_);
    throw std::system_error(error, std::generic_category(), "redirecting standard output");
  }
}

MessagesToErrors::~MessagesToErrors() {
  std::cout.flush();
  std::fflush(stdout);
  dup2(saved_, STDOUT_FILENO);
  close(saved_);
}

void open_missing_standard_streams() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    if (fcntl(descriptor, F_GETFD) >= 0) continue;
    // The lowest free descriptor is this one, since those below it are open.
    if (open("/dev/null", O_RDWR) < 0) return;
  }
}

}  // namespace twintrue::cli
