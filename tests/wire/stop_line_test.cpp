// A stop's line on a standard error that takes nothing for the moment.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <string>

#include "JexPartnerLibStop.h"
#include "support/child.h"
#include "support/helper.h"

namespace jextest {
namespace {

/// Stands in place of poll() where a helper has set it.
int (*instead_of_poll)(pollfd* entry, int timeout) = nullptr;

/// A full pipe that does not block, in place of standard error. Returns its other end.
int fillStandardError() {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) _exit(3);
  dup2(ends[1], STDERR_FILENO);
  close(ends[1]);
  fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
  const std::string filling(4096, 'x');
  while (write(STDERR_FILENO, filling.data(), filling.size()) > 0) {
  }
  return errno == EAGAIN ? ends[0] : -1;
}

/// Reads the pipe until `what` has come; what came before is the filling.
std::string readUpTo(int pipe, const std::string& what) {
  std::string text;
  std::array<char, 4096> part{};
  while (text.find(what) == std::string::npos) {
    const ssize_t count = read(pipe, part.data(), part.size());
    if (count <= 0) break;
    text.append(part.data(), static_cast<size_t>(count));
  }
  return text.substr(std::min(text.find_first_not_of('x'), text.size()));
}

/// Empties the pipe while the line waits, and then prints what comes.
JEX_HELPER(reader_that_comes_late) {
  static const int reader = fillStandardError();
  instead_of_poll = [](pollfd* entry, int timeout) {
    if (entry->fd != STDERR_FILENO || entry->events != POLLOUT || timeout <= 0) _exit(4);
    std::array<char, 4096> part{};
    fcntl(reader, F_SETFL, O_NONBLOCK);
    while (read(reader, part.data(), part.size()) > 0) {
    }
    entry->revents = POLLOUT;
    return 1;
  };
  PartnerLib::writeLine("Error: a line\n");
  const std::string line = readUpTo(reader, "\n");
  const ssize_t written = write(STDOUT_FILENO, line.data(), line.size());
  return written > 0 ? 0 : 5;
}

TEST(StopLine, IsNotLostOnAFullPipe) {
  Child child = Child::helper("reader_that_comes_late");
  EXPECT_EQ(child.readLine(), "Error: a line");
  EXPECT_EQ(child.waitForExit().code, 0);
}

// Longer than what a pipe takes as a whole: it goes in pieces, each when there is room.
JEX_HELPER(long_line_for_a_late_reader) {
  static const int reader = fillStandardError();
  static size_t taken = 0;
  fcntl(reader, F_SETFL, O_NONBLOCK);
  static auto take = [] {
    std::array<char, 4096> part{};
    for (ssize_t count = 0; (count = read(reader, part.data(), part.size())) > 0;) {
      for (ssize_t i = 0; i < count; ++i) taken += part[static_cast<size_t>(i)] == 'y' ? 1 : 0;
    }
  };
  instead_of_poll = [](pollfd* entry, int) {
    take();
    entry->revents = POLLOUT;
    return 1;
  };
  constexpr size_t kLength = 300000;
  PartnerLib::writeLine(std::string(kLength, 'y'));
  take();
  return taken == kLength ? 0 : 1;
}

TEST(StopLine, IsWholeWhenItIsLongerThanThePipe) {
  Child child = Child::helper("long_line_for_a_late_reader");
  EXPECT_EQ(child.waitForExit().code, 0);
}

JEX_HELPER(reader_that_never_comes) {
  fillStandardError();
  instead_of_poll = [](pollfd*, int timeout) {
    const std::string line = std::to_string(timeout) + "\n";
    const ssize_t written = write(STDOUT_FILENO, line.data(), line.size());
    static_cast<void>(written);
    return 0;  // that time has passed
  };
  PARTNER_STOP("false", "nobody reads this");
}

TEST(StopLine, DoesNotKeepAProcessThatNobodyReadsFor) {
  Child child = Child::helper("reader_that_never_comes");
  const int waited = std::stoi(child.readLine());
  EXPECT_GT(waited, 0);
  EXPECT_LE(waited, 5000);
  EXPECT_EQ(child.waitForExit().signal, SIGABRT);
  EXPECT_EQ(child.readLine(), "<end>") << "it waited once more";
}

// A signal breaks the wait off and does not end it, nor begin it anew.
JEX_HELPER(reader_after_signals) {
  static const int reader = fillStandardError();
  static int calls = 0;
  static int last_timeout = 5001;
  instead_of_poll = [](pollfd* entry, int timeout) {
    if (timeout > last_timeout) _exit(4);
    last_timeout = timeout;
    if (++calls < 3) {
      errno = EINTR;
      return -1;
    }
    std::array<char, 4096> part{};
    fcntl(reader, F_SETFL, O_NONBLOCK);
    while (read(reader, part.data(), part.size()) > 0) {
    }
    entry->revents = POLLOUT;
    return 1;
  };
  PartnerLib::writeLine("Error: a line\n");
  return readUpTo(reader, "\n") == "Error: a line\n" && calls == 3 ? 0 : 1;
}

TEST(StopLine, WaitsOnAfterASignal) {
  Child child = Child::helper("reader_after_signals");
  EXPECT_EQ(child.waitForExit().code, 0);
}

}  // namespace

}  // namespace jextest

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker gives these names
int __real_poll(pollfd* entries, nfds_t count, int timeout);
__attribute__((visibility("default"))) int __wrap_poll(pollfd* entries, nfds_t count, int timeout) {
  return jextest::instead_of_poll == nullptr || count != 1
             ? __real_poll(entries, count, timeout)
             : jextest::instead_of_poll(entries, timeout);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
