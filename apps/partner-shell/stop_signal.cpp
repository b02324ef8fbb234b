#include "stop_signal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <system_error>

namespace jexapps {
namespace {

constexpr int kPatienceMs = 1000;

}  // namespace

StopSignal::StopSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  fd_ = signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK);
  if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
}

StopSignal::~StopSignal() { close(fd_); }

bool StopSignal::requested() const {
  pollfd watched{fd_, POLLIN, 0};
  return poll(&watched, 1, 0) > 0;
}

bool StopSignal::waitReadable(int fd) const {
  bool timed_out = false;
  return waitReadable(fd, -1, &timed_out);
}

bool StopSignal::waitReadable(int fd, int timeout_ms, bool* timed_out) const {
  for (;;) {
    pollfd watched[] = {{fd_, POLLIN, 0}, {fd, POLLIN, 0}};
    const int ready = poll(watched, 2, timeout_ms);
    *timed_out = ready == 0;
    if (ready == 0) return false;
    if (ready < 0) continue;  // another signal, such as a resized window
    return watched[0].revents == 0;
  }
}

EndWhileStarting::EndWhileStarting(const StopSignal& stop) : started_fd_(eventfd(0, EFD_CLOEXEC)) {
  if (started_fd_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  watcher_ = std::thread([this, &stop] { watch(stop); });
}

EndWhileStarting::~EndWhileStarting() {
  eventfd_write(started_fd_, 1);
  watcher_.join();
  close(started_fd_);
}

void EndWhileStarting::watch(const StopSignal& stop) const {
  bool timed_out = false;
  bool started = stop.waitReadable(started_fd_, kPatienceMs, &timed_out);
  if (timed_out) {
    std::fputs("partner-shell: waiting for a slice agent\n", stderr);
    started = stop.waitReadable(started_fd_);
  }
  if (!started) _exit(EXIT_SUCCESS);
}

}  // namespace jexapps
