#include "JexPartnerLibStop.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

// What assert() calls; <cassert> hides it where NDEBUG is set.
extern "C" [[noreturn]] void __assert_fail(  // NOLINT(bugprone-reserved-identifier)
    const char* assertion, const char* file, unsigned line, const char* function) noexcept;

namespace PartnerLib {

namespace {

using Clock = std::chrono::steady_clock;

/// How long a line waits for a reader of standard error, in all. It bounds how long a reader that
/// never reads keeps a dying process.
constexpr std::chrono::seconds kReaderPatience{5};

/// Waits until standard error takes more; false when it does not before `deadline`, or never will.
bool waitForReader(Clock::time_point deadline) {
  pollfd entry = {STDERR_FILENO, POLLOUT, 0};
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    const int r = left > 0 ? poll(&entry, 1, static_cast<int>(left)) : 0;
    if (r >= 0 || errno != EINTR) return r > 0;
  }
}

}  // namespace

void writeLine(std::string_view text) {
  const Clock::time_point deadline = Clock::now() + kReaderPatience;
  while (!text.empty()) {
    const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
    if (written > 0) {
      text.remove_prefix(static_cast<size_t>(written));
    } else if (written == 0 || (errno != EINTR && (errno != EAGAIN || !waitForReader(deadline)))) {
      return;  // nobody reads it
    }
  }
}

void stopWithLine(const StopPlace& place, const char* expression, const std::string& message) {
  stopWithWholeLine(place, expression, "Error: " + message + '\n');
}

void stopWithWholeLine(const StopPlace& place, const char* expression, std::string_view line) {
  writeLine(line);
  __assert_fail(expression, place.file, place.line, place.function);
}

}  // namespace PartnerLib
