#include "stop_signal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <system_error>

namespace jexapps {
namespace {

constexpr int kPatienceMs = 1000;
constexpr int kNewDescriptor = -1;

sigset_t setOf(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  return set;
}

// Readable once one of `signals` has come. `fd`, if it is one already, takes these instead.
int descriptorOf(std::initializer_list<int> signals, int fd) {
  const sigset_t set = setOf(signals);
  const int result = signalfd(fd, &set, SFD_CLOEXEC | SFD_NONBLOCK);
  if (result < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
  return result;
}

bool isReadable(int fd) {
  pollfd watched{fd, POLLIN, 0};
  return poll(&watched, 1, 0) > 0;
}

}  // namespace

StopSignal::StopSignal() {
  const sigset_t both = setOf({SIGINT, SIGTERM});
  sigprocmask(SIG_BLOCK, &both, nullptr);
  end_fd_ = descriptorOf({SIGINT, SIGTERM}, kNewDescriptor);
}

StopSignal::~StopSignal() {
  close(end_fd_);
  if (interrupt_fd_ >= 0) close(interrupt_fd_);
}

void StopSignal::separateInterrupts() {
  interrupt_fd_ = descriptorOf({SIGINT}, kNewDescriptor);
  descriptorOf({SIGTERM}, end_fd_);
}

bool StopSignal::endRequested() const { return isReadable(end_fd_); }

bool StopSignal::requested() const {
  return endRequested() || (interrupt_fd_ >= 0 && isReadable(interrupt_fd_));
}

void StopSignal::clearInterrupts() {
  signalfd_siginfo signal;
  while (interrupt_fd_ >= 0 && read(interrupt_fd_, &signal, sizeof signal) > 0) continue;
}

StopSignal::Ready StopSignal::wait(int fd, int timeout_ms) const {
  for (;;) {
    pollfd watched[] = {{end_fd_, POLLIN, 0}, {interrupt_fd_, POLLIN, 0}, {fd, POLLIN, 0}};
    const int ready = poll(watched, 3, timeout_ms);  // which skips a descriptor of -1
    if (ready == 0) return Ready::kTimedOut;
    if (ready < 0) continue;  // another signal, such as a resized window
    if (watched[0].revents != 0) return Ready::kEnd;
    return watched[1].revents != 0 ? Ready::kInterrupt : Ready::kReadable;
  }
}

EndWhileStarting::EndWhileStarting(const StopSignal& stop, std::function<std::string()> reason)
    : reason_(std::move(reason)), started_fd_(eventfd(0, EFD_CLOEXEC)) {
  if (started_fd_ < 0) throw std::system_error(errno, std::generic_category(), "eventfd");
  watcher_ = std::thread([this, &stop] { watch(stop); });
}

EndWhileStarting::~EndWhileStarting() {
  eventfd_write(started_fd_, 1);
  watcher_.join();
  close(started_fd_);
}

void EndWhileStarting::watch(const StopSignal& stop) const {
  StopSignal::Ready ready = stop.wait(started_fd_, kPatienceMs);
  if (ready == StopSignal::Ready::kTimedOut) {
    std::fprintf(stderr, "partner-shell: waiting for a slice agent: %s\n", reason_().c_str());
    ready = stop.wait(started_fd_);
  }
  if (ready == StopSignal::Ready::kEnd) _exit(EXIT_SUCCESS);
}

}  // namespace jexapps
