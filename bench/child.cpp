#include "child.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace bench {
namespace {

std::array<int, 2> makePipe() {
  std::array<int, 2> ends{};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("no pipe to be had");
  return ends;
}

}  // namespace

Child::Child(const std::string& role, std::vector<std::string> arguments) : role_(role) {
  arguments.insert(arguments.begin(), {program_invocation_short_name, "--role", role});
  std::vector<char*> argv;
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  const std::array<int, 2> in = makePipe();
  const std::array<int, 2> out = makePipe();
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  const int failure = posix_spawn(&pid_, "/proc/self/exe", &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(in[0]);
  close(out[1]);
  in_ = in[1];
  out_ = fdopen(out[0], "r");
  if (failure != 0) throw std::runtime_error("cannot start " + role + ": " + strerror(failure));
}

Child::~Child() {
  if (pid_ != -1) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (in_ != -1) close(in_);
  if (out_ != nullptr) fclose(out_);
}

nlohmann::json Child::readLine() {
  char* text = nullptr;
  size_t size = 0;
  const ssize_t length = getline(&text, &size, out_);
  const std::string line(text != nullptr && length > 0 ? text : "");
  free(text);
  if (length <= 0) throw std::runtime_error(role_ + " ended early");
  return nlohmann::json::parse(line);
}

void Child::writeLine(const std::string& line) {
  const std::string text = line + '\n';  // short enough to go into a pipe whole
  if (write(in_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    throw std::runtime_error(role_ + " ended early");
  }
}

void Child::finish() {
  close(in_);
  in_ = -1;
  int status = 0;
  waitpid(pid_, &status, 0);
  pid_ = -1;
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) {
    throw std::runtime_error(role_ + " ended with wait status " + std::to_string(status));
  }
}

void report(const nlohmann::json& line) {
  std::printf("%s\n", line.dump().c_str());
  std::fflush(stdout);
}

std::string awaitLine() {
  std::string line;
  char byte = 0;
  while (read(STDIN_FILENO, &byte, 1) > 0) {
    if (byte == '\n') return line;
    line += byte;
  }
  _exit(EXIT_SUCCESS);
}

bool lineWaits() {
  pollfd entry = {STDIN_FILENO, POLLIN, 0};
  return poll(&entry, 1, 0) > 0;
}

void awaitEnd() {
  char byte = 0;
  while (read(STDIN_FILENO, &byte, 1) > 0) continue;
  _exit(EXIT_SUCCESS);
}

}  // namespace bench
