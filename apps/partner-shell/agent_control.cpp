#include "agent_control.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <vector>

namespace jexapps {
namespace {

constexpr char kClient[] = "switchctl";

// The client that was installed with this program, else the one on the search path.
std::string clientPath() {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  const std::filesystem::path beside = self.parent_path() / kClient;
  return !error && access(beside.c_str(), X_OK) == 0 ? beside.string() : kClient;
}

struct Run {
  bool succeeded = false;
  std::string output;  // of both kinds
};

// Both outputs of the process are one. It inherits the blocked signals: an interrupt of a command
// leaves it alone, and it ends by itself after some seconds.
class FileActions {
 public:
  explicit FileActions(int output) {
    posix_spawn_file_actions_init(&actions_);
    posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions_, output, STDERR_FILENO);
  }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  const posix_spawn_file_actions_t* get() const { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

std::string readAll(int fd) {
  std::string text;
  char piece[4096];
  for (;;) {
    const ssize_t count = read(fd, piece, sizeof piece);
    if (count > 0) text.append(piece, static_cast<size_t>(count));
    if (count == 0 || (count < 0 && errno != EINTR)) return text;
  }
}

Run runProgram(std::vector<std::string> words) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) return {false, std::strerror(errno)};
  std::vector<char*> arguments;
  arguments.reserve(words.size() + 1);
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  pid_t child = 0;
  const FileActions actions(ends[1]);
  const int error =
      posix_spawnp(&child, arguments[0], actions.get(), nullptr, arguments.data(), environ);
  close(ends[1]);
  Run result;
  result.output = error == 0 ? readAll(ends[0]) : words[0] + ": " + std::strerror(error);
  close(ends[0]);
  int status = 0;
  result.succeeded = error == 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) &&
                     WEXITSTATUS(status) == EXIT_SUCCESS;
  return result;
}

std::string firstLine(const std::string& text) { return text.substr(0, text.find('\n')); }

}  // namespace

DigestTaken askDigestTaken(const std::string& address, const DigestFacts& digest) {
  const Run answer = runProgram(
      {clientPath(), "--json", "--target", address, "digests", "--program", digest.program});
  if (!answer.succeeded) return {std::nullopt, firstLine(answer.output)};
  const auto digests = nlohmann::json::parse(answer.output, nullptr, false);
  if (!digests.is_array()) return {std::nullopt, "not understood: " + firstLine(answer.output)};
  DigestTaken result;
  for (const auto& found : digests) {
    if (!found.is_object() || found.value("name", "") != digest.name) continue;
    result.taken = result.taken.value_or(false) || found.value("armed", false);
  }
  if (!result.taken) result.reason = address + " does not know the digest";
  return result;
}

}  // namespace jexapps
