#include "base/EnoughStack.h"

#include <omp.h>
#include <pthread.h>

#include <cstdint>
#include <system_error>

namespace twintrue::stack_detail {
namespace {

// Bytes below the caller's frame; 0 where the system does not tell.
std::size_t stack_left() {
  pthread_attr_t attributes;
  if (pthread_getattr_np(pthread_self(), &attributes) != 0) return 0;
  void* lowest = nullptr;
  std::size_t size = 0;
  const int error = pthread_attr_getstack(&attributes, &lowest, &size);
  pthread_attr_destroy(&attributes);
  if (error != 0) return 0;
  const auto here = reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0));
  const auto end = reinterpret_cast<std::uintptr_t>(lowest);
  return here > end && here - end <= size ? here - end : 0;
}

struct Start {
  void (*work)(void*);
  void* argument;
  int threads;  // that the host asked the OpenMP runtime for: it holds so for the asking thread alone
};

}  // namespace

void run(std::size_t bytes, void (*work)(void*), void* argument) {
  if (stack_left() >= bytes) {
    work(argument);
    return;
  }
  Start start{work, argument, omp_get_max_threads()};
  pthread_attr_t attributes;
  int error = pthread_attr_init(&attributes);
  if (error != 0) throw std::system_error(error, std::generic_category());
  pthread_attr_setstacksize(&attributes, bytes);
  pthread_t thread{};
  const auto begin = [](void* given) -> void* {
    const auto* const the_start = static_cast<const Start*>(given);
    omp_set_num_threads(the_start->threads);
    the_start->work(the_start->argument);
    return nullptr;
  };
  error = pthread_create(&thread, &attributes, begin, &start);
  pthread_attr_destroy(&attributes);
  if (error != 0) throw std::system_error(error, std::generic_category());
  pthread_join(thread, nullptr);
}

}  // namespace twintrue::stack_detail
