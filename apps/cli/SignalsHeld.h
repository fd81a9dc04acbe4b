#pragma once

#include <csignal>

namespace twintrue::cli {

// While it lives, what a person or the system sends to end the program waits, so that a file that stands
// beside its target for a moment is not left there. For steps of seconds at most, on a thread that has no
// others beside it: signals go to any of them.
class SignalsHeld {
 public:
  SignalsHeld() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&ending, signal);
    pthread_sigmask(SIG_BLOCK, &ending, &before_);
  }
  SignalsHeld(const SignalsHeld&) = delete;
  SignalsHeld& operator=(const SignalsHeld&) = delete;
  ~SignalsHeld() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

}  // namespace twintrue::cli
