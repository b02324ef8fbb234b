// main of every test binary that talks over sockets.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstring>

#include "support/helper.h"
#include "support/private_world.h"

namespace {

bool onlyLists(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--gtest_list_tests") == 0) return true;
  }
  return false;
}

/// Many tests stop a process on purpose; none of them needs a core file.
void dumpNoCore() {
  const rlimit none{0, 0};
  setrlimit(RLIMIT_CORE, &none);
}

}  // namespace

int main(int argc, char** argv) {
  int status = 0;
  if (jextest::runHelper(argc, argv, &status)) return status;
  if (!onlyLists(argc, argv)) {
    dumpNoCore();
    std::signal(SIGPIPE, SIG_IGN);
    jextest::enterPrivateWorld();
  }
  testing::InitGoogleTest(&argc, argv);
  status = RUN_ALL_TESTS();
  jextest::leaveRunDirectory(status != 0);
  return status;
}
