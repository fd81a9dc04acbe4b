#pragma once

// Keeps what a library prints away from the program's own output.

#include <cstdio>
#include <string>
#include <vector>

namespace twintrue::cli {

// While the object lives, the chosen standard streams of the whole process go to a nameless file: at the
// level of the descriptors, so that C streams, C++ streams and libraries are all caught. Make one at a time,
// from one thread. The streams come back by finish() or at the latest by the destructor.
class ChatterCapture {
 public:
  enum class Streams { kOutput, kOutputAndErrors };

  // Throws std::system_error if the redirection can't be set up; the streams are then as before.
  explicit ChatterCapture(Streams streams);
  ChatterCapture(const ChatterCapture&) = delete;
  ChatterCapture& operator=(const ChatterCapture&) = delete;
  ~ChatterCapture();

  // Puts the streams back and returns all that was printed, in order. A second call returns "".
  std::string finish();

 private:
  struct Saved {
    int descriptor;
    int copy;
  };
  void restore() noexcept;

  int file_ = -1;
  std::vector<Saved> saved_;
};

// While the object lives, what the process writes to standard output goes to standard error, byte for byte
// and in order with what goes there anyway. Make one at a time, from one thread. Throws std::system_error.
class MessagesToErrors {
 public:
  MessagesToErrors();
  MessagesToErrors(const MessagesToErrors&) = delete;
  MessagesToErrors& operator=(const MessagesToErrors&) = delete;
  ~MessagesToErrors();

 private:
  int saved_ = -1;
};

// Opens the null device on whichever of the descriptors 0, 1 and 2 the caller left closed, lest a file that
// the program opens land there.
void open_missing_standard_streams();

}  // namespace twintrue::cli
