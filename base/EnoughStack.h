#pragma once

// A stack of a known size for work whose depth is set by its input.

#include <cstddef>
#include <exception>

namespace twintrue {

namespace stack_detail {
void run(std::size_t bytes, void (*work)(void*), void* argument);
}

// Calls `work` and returns when it is through: on the calling thread if at least `bytes` of its stack are
// left, else on a thread made for it, which takes no signals. What `work` throws comes out. Throws
// std::system_error if that thread can't be had.
template <typename Work>
void with_enough_stack(std::size_t bytes, Work&& work) {
  struct Call {
    Work& work;
    std::exception_ptr failure;
  } call{work, nullptr};
  stack_detail::run(
      bytes,
      [](void* argument) {
        auto* const the_call = static_cast<Call*>(argument);
        try {
          the_call->work();
        } catch (...) {
          the_call->failure = std::current_exception();
        }
      },
      &call);
  if (call.failure) std::rethrow_exception(call.failure);
}

}  // namespace twintrue
