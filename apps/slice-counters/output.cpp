#include "output.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <system_error>

namespace slice_counters {
namespace {

/// Writes some of `text`; returns how much.
size_t writeSome(std::string_view text) {
  for (;;) {
    const ssize_t written = write(STDOUT_FILENO, text.data(), text.size());
    if (written >= 0) return static_cast<size_t>(written);
    if (errno == EINTR || errno == EAGAIN) continue;
    throw std::runtime_error(std::string("cannot write to standard output: ") +
                             std::strerror(errno));
  }
}

}  // namespace

EndSignal::EndSignal() {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &signals, nullptr);
  fd_ = signalfd(-1, &signals, SFD_CLOEXEC);
  if (fd_ < 0) throw std::system_error(errno, std::generic_category(), "signalfd");
}

EndSignal::~EndSignal() { close(fd_); }

bool EndSignal::waitUntil(std::chrono::steady_clock::time_point moment) const {
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(moment - std::chrono::steady_clock::now());
    const auto timeout = std::clamp<int64_t>(left.count(), 0, INT_MAX);
    pollfd signal{fd_, POLLIN, 0};
    if (poll(&signal, 1, static_cast<int>(timeout)) > 0) return true;
    if (std::chrono::steady_clock::now() >= moment) return false;
  }
}

void EndSignal::wait() const {
  pollfd signal{fd_, POLLIN, 0};
  while (poll(&signal, 1, -1) <= 0) continue;
}

bool EndSignal::print(std::string_view text) const {
  while (!text.empty()) {
    pollfd ends[] = {{fd_, POLLIN, 0}, {STDOUT_FILENO, POLLOUT, 0}};
    if (poll(ends, 2, -1) < 0) continue;
    if (ends[0].revents != 0) return false;
    // As much as a pipe takes without waiting once it can be written to.
    text.remove_prefix(writeSome(text.substr(0, PIPE_BUF)));
  }
  return true;
}

void print(std::string_view text) {
  while (!text.empty()) text.remove_prefix(writeSome(text));
}

}  // namespace slice_counters
