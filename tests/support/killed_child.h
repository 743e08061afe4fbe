#ifndef KEELSTONE_TESTS_SUPPORT_KILLED_CHILD_H
#define KEELSTONE_TESTS_SUPPORT_KILLED_CHILD_H

#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

namespace keelstone::testing {

enum class ChildEnd { kKilled, kDone, kCannotTrace };

/// Runs `work` in a child process that is killed when it is about to make its system call
/// number `at` (from 1), so that a test can stop it between any two changes of the disk.
/// kDone when it had come to its end before. Only for a process without other threads.
inline ChildEnd RunAndKillAt(int at, const std::function<void()>& work) {
  const pid_t child = ::fork();
  if (child == 0) {
    if (::ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) ::_exit(77);
    ::raise(SIGSTOP);
    work();
    ::_exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!WIFSTOPPED(status)) return ChildEnd::kCannotTrace;
  ::ptrace(PTRACE_SETOPTIONS, child, nullptr, PTRACE_O_TRACESYSGOOD | PTRACE_O_EXITKILL);
  int calls = 0;
  bool inCall = false;
  long signal = 0;
  while (true) {
    ::ptrace(PTRACE_SYSCALL, child, nullptr, signal);
    ::waitpid(child, &status, 0);
    if (WIFEXITED(status)) {
      return WEXITSTATUS(status) == 0 ? ChildEnd::kDone : ChildEnd::kCannotTrace;
    }
    if (!WIFSTOPPED(status)) return ChildEnd::kCannotTrace;
    signal = WSTOPSIG(status);
    if (signal != (SIGTRAP | 0x80)) continue;  // a signal of its own, handed on
    signal = 0;
    inCall = !inCall;
    if (!inCall || ++calls < at) continue;
    ::kill(child, SIGKILL);
    ::waitpid(child, &status, 0);
    return ChildEnd::kKilled;
  }
}

}  // namespace keelstone::testing

#endif  // KEELSTONE_TESTS_SUPPORT_KILLED_CHILD_H
