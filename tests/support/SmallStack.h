#pragma once

#include <pthread.h>

#include <exception>
#include <functional>
#include <stdexcept>

namespace testing_support {

// Runs the body on a thread with a stack as small as a host may give one. What it throws is thrown on.
inline void on_small_stack(const std::function<void()>& body, std::size_t bytes = std::size_t{128} << 10) {
  struct Call {
    const std::function<void()>& body;
    std::exception_ptr thrown;
  } call{body, nullptr};
  pthread_attr_t attributes;
  pthread_t thread;
  const auto run = [](void* argument) -> void* {
    auto& called = *static_cast<Call*>(argument);
    try {
      called.body();
    } catch (...) {
      called.thrown = std::current_exception();
    }
    return nullptr;
  };
  pthread_attr_init(&attributes);
  const bool started = pthread_attr_setstacksize(&attributes, bytes) == 0 &&
                       pthread_create(&thread, &attributes, run, &call) == 0;
  pthread_attr_destroy(&attributes);
  if (!started) throw std::runtime_error("no thread with a small stack");
  pthread_join(thread, nullptr);
  if (call.thrown) std::rethrow_exception(call.thrown);
}

}  // namespace testing_support
