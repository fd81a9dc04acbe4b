#pragma once

// Children of a test, for what can't be taken back.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

namespace testing_support {

// Runs the body in a child; returns how the child ended, as waitpid tells it.
inline int in_child(const std::function<int()>& body) {
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return status;
}

inline bool ended_with(int status, int code) { return WIFEXITED(status) && WEXITSTATUS(status) == code; }

}  // namespace testing_support
