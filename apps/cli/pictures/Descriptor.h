#pragma once

#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace twintrue::cli {

// An open file of the system, closed with the object.
class Descriptor {
 public:
  // Takes what a system call returned. Throws std::system_error, with that call's name, if it failed.
  Descriptor(int number, const char* call) : number_(number) {
    if (number < 0) throw std::system_error(errno, std::generic_category(), call);
  }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&&) = delete;
  ~Descriptor() { reset(); }

  int get() const { return number_; }
  void reset() {
    if (number_ >= 0) close(std::exchange(number_, -1));
  }

 private:
  int number_;
};

}  // namespace twintrue::cli
