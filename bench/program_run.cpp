#include "bench/program_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <stdexcept>

#include "bench/bench_case.h"

namespace keelstone::bench {

namespace {

double Seconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

pid_t Start(std::vector<std::string>& arguments, const std::filesystem::path& output) {
  std::vector<char*> texts;
  for (std::string& argument : arguments) texts.push_back(argument.data());
  texts.push_back(nullptr);
  posix_spawn_file_actions_t files;
  ::posix_spawn_file_actions_init(&files);
  ::posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, output.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0600);
  pid_t child = -1;
  const int failed = ::posix_spawn(&child, texts[0], &files, nullptr, texts.data(), environ);
  ::posix_spawn_file_actions_destroy(&files);
  if (failed != 0) throw std::runtime_error(arguments[0] + " cannot be started");
  return child;
}

}  // namespace

ProgramRun RunKeelstone(const std::vector<std::string>& arguments,
                        const std::filesystem::path& output) {
  std::vector<std::string> command = {KEELSTONE_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const std::int64_t start = Now(Clock::kWall);
  const pid_t child = Start(command, output);
  int status = 0;
  rusage usage = {};
  while (::wait4(child, &status, 0, &usage) < 0) {
    if (errno != EINTR) throw std::runtime_error("the program is gone");
  }
  ProgramRun run;
  run.seconds = static_cast<double>(Now(Clock::kWall) - start) * 1e-9;
  run.processorSeconds = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
  run.peakBytes = static_cast<double>(usage.ru_maxrss) * 1024;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error("keelstone " + arguments.front() + " failed");
  }
  return run;
}

}  // namespace keelstone::bench
