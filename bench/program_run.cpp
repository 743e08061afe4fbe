#include "bench/program_run.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>

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

/// The most memory that the process has had in use so far; 0 when it is gone.
double PeakBytes(pid_t process) {
  std::ifstream status("/proc/" + std::to_string(process) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stod(line.substr(6)) * 1024;
  }
  return 0;
}

/// Looks at the peak as long as the process runs: what wait4 tells of it begins with the
/// memory of the process that started it.
class PeakWatch {
 public:
  explicit PeakWatch(pid_t process) : thread_([this, process] { Watch(process); }) {}
  ~PeakWatch() { Stop(); }
  PeakWatch(const PeakWatch&) = delete;
  PeakWatch& operator=(const PeakWatch&) = delete;

  double Stop() {
    ended_ = true;
    if (thread_.joinable()) thread_.join();
    return peak_;
  }

 private:
  void Watch(pid_t process) {
    while (!ended_) {
      peak_ = std::max(peak_, PeakBytes(process));
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  double peak_ = 0;
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

}  // namespace

ProgramRun RunKeelstone(const std::vector<std::string>& arguments,
                        const std::filesystem::path& output) {
  std::vector<std::string> command = {KEELSTONE_PROGRAM};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const std::int64_t start = Now(Clock::kWall);
  const pid_t child = Start(command, output);
  PeakWatch peak(child);
  int status = 0;
  rusage usage = {};
  while (::wait4(child, &status, 0, &usage) < 0) {
    if (errno != EINTR) throw std::runtime_error("the program is gone");
  }
  ProgramRun run;
  run.seconds = static_cast<double>(Now(Clock::kWall) - start) * 1e-9;
  run.processorSeconds = Seconds(usage.ru_utime) + Seconds(usage.ru_stime);
  run.peakBytes = peak.Stop();
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error("keelstone " + arguments.front() + " failed");
  }
  return run;
}

}  // namespace keelstone::bench
