#include "endtoend/terminal.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "support/wait_until.h"

namespace jextest {
namespace {

constexpr winsize kSize{24, 200, 0, 0};  // wide: a command line does not wrap

[[noreturn]] void become(const std::string& program, const std::vector<std::string>& arguments,
                         const Child::Environment& environment) {
  for (const auto& [name, value] : environment) {
    value == Child::unset ? unsetenv(name.c_str()) : setenv(name.c_str(), value.c_str(), 1);
  }
  std::vector<char*> words = {const_cast<char*>(program.c_str())};
  for (const std::string& argument : arguments)
    words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  execv(program.c_str(), words.data());
  _exit(127);
}

}  // namespace

Terminal::Terminal(const std::string& program, const std::vector<std::string>& arguments,
                   const Child::Environment& environment) {
  pid_ = forkpty(&fd_, nullptr, nullptr, &kSize);
  if (pid_ == 0) become(program, arguments, environment);
  if (pid_ < 0) {
    reaped_ = true;
    ADD_FAILURE() << "forkpty: " << std::strerror(errno);
  }
}

Terminal::~Terminal() {
  if (!reaped_) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (fd_ >= 0) close(fd_);
}

void Terminal::type(const std::string& keys) {
  EXPECT_EQ(write(fd_, keys.data(), keys.size()), static_cast<ssize_t>(keys.size()))
      << std::strerror(errno);
}

bool Terminal::awaitText(const std::string& text, std::string* screen) {
  for (;;) {
    const size_t found = pending_.find(text);
    *screen = pending_;
    if (found != std::string::npos) {
      pending_.erase(0, found + text.size());
      return true;
    }
    if (!readMore()) return false;
  }
}

bool Terminal::readMore() {
  pollfd readable{fd_, POLLIN, 0};
  const auto patience = std::chrono::milliseconds(kPatience).count();
  if (poll(&readable, 1, static_cast<int>(patience)) <= 0) return false;
  char buffer[4096];
  const ssize_t count = read(fd_, buffer, sizeof buffer);
  if (count <= 0) return false;
  pending_.append(buffer, static_cast<size_t>(count));
  return true;
}

bool Terminal::isCooked() const {
  termios settings{};
  EXPECT_EQ(tcgetattr(fd_, &settings), 0) << std::strerror(errno);
  return (settings.c_lflag & ICANON) != 0 && (settings.c_lflag & ECHO) != 0;
}

Exit Terminal::waitForExit() {
  int status = 0;
  if (!waitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; })) {
    ADD_FAILURE() << "the program on the terminal does not end";
    kill(pid_, SIGKILL);
    waitpid(pid_, &status, 0);
  }
  reaped_ = true;
  if (WIFSIGNALED(status)) return {-1, WTERMSIG(status)};
  return {WEXITSTATUS(status), 0};
}

}  // namespace jextest
