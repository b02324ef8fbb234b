#include "support/child.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/private_world.h"
#include "support/wait_until.h"

extern char** environ;

namespace jextest {
namespace {

std::map<std::string, std::string> ownEnvironment() {
  std::map<std::string, std::string> all;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const char* const equals = std::strchr(*entry, '=');
    if (equals != nullptr)
      all[std::string(*entry, static_cast<size_t>(equals - *entry))] = equals + 1;
  }
  return all;
}

std::vector<std::string> environmentWith(const Child::Environment& changes) {
  auto all = ownEnvironment();
  for (const auto& [name, value] : changes) {
    if (value == Child::unset) {
      all.erase(name);
    } else {
      all[name] = value;
    }
  }
  std::vector<std::string> lines;
  for (const auto& [name, value] : all) lines.push_back(name + "=" + value);
  return lines;
}

std::vector<char*> pointersTo(std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (std::string& text : strings) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

const std::string Child::unset = "<unset>";

Child Child::helper(const std::string& name, const std::vector<std::string>& arguments,
                    const Environment& environment) {
  std::vector<std::string> all = {"--helper", name};
  all.insert(all.end(), arguments.begin(), arguments.end());
  return Child(ownProgram(), all, environment);
}

Child::Child(const std::string& program, const std::vector<std::string>& arguments,
             const Environment& environment)
    : name_(std::filesystem::path(program).filename()) {
  static int count = 0;
  error_file_ = runDirectory() + "/child-" + std::to_string(++count) + ".stderr";
  int to_child[2];
  int from_child[2];
  if (pipe2(to_child, O_CLOEXEC) != 0 || pipe2(from_child, O_CLOEXEC) != 0) {
    ADD_FAILURE() << "pipe: " << std::strerror(errno);
    return;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, to_child[0], 0);
  posix_spawn_file_actions_adddup2(&actions, from_child[1], 1);
  posix_spawn_file_actions_addopen(&actions, 2, error_file_.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                   0644);
  std::vector<std::string> argument_lines = {program};
  argument_lines.insert(argument_lines.end(), arguments.begin(), arguments.end());
  std::vector<std::string> environment_lines = environmentWith(environment);
  const int error =
      posix_spawn(&pid_, program.c_str(), &actions, nullptr, pointersTo(argument_lines).data(),
                  pointersTo(environment_lines).data());
  posix_spawn_file_actions_destroy(&actions);
  close(to_child[0]);
  close(from_child[1]);
  input_ = to_child[1];
  output_ = from_child[0];
  if (error != 0) {
    pid_ = -1;
    reaped_ = true;
    ADD_FAILURE() << program << ": " << std::strerror(error);
  }
}

Child::Child(Child&& other) noexcept
    : pid_(other.pid_),
      reaped_(other.reaped_),
      status_(other.status_),
      input_(other.input_),
      output_(other.output_),
      pending_(std::move(other.pending_)),
      name_(std::move(other.name_)),
      error_file_(std::move(other.error_file_)) {
  other.reaped_ = true;
  other.input_ = -1;
  other.output_ = -1;
}

Child::~Child() {
  closeInput();
  if (output_ >= 0) close(output_);
  if (reaped_) return;
  kill(pid_, SIGKILL);
  waitpid(pid_, nullptr, 0);
}

void Child::say(const std::string& line) {
  const std::string text = line + "\n";
  if (write(input_, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
    ADD_FAILURE() << name_ << " takes no input: " << std::strerror(errno) << "\n"
                  << standardError();
  }
}

void Child::closeInput() {
  if (input_ >= 0) close(input_);
  input_ = -1;
}

std::string Child::readLine() {
  for (;;) {
    const size_t end = pending_.find('\n');
    if (end != std::string::npos) {
      std::string line = pending_.substr(0, end);
      pending_.erase(0, end + 1);
      return line;
    }
    pollfd readable{output_, POLLIN, 0};
    const auto patience = std::chrono::milliseconds(kPatience).count();
    if (poll(&readable, 1, static_cast<int>(patience)) <= 0) return "<silence>";
    char buffer[4096];
    const ssize_t count = read(output_, buffer, sizeof buffer);
    if (count <= 0) return "<end>";
    pending_.append(buffer, static_cast<size_t>(count));
  }
}

std::string Child::ask(const std::string& line) {
  say(line);
  return readLine();
}

void Child::signal(int number) const { kill(pid_, number); }

void Child::stop() {
  signal(SIGSTOP);
  int status = 0;
  if (waitpid(pid_, &status, WUNTRACED) == pid_ && WIFSTOPPED(status)) return;
  ADD_FAILURE() << name_ << " has ended instead: " << standardError();
  reaped_ = true;
  status_ = status;
}

bool Child::ended() {
  if (!reaped_ && waitpid(pid_, &status_, WNOHANG) == pid_) reaped_ = true;
  return reaped_;
}

Exit Child::waitForExit() {
  if (!waitUntil([this] { return ended(); })) {
    ADD_FAILURE() << name_ << " does not end; its standard error: " << standardError();
    kill(pid_, SIGKILL);
    waitpid(pid_, &status_, 0);
    reaped_ = true;
  }
  if (WIFSIGNALED(status_)) return {-1, WTERMSIG(status_)};
  return {WEXITSTATUS(status_), 0};
}

std::string Child::standardError() const {
  std::ifstream file(error_file_);
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

}  // namespace jextest
