// Runs a piece of code in a child process, for answers whose caches live per process.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <functional>
#include <initializer_list>
#include <utility>

namespace qkm_test {

// Forks, sets (or, for a null value, unsets) the given variables in the child, runs `fn` there
// and returns its result. Returns INT64_MIN when the child did not report.
inline int64_t in_child(std::initializer_list<std::pair<const char *, const char *>> env,
                        const std::function<int64_t()> &fn) {
  int fds[2];
  if (pipe(fds) != 0) return INT64_MIN;
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    for (const auto &[name, value] : env) {
      if (value != nullptr)
        setenv(name, value, 1);
      else
        unsetenv(name);
    }
    const int64_t r = fn();
    (void)!write(fds[1], &r, sizeof r);
    close(fds[1]);
    _exit(0);
  }
  close(fds[1]);
  int64_t r = INT64_MIN;
  if (read(fds[0], &r, sizeof r) != static_cast<ssize_t>(sizeof r)) r = INT64_MIN;
  close(fds[0]);
  int status = 0;
  waitpid(pid, &status, 0);
  return r;
}

}  // namespace qkm_test
