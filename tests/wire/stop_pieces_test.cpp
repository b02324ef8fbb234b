// A line of the library reaches standard error in one piece, also when signals interrupt it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <string>
#include <thread>

#include "JexPartnerLibStop.h"
#include "support/child.h"
#include "support/helper.h"
#include "support/wait_until.h"

namespace jextest {
namespace {

int reader = -1;

/// Ends the helper below in the place of abort(): passes on the first that came.
void reportFirstPiece(int) {
  char piece[256];
  const ssize_t size = recv(reader, piece, sizeof piece, MSG_DONTWAIT);
  _exit(size > 0 && write(STDOUT_FILENO, piece, static_cast<size_t>(size)) == size ? 0 : 1);
}

JEX_HELPER(stop_on_a_socket_that_keeps_pieces_apart) {
  int ends[2] = {};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return 2;
  reader = ends[0];
  dup2(ends[1], STDERR_FILENO);
  signal(SIGABRT, reportFirstPiece);
  PARTNER_STOP("false", "the text of ", 1, " stop");
}

TEST(StopPieces, LeavesInOnePiece) {
  Child child = Child::helper("stop_on_a_socket_that_keeps_pieces_apart");
  EXPECT_EQ(child.readLine(), "Error: the text of 1 stop");
  EXPECT_EQ(child.waitForExit().code, 0) << child.standardError();
  EXPECT_EQ(child.readLine(), "<end>") << "the end of the line belongs to it, and nothing else";
}

std::atomic<int> signals_handled{0};
void countSignal(int) { ++signals_handled; }

/// Whether the kernel has a thread of this process wait.
bool waits(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string stat((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  const size_t name_end = stat.rfind(')');
  return name_end != std::string::npos && stat.substr(name_end, 3) == ") S";
}

/// Standard error of this process, given back with the object.
class ErrorsInto {
 public:
  explicit ErrorsInto(int descriptor) : before_(dup(STDERR_FILENO)) {
    dup2(descriptor, STDERR_FILENO);
  }
  ~ErrorsInto() {
    dup2(before_, STDERR_FILENO);
    close(before_);
  }

 private:
  int before_;
};

// A pipe that is full makes the writer wait, and a signal ends its wait with nothing written.
TEST(StopPieces, IsWrittenThoughSignalsInterruptIt) {
  struct sigaction action {};
  action.sa_handler = countSignal;  // without SA_RESTART
  sigaction(SIGUSR1, &action, nullptr);
  int ends[2] = {};
  ASSERT_EQ(pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
  const char filler[4096] = {};
  while (write(ends[1], filler, sizeof filler) > 0) {
  }
  ASSERT_EQ(fcntl(ends[1], F_SETFL, 0), 0);  // the writer waits from here on

  const std::string line = "a line that has to wait\n";
  {
    const ErrorsInto pipe(ends[1]);
    std::atomic<pid_t> writer_id{0};
    std::thread writer([&] {
      writer_id = static_cast<pid_t>(syscall(SYS_gettid));
      PartnerLib::writeLine(line);
      writer_id = -1;
    });
    for (int round = 0; round < 10; ++round) {
      EXPECT_TRUE(waitUntil([&] { return writer_id < 0 || (writer_id > 0 && waits(writer_id)); }));
      if (writer_id < 0) break;
      const int before = signals_handled;
      pthread_kill(writer.native_handle(), SIGUSR1);
      EXPECT_TRUE(waitUntil([&] { return signals_handled > before; }));
    }
    EXPECT_GT(writer_id, 0) << "the line was given up";
    std::string received;
    while (received.size() < line.size() ||
           received.compare(received.size() - line.size(), line.size(), line) != 0) {
      const bool over = writer_id < 0;
      char piece[4096];
      const ssize_t size = read(ends[0], piece, sizeof piece);
      if (size > 0) received.append(piece, static_cast<size_t>(size));
      if (size <= 0 && over) break;
    }
    writer.join();
    ASSERT_GE(received.size(), line.size());
    EXPECT_EQ(received.substr(received.size() - line.size()), line);
  }
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
}  // namespace jextest
