#include "program_check.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "jxsdk/drv.h"
#include "jxsdk/pipe_mgr.h"
#include "jxsdk/rt.h"

namespace jexapps {
namespace {

bool isFile(const std::string& path) { return access(path.c_str(), R_OK) == 0; }

// `program` is a file, or JSON,P4INFO; a file may have a comma in its name.
bool isReadable(const std::string& program) {
  if (isFile(program)) return true;
  const size_t comma = program.rfind(',');
  if (comma != std::string::npos && isFile(program.substr(0, comma))) {
    return isReadable(program.substr(comma + 1));
  }
  const std::string path = program.substr(0, comma);
  std::fprintf(stderr, "partner-shell: %s: %s\n", path.c_str(), std::strerror(errno));
  return false;
}

bool canAddDevice(const std::vector<std::string>& program_files) {
  std::vector<const char*> paths;
  paths.reserve(program_files.size());
  for (const std::string& path : program_files) paths.push_back(path.c_str());
  jx_device_profile_t profile{};
  profile.num_programs = static_cast<uint32_t>(paths.size());
  profile.program_files = paths.data();
  return jx_drv_init() == JX_SUCCESS && pipe_mgr_init() == PIPE_SUCCESS &&
         jx_rt_module_init(0, 0, nullptr, nullptr) == JX_SUCCESS &&
         jx_virtual_device_add(0, &profile, JX_DEV_TYPE_MODEL) == JX_SUCCESS;
}

}  // namespace

bool programsAreLoadable(const std::vector<std::string>& program_files) {
  for (const std::string& path : program_files) {
    if (!isReadable(path)) return false;
  }
  // In a process of its own: this one's driver has to be as new when the library starts up. Faults
  // that are to strike the library must not strike the question.
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    unsetenv("JX_MODEL_FAULTS");
    _exit(canAddDevice(program_files) ? EXIT_SUCCESS : EXIT_FAILURE);
  }
  int status = 0;
  if (child < 0 || waitpid(child, &status, 0) != child) {
    std::fprintf(stderr, "partner-shell: cannot start a process: %s\n", std::strerror(errno));
    return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
}

}  // namespace jexapps
