#include "program/stop_request.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <exception>
#include <system_error>
#include <utility>

namespace keelstone::host {

namespace {

constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};

// What a signal handler requests to stop, where there is no thread for it.
std::atomic<StopRequest*> handled{nullptr};

FileDescriptor Require(int fd, const char* what) {
  if (fd < 0) throw std::system_error(errno, std::generic_category(), what);
  return FileDescriptor(fd);
}

sigset_t WatchedSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : kSignals) {
    struct sigaction action{};
    sigaction(signal, nullptr, &action);
    // Left alone when ignored: nohup and shells that start jobs in the background do so.
    if (action.sa_handler != SIG_IGN) sigaddset(&set, signal);
  }
  return set;
}

}  // namespace

StopRequest::StopRequest() : event_(Require(::eventfd(0, EFD_CLOEXEC), "eventfd")) {}

void StopRequest::Request() noexcept {
  requested_.store(true, std::memory_order_release);
  const std::uint64_t one = 1;
  // It can fail only when the counter is full, and then it is readable already.
  [[maybe_unused]] const auto written = ::write(event_.get(), &one, sizeof one);
}

SignalWatch::SignalWatch(StopRequest& stop, std::function<void(int signal)> onSignal)
    : stop_(stop), onSignal_(std::move(onSignal)) {
  const sigset_t set = WatchedSignals();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  signals_ = Require(::signalfd(-1, &set, SFD_CLOEXEC), "signalfd");
  try {
    thread_ = std::thread([this] { Watch(); });
  } catch (const std::exception&) {
    TakeByHandler();
  }
}

SignalWatch::~SignalWatch() {
  handled.store(nullptr);
  end_.Request();
  if (thread_.joinable()) thread_.join();
}

/// A second signal of the same kind ends the process.
void SignalWatch::TakeByHandler() {
  handled.store(&stop_);
  const sigset_t set = WatchedSignals();
  struct sigaction action{};
  action.sa_handler = [](int) {
    const int error = errno;
    if (StopRequest* stop = handled.load()) stop->Request();
    errno = error;
  };
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  for (const int signal : kSignals) {
    if (sigismember(&set, signal) == 1) sigaction(signal, &action, nullptr);
  }
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void SignalWatch::Watch() {
  std::array<pollfd, 2> awaited = {{{signals_.get(), POLLIN, 0}, {end_.fd(), POLLIN, 0}}};
  while (::poll(awaited.data(), awaited.size(), -1) < 0 && errno == EINTR) {
  }
  signalfd_siginfo info{};
  if (awaited[0].revents == 0 || ::read(signals_.get(), &info, sizeof info) != sizeof info) return;
  // From here on this thread takes the signals as any process does, so that a second one
  // ends a program that cannot come to its end.
  const sigset_t set = WatchedSignals();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  stop_.Request();
  try {
    onSignal_(static_cast<int>(info.ssi_signo));
  } catch (const std::exception&) {
    // Without memory the stop is not announced.
  }
  pollfd end = {end_.fd(), POLLIN, 0};
  while (::poll(&end, 1, -1) < 0 && errno == EINTR) {
  }
}

}  // namespace keelstone::host
