#include "support/private_world.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>

#include "support/namespaces.h"

namespace jextest {
namespace {

namespace fs = std::filesystem;

std::string& reason() {
  static std::string text;
  return text;
}

std::string& program() {
  static std::string path;
  return path;
}

/// Without /proc, as the program was called.
std::string findProgram() {
  std::error_code error;
  const fs::path path = fs::read_symlink("/proc/self/exe", error);
  return error ? fs::absolute(program_invocation_name).string() : path.string();
}

std::string& runDirectoryName() {
  static std::string name;
  return name;
}

/// Tests find themselves and their descriptors there.
void demandProc() {
  if (access("/proc/self/exe", F_OK) == 0) return;
  std::fprintf(stderr, "test set-up: /proc is not mounted: mount -t proc proc /proc\n");
  std::exit(2);
}

}  // namespace

void enterPrivateWorld() {
  try {
    program() = findProgram();
    reason() = enterNamespaces({JEX_TEST_BINARY_ROOT, JEX_TEST_SOURCE_ROOT});
    if (!reason().empty()) {
      std::fprintf(stderr, "test set-up: no private world can be made here: %s; runs alone\n",
                   reason().c_str());
      takeTurn();  // until this process ends
    }
  } catch (const std::exception& error) {
    std::fprintf(stderr, "test set-up: %s\n", error.what());
    std::exit(2);
  }
  demandProc();
}

const std::string& noPrivateWorldBecause() { return reason(); }

const std::string& ownProgram() { return program(); }

const std::string& runDirectory() {
  std::string& name = runDirectoryName();
  if (name.empty()) {
    name = std::string(JEX_TEST_BINARY_ROOT) + "/tests/runs/" + std::to_string(getpid());
    fs::remove_all(name);
    fs::create_directories(name);
  }
  return name;
}

void leaveRunDirectory(bool failed) {
  const std::string& name = runDirectoryName();
  if (name.empty()) return;
  if (failed && std::getenv("JEX_KEEP_RUN") != nullptr) {
    std::fprintf(stderr, "files of the failed run: %s\n", name.c_str());
    return;
  }
  std::error_code ignored;
  fs::remove_all(name, ignored);
}

}  // namespace jextest
